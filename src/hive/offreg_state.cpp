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

namespace {

// Calls `part` with each "\"-separated name of `path` (see ResolvePath for the rules); returns
// ERROR_BAD_PATHNAME for an empty one, after the names before it.
template <class Part>
DWORD ForEachPathPart(std::wstring_view path, Part part) {
  if (!path.empty() && path.back() == L'\\') path.remove_suffix(1);
  if (path.empty()) return err::kSuccess;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = path.find(L'\\', start);
    const std::wstring_view name =
        path.substr(start, end == std::wstring_view::npos ? std::wstring_view::npos : end - start);
    if (name.empty()) return err::kBadPathname;
    part(name);
    if (end == std::wstring_view::npos) return err::kSuccess;
    start = end + 1;
  }
}

}  // namespace

DWORD SplitPath(std::wstring_view path, std::vector<std::wstring_view>* parts) {
  return ForEachPathPart(path, [parts](std::wstring_view name) { parts->push_back(name); });
}

DWORD ResolvePath(Key* from, std::wstring_view path, Key** found) {
  // Every name is checked before a missing key is reported.
  Key* key = from;
  const DWORD split = ForEachPathPart(path, [&key](std::wstring_view name) {
    if (key != nullptr) key = FindChild(*key, name);
  });
  if (split != err::kSuccess) return split;
  if (key == nullptr) return err::kFileNotFound;
  *found = key;
  return err::kSuccess;
}

std::size_t KeyDepth(const Key* key) {
  std::size_t depth = 0;
  for (const Key* up = key->parent; up != nullptr && depth <= kMaxKeyDepth; up = up->parent) {
    ++depth;
  }
  return depth;
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
