#include "fake_file_system.h"

#include <algorithm>
#include <cstring>

#include "base/wide_string.h"
#include "platform/file_name_pattern.h"

namespace tw::testing {

FakeFileSystem::FakeFileSystem(std::wstring modulePath) : modulePath_(std::move(modulePath)) {
  AddFolder(modulePath_.substr(0, modulePath_.find_last_of(L'\\')));
}

std::wstring FakeFileSystem::Key(std::wstring_view path) {
  std::wstring key(path);
  for (wchar_t& c : key) {
    c = ToUpperWindows(c);
    if (c == L'/') c = L'\\';
  }
  while (key.size() > 3 && key.back() == L'\\') key.pop_back();
  if (key.size() == 2 && key[1] == L':') key.push_back(L'\\');  // "C:" is the root "C:\"
  return key;
}

std::wstring FakeFileSystem::ParentKey(const std::wstring& key) {
  const std::wstring::size_type slash = key.find_last_of(L'\\');
  if (slash == std::wstring::npos) return std::wstring();
  if (slash == 2 && key.size() > 1 && key[1] == L':') return key.substr(0, 3);  // "C:\"
  return key.substr(0, slash);
}

std::wstring FakeFileSystem::LastElement(std::wstring_view path) {
  while (path.size() > 3 && (path.back() == L'\\' || path.back() == L'/')) path.remove_suffix(1);
  const std::size_t slash = path.find_last_of(L"\\/");
  if (slash == std::wstring_view::npos || slash + 1 == path.size()) return std::wstring(path);
  return std::wstring(path.substr(slash + 1));
}

void FakeFileSystem::FailOperation(FileOp op, err::Win32Error error, int succeedFirst) {
  const std::lock_guard<std::mutex> guard(mutex_);
  failures_[op] = Failure{error, succeedFirst};
}

void FakeFileSystem::FailPath(FileOp op, std::wstring_view path, err::Win32Error error) {
  const std::lock_guard<std::mutex> guard(mutex_);
  pathFailures_.push_back(PathFailure{op, Key(path), error});
}

void FakeFileSystem::ClearFailures() {
  const std::lock_guard<std::mutex> guard(mutex_);
  failures_.clear();
  pathFailures_.clear();
}

int FakeFileSystem::Calls(FileOp op) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = calls_.find(op);
  return found == calls_.end() ? 0 : found->second;
}

int FakeFileSystem::Opens(CreationDisposition disposition) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = opens_.find(disposition);
  return found == opens_.end() ? 0 : found->second;
}

FileTime FakeFileSystem::Tick() {
  clock_ += 10000000;  // one second
  return clock_;
}

void FakeFileSystem::AddFolder(std::wstring_view path, std::uint32_t attributes) {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::wstring key = Key(path);
  std::wstring_view rest = path;
  bool first = true;
  while (!key.empty()) {
    Node& node = nodes_[key];
    if (node.name.empty()) {
      node.name = LastElement(rest);
      node.folder = true;
      node.attributes = file_attr::kDirectory;
      const FileTime now = Tick();
      node.times = FileTimes{now, now, now};
    }
    if (first) node.attributes = attributes | file_attr::kDirectory;
    first = false;
    const std::wstring parent = ParentKey(key);
    if (parent == key) break;
    key = parent;
    const std::size_t slash = rest.find_last_of(L"\\/");
    if (slash != std::wstring_view::npos) rest = rest.substr(0, slash == 2 ? 3 : slash);
  }
}

FakeFileSystem::Node& FakeFileSystem::MakeFile(const std::wstring& key, std::wstring_view path) {
  Node& node = nodes_[key];
  if (node.name.empty()) {
    node.name = LastElement(path);
    node.attributes = file_attr::kArchive;
    const FileTime now = Tick();
    node.times = FileTimes{now, now, now};
  }
  return node;
}

void FakeFileSystem::SetFile(std::wstring_view path, std::string content,
                             std::uint32_t attributes) {
  const std::lock_guard<std::mutex> guard(mutex_);
  Node& node = MakeFile(Key(path), path);
  node.content = std::move(content);
  node.attributes = attributes;
}

void FakeFileSystem::AddReparsePoint(std::wstring_view path, bool folder) {
  const std::lock_guard<std::mutex> guard(mutex_);
  Node& node = MakeFile(Key(path), path);
  node.folder = folder;
  node.attributes =
      file_attr::kReparsePoint | (folder ? file_attr::kDirectory : file_attr::kArchive);
}

void FakeFileSystem::SetTimes(std::wstring_view path, const FileTimes& times) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = nodes_.find(Key(path));
  if (found != nodes_.end()) found->second.times = times;
}

const FakeFileSystem::Node* FakeFileSystem::FindNode(const std::wstring& key) const {
  const auto found = nodes_.find(key);
  return found == nodes_.end() ? nullptr : &found->second;
}

bool FakeFileSystem::IsFolder(const std::wstring& key) const {
  const Node* node = FindNode(key);
  return node != nullptr && node->folder;
}

bool FakeFileSystem::IsFile(const std::wstring& key) const {
  const Node* node = FindNode(key);
  return node != nullptr && !node->folder;
}

bool FakeFileSystem::HasFile(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return IsFile(Key(path));
}

bool FakeFileSystem::HasFolder(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return IsFolder(Key(path));
}

std::string FakeFileSystem::FileContent(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const Node* node = FindNode(Key(path));
  return node == nullptr || node->folder ? std::string() : node->content;
}

std::uint32_t FakeFileSystem::AttributesOf(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const Node* node = FindNode(Key(path));
  return node == nullptr ? file_attr::kInvalid : node->attributes;
}

FileTimes FakeFileSystem::TimesOf(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const Node* node = FindNode(Key(path));
  return node == nullptr ? FileTimes{} : node->times;
}

std::vector<std::wstring> FakeFileSystem::ChildNames(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const std::wstring key = Key(path);
  std::vector<std::wstring> names;
  for (const auto& [childKey, node] : nodes_) {
    if (childKey != key && ParentKey(childKey) == key) names.push_back(node.name);
  }
  return names;
}

int FakeFileSystem::OpenHandles() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(handles_.size());
}

int FakeFileSystem::OpenSearches() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(searches_.size());
}

err::Win32Error FakeFileSystem::Enter(FileOp op, std::wstring_view path) {
  const int call = calls_[op]++;
  if (!path.empty() && !pathFailures_.empty()) {
    const std::wstring key = Key(path);
    for (const PathFailure& failure : pathFailures_) {
      if (failure.op != op) continue;
      if (key == failure.key || (key.size() > failure.key.size() && key.starts_with(failure.key) &&
                                 (failure.key.back() == L'\\' || key[failure.key.size()] == L'\\')))
        return failure.error;
    }
  }
  const auto found = failures_.find(op);
  if (found == failures_.end() || call < found->second.succeedFirst) return err::kSuccess;
  return found->second.error;
}

std::wstring FakeFileSystem::ModuleFileName() {
  const std::lock_guard<std::mutex> guard(mutex_);
  Enter(FileOp::kModuleFileName);
  return modulePath_;
}

bool FakeFileSystem::PathExists(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (Enter(FileOp::kPathExists, path) != err::kSuccess) return false;
  return FindNode(Key(path)) != nullptr;
}

err::Win32Error FakeFileSystem::Open(std::wstring_view path, const FileOpenRequest& request,
                                     FileHandle& handle) {
  const std::lock_guard<std::mutex> guard(mutex_);
  handle = kInvalidFileHandle;
  ++opens_[request.disposition];
  if (const err::Win32Error error = Enter(FileOp::kOpen, path); error != err::kSuccess)
    return error;
  const std::wstring key = Key(path);
  if (IsFolder(key)) return err::kAccessDenied;
  if (!IsFolder(ParentKey(key))) return err::kPathNotFound;
  const bool exists = IsFile(key);
  switch (request.disposition) {
    case CreationDisposition::kCreateNew:
      if (exists) return err::kFileExists;
      MakeFile(key, path);
      break;
    case CreationDisposition::kCreateAlways:
      MakeFile(key, path).content.clear();
      break;
    case CreationDisposition::kOpenExisting:
      if (!exists) return err::kFileNotFound;
      break;
    case CreationDisposition::kOpenAlways:
      MakeFile(key, path);
      break;
    case CreationDisposition::kTruncateExisting:
      if (!exists) return err::kFileNotFound;
      nodes_[key].content.clear();
      break;
  }
  handle = nextHandle_;
  nextHandle_ += 4;
  handles_[handle] = OpenFile{key, 0, request.write};
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::Seek(FileHandle handle, std::int64_t distance, SeekOrigin origin,
                                     std::uint64_t& position) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kSeek); error != err::kSuccess) return error;
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return err::kInvalidHandle;
  std::int64_t base = 0;
  if (origin == SeekOrigin::kCurrent) base = static_cast<std::int64_t>(found->second.position);
  if (origin == SeekOrigin::kEnd)
    base = static_cast<std::int64_t>(nodes_[found->second.key].content.size());
  if (base + distance < 0) return err::kInvalidParameter;
  found->second.position = static_cast<std::uint64_t>(base + distance);
  position = found->second.position;
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::QuerySize(FileHandle handle, std::uint64_t& size) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kQuerySize); error != err::kSuccess) return error;
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return err::kInvalidHandle;
  size = nodes_[found->second.key].content.size();
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::Write(FileHandle handle, const void* data, std::uint32_t byteCount,
                                      std::uint32_t& written) {
  const std::lock_guard<std::mutex> guard(mutex_);
  written = 0;
  if (const err::Win32Error error = Enter(FileOp::kWrite); error != err::kSuccess) return error;
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return err::kInvalidHandle;
  if (!found->second.canWrite) return err::kAccessDenied;
  Node& node = nodes_[found->second.key];
  std::string& content = node.content;
  const std::size_t position = static_cast<std::size_t>(found->second.position);
  if (content.size() < position + byteCount) content.resize(position + byteCount, '\0');
  if (byteCount != 0) std::memcpy(content.data() + position, data, byteCount);
  found->second.position += byteCount;
  node.times.lastWrite = Tick();
  written = byteCount;
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::Flush(FileHandle handle) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kFlush); error != err::kSuccess) return error;
  return handles_.count(handle) != 0 ? err::kSuccess : err::kInvalidHandle;
}

err::Win32Error FakeFileSystem::Close(FileHandle handle) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kClose); error != err::kSuccess) return error;
  return handles_.erase(handle) == 1 ? err::kSuccess : err::kInvalidHandle;
}

err::Win32Error FakeFileSystem::CopyFileTo(std::wstring_view from, std::wstring_view to,
                                           bool failIfExists) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kCopy, from); error != err::kSuccess)
    return error;
  const std::wstring source = Key(from);
  const std::wstring target = Key(to);
  const Node* found = FindNode(source);
  if (found == nullptr) {
    return IsFolder(ParentKey(source)) ? err::kFileNotFound : err::kPathNotFound;
  }
  if (found->folder) return err::kAccessDenied;
  if (!IsFolder(ParentKey(target))) return err::kPathNotFound;
  if (IsFolder(target)) return err::kAccessDenied;
  if (failIfExists && IsFile(target)) return err::kFileExists;
  const Node copy = *found;
  Node& made = MakeFile(target, to);
  made.content = copy.content;
  made.attributes = copy.attributes;
  made.times.lastWrite = copy.times.lastWrite;  // as CopyFileW: the last-write time goes along
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::FindFirstEntry(std::wstring_view pattern, SearchHandle& search,
                                               FindEntry& entry) {
  const std::lock_guard<std::mutex> guard(mutex_);
  search = kInvalidSearchHandle;
  if (const err::Win32Error error = Enter(FileOp::kFindFirst, pattern); error != err::kSuccess)
    return error;
  const SearchPatternParts parts = SplitSearchPattern(pattern);
  if (parts.name.empty()) return err::kFileNotFound;
  const std::wstring folderKey = Key(parts.folder);
  const Node* folder = FindNode(folderKey);
  if (folder == nullptr) return err::kPathNotFound;
  if (!folder->folder || (folder->attributes & file_attr::kReparsePoint) != 0)
    return err::kDirectory;

  Search state;
  auto add = [&](const Node& node, std::wstring name) {
    if (!MatchesSearchPattern(parts.name, name)) return;
    FindEntry found;
    found.name = std::move(name);
    found.attributes = node.attributes;
    found.times = node.times;
    found.size = node.folder ? 0 : node.content.size();
    state.entries.push_back(std::move(found));
  };
  const bool driveRoot = folderKey.size() == 3 && folderKey[1] == L':';
  if (!driveRoot) {
    add(*folder, L".");
    const Node* parent = FindNode(ParentKey(folderKey));
    add(parent != nullptr ? *parent : *folder, L"..");
  }
  for (const auto& [key, node] : nodes_) {
    if (key != folderKey && ParentKey(key) == folderKey) add(node, node.name);
  }
  if (state.entries.empty()) return err::kFileNotFound;
  entry = state.entries[0];
  state.next = 1;
  search = nextHandle_;
  nextHandle_ += 4;
  searches_[search] = std::move(state);
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::FindNextEntry(SearchHandle search, FindEntry& entry) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kFindNext); error != err::kSuccess) return error;
  const auto found = searches_.find(search);
  if (found == searches_.end()) return err::kInvalidHandle;
  if (found->second.next >= found->second.entries.size()) return err::kNoMoreFiles;
  entry = found->second.entries[found->second.next++];
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::CloseSearch(SearchHandle search) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kCloseSearch); error != err::kSuccess)
    return error;
  return searches_.erase(search) == 1 ? err::kSuccess : err::kInvalidHandle;
}

}  // namespace tw::testing
