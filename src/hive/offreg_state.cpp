#include "hive/offreg_state.h"

namespace tw::hive::detail {

Engine& GetEngine() {
  static Engine* engine = new Engine();  // never destroyed: usable until the process ends
  return *engine;
}

DWORD LookupKey(Engine& engine, ORHKEY handle, HandleEntry** entry) {
  HandleEntry* found = engine.handles.Find(RawHandle(handle));
  if (found == nullptr) return err::kInvalidHandle;
  if (found->key->deleted) return err::kKeyDeleted;
  *entry = found;
  return err::kSuccess;
}

DWORD SplitPath(std::wstring_view path, std::vector<std::wstring_view>* parts) {
  if (!path.empty() && path.back() == L'\\') path.remove_suffix(1);
  if (path.empty()) return err::kSuccess;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = path.find(L'\\', start);
    const std::wstring_view part =
        path.substr(start, end == std::wstring_view::npos ? std::wstring_view::npos : end - start);
    if (part.empty()) return err::kBadPathname;
    parts->push_back(part);
    if (end == std::wstring_view::npos) return err::kSuccess;
    start = end + 1;
  }
}

DWORD ResolvePath(Key* from, std::wstring_view path, Key** found) {
  std::vector<std::wstring_view> parts;
  const DWORD split = SplitPath(path, &parts);
  if (split != err::kSuccess) return split;
  Key* key = from;
  for (const std::wstring_view part : parts) {
    key = FindChild(*key, part);
    if (key == nullptr) return err::kFileNotFound;
  }
  *found = key;
  return err::kSuccess;
}

DWORD CopyName(std::wstring_view text, PWSTR buffer, PDWORD count) {
  const auto length = static_cast<DWORD>(text.size());
  if (*count < length + 1) {
    *count = length;
    return err::kMoreData;
  }
  text.copy(buffer, text.size());
  buffer[text.size()] = L'\0';
  *count = length;
  return err::kSuccess;
}

void PutFileTime(std::uint64_t time, PFILETIME out) {
  if (out == nullptr) return;
  out->dwLowDateTime = static_cast<std::uint32_t>(time);
  out->dwHighDateTime = static_cast<std::uint32_t>(time >> 32);
}

ORHKEY OpenHandle(Engine& engine, Hive* hive, Key* key, bool isRoot) {
  const std::uintptr_t raw = engine.handles.Add(hive, key, isRoot);
  if (raw != 0) ++key->openHandles;
  return ToOrHKey(raw);
}

}  // namespace tw::hive::detail
