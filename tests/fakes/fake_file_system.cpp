#include "fake_file_system.h"

#include <algorithm>
#include <cstring>

#include "base/file_name_pattern.h"
#include "base/wide_string.h"

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
  const bool writeAccess =
      request.write ||
      (request.otherAccess & (file_access::kGenericAll | file_access::kGenericWrite)) != 0;
  const bool canSetTimes =
      writeAccess || (request.otherAccess & file_access::kFileWriteAttributes) != 0;
  if (IsFolder(key)) {
    if (request.disposition == CreationDisposition::kCreateNew) return err::kFileExists;
    if (!request.backupSemantics || request.disposition == CreationDisposition::kCreateAlways ||
        request.disposition == CreationDisposition::kTruncateExisting)
      return err::kAccessDenied;
    handle = nextHandle_;
    nextHandle_ += 4;
    handles_[handle] = OpenFile{key, 0, false, canSetTimes, false};
    return err::kSuccess;
  }
  if (!IsFolder(ParentKey(key))) return err::kPathNotFound;
  const bool exists = IsFile(key);
  const std::uint32_t existing = exists ? nodes_[key].attributes : 0;
  const bool truncate = request.disposition == CreationDisposition::kCreateAlways ||
                        request.disposition == CreationDisposition::kTruncateExisting;
  if (exists && (existing & file_attr::kReadOnly) != 0 && (writeAccess || truncate))
    return err::kAccessDenied;
  const std::uint32_t guarded = existing & (file_attr::kHidden | file_attr::kSystem);
  if (exists && request.disposition == CreationDisposition::kCreateAlways &&
      (request.attributes & guarded) != guarded)
    return err::kAccessDenied;
  const std::uint32_t newAttributes =
      (request.attributes & ~(file_attr::kNormal | file_attr::kDirectory)) | file_attr::kArchive;
  switch (request.disposition) {
    case CreationDisposition::kCreateNew:
      if (exists) return err::kFileExists;
      MakeFile(key, path).attributes = newAttributes;
      break;
    case CreationDisposition::kCreateAlways: {
      Node& node = MakeFile(key, path);
      node.content.clear();
      node.attributes = newAttributes | (exists ? existing : 0);
      node.times.lastWrite = Tick();
      break;
    }
    case CreationDisposition::kOpenExisting:
      if (!exists) return err::kFileNotFound;
      break;
    case CreationDisposition::kOpenAlways:
      if (!exists) MakeFile(key, path).attributes = newAttributes;
      break;
    case CreationDisposition::kTruncateExisting:
      if (!exists) return err::kFileNotFound;
      if (!writeAccess) return err::kInvalidParameter;
      nodes_[key].content.clear();
      break;
  }
  handle = nextHandle_;
  nextHandle_ += 4;
  handles_[handle] = OpenFile{key, 0, writeAccess, canSetTimes, request.append && writeAccess};
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
  if (found->second.append) found->second.position = content.size();
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
  std::erase_if(locks_, [handle](const auto& lock) { return lock.second == handle; });
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
  if (IsFile(target) && (nodes_[target].attributes & file_attr::kReadOnly) != 0)
    return err::kAccessDenied;
  const Node copy = *found;
  Node& made = MakeFile(target, to);
  made.content = copy.content;
  made.attributes = copy.attributes;
  made.times.lastAccess = copy.times.lastAccess;
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

FakeFileSystem::Node& FakeFileSystem::MakeFolderNode(const std::wstring& key,
                                                     std::wstring_view path) {
  Node& node = nodes_[key];
  node.name = LastElement(path);
  node.folder = true;
  node.attributes = file_attr::kDirectory;
  const FileTime now = Tick();
  node.times = FileTimes{now, now, now};
  return node;
}

err::Win32Error FakeFileSystem::GetAttributes(std::wstring_view path, std::uint32_t& attributes) {
  const std::lock_guard<std::mutex> guard(mutex_);
  attributes = file_attr::kInvalid;
  if (const err::Win32Error error = Enter(FileOp::kGetAttributes, path); error != err::kSuccess)
    return error;
  const std::wstring key = Key(path);
  const Node* node = FindNode(key);
  if (node == nullptr) return IsFolder(ParentKey(key)) ? err::kFileNotFound : err::kPathNotFound;
  attributes = node->attributes;
  if (attributes == 0) attributes = file_attr::kNormal;
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::SetAttributes(std::wstring_view path, std::uint32_t attributes) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kSetAttributes, path); error != err::kSuccess)
    return error;
  const std::wstring key = Key(path);
  const auto found = nodes_.find(key);
  if (found == nodes_.end())
    return IsFolder(ParentKey(key)) ? err::kFileNotFound : err::kPathNotFound;
  constexpr std::uint32_t kSettable = 0x3127;  // the bits SetFileAttributesW changes
  const std::uint32_t kept =
      found->second.attributes & (file_attr::kDirectory | file_attr::kReparsePoint);
  found->second.attributes = (attributes & kSettable) | kept;
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::GetTimes(FileHandle handle, FileTimes& times) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kGetTimes); error != err::kSuccess) return error;
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return err::kInvalidHandle;
  times = nodes_[found->second.key].times;
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::SetTimes(FileHandle handle, const FileTimes& times) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = handles_.find(handle);
  if (const err::Win32Error error =
          Enter(FileOp::kSetTimes, found == handles_.end() ? L"" : found->second.key);
      error != err::kSuccess)
    return error;
  if (found == handles_.end()) return err::kInvalidHandle;
  if (!found->second.canSetTimes) return err::kAccessDenied;
  FileTimes& stored = nodes_[found->second.key].times;
  if (times.creation != 0) stored.creation = times.creation;
  if (times.lastAccess != 0) stored.lastAccess = times.lastAccess;
  if (times.lastWrite != 0) stored.lastWrite = times.lastWrite;
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::MakeFolder(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kMakeFolder, path); error != err::kSuccess)
    return error;
  const std::wstring key = Key(path);
  if (FindNode(key) != nullptr) return err::kAlreadyExists;
  if (!IsFolder(ParentKey(key))) return err::kPathNotFound;
  MakeFolderNode(key, path);
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::MakeFolderPath(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kMakeFolderPath, path); error != err::kSuccess)
    return error;
  const bool driveForm =
      path.size() >= 3 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/');
  const bool uncForm = path.size() >= 2 && path[0] == L'\\' && path[1] == L'\\';
  if (!driveForm && !uncForm) return err::kBadPathname;
  if (path.size() >= 248) return err::kFilenameExcedRange;
  const std::wstring key = Key(path);
  if (const Node* node = FindNode(key); node != nullptr)
    return node->folder ? err::kAlreadyExists : err::kFileExists;
  // The folders to make, from the deepest up to the first one that exists.
  std::vector<std::pair<std::wstring, std::wstring>> missing;  // key, path as given
  std::wstring currentKey = key;
  std::wstring currentPath(path);
  while (FindNode(currentKey) == nullptr) {
    missing.emplace_back(currentKey, currentPath);
    const std::wstring parent = ParentKey(currentKey);
    if (parent.empty() || parent == currentKey) return err::kPathNotFound;  // no such root
    if (uncForm && parent.find(L'\\', 2) == std::wstring::npos) return err::kBadNetPath;
    currentKey = parent;
    currentPath = currentPath.substr(0, currentPath.find_last_of(L"\\/"));
  }
  if (!FindNode(currentKey)->folder) return err::kPathNotFound;  // a file on the way
  for (auto it = missing.rbegin(); it != missing.rend(); ++it)
    MakeFolderNode(it->first, it->second);
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::DeleteFileAt(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kDeleteFile, path); error != err::kSuccess)
    return error;
  const std::wstring key = Key(path);
  const auto found = nodes_.find(key);
  if (found == nodes_.end())
    return IsFolder(ParentKey(key)) ? err::kFileNotFound : err::kPathNotFound;
  if (found->second.folder && (found->second.attributes & file_attr::kReparsePoint) == 0)
    return err::kAccessDenied;
  if ((found->second.attributes & file_attr::kReadOnly) != 0) return err::kAccessDenied;
  nodes_.erase(found);
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::DeleteTree(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kDeleteTree, path); error != err::kSuccess)
    return error;
  const std::wstring key = Key(path);
  if (FindNode(key) == nullptr)
    return IsFolder(ParentKey(key)) ? err::kFileNotFound : err::kPathNotFound;
  // Everything below key goes (a reparse point's target is elsewhere and stays).
  const std::wstring prefix = key.back() == L'\\' ? key : key + L'\\';
  for (auto it = nodes_.begin(); it != nodes_.end();) {
    if (it->first == key || it->first.starts_with(prefix)) {
      it = nodes_.erase(it);
    } else {
      ++it;
    }
  }
  return err::kSuccess;
}

void FakeFileSystem::HoldLockElsewhere(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  ++locksElsewhere_[Key(path)];
}

void FakeFileSystem::ReleaseLockElsewhere(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  locksElsewhere_.erase(Key(path));
}

bool FakeFileSystem::IsLocked(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return locks_.count(Key(path)) != 0;
}

err::Win32Error FakeFileSystem::OpenLocked(std::wstring_view path, const FileOpenRequest& request,
                                           FileHandle& handle) {
  handle = kInvalidFileHandle;
  const std::wstring key = Key(path);
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (const err::Win32Error error = Enter(FileOp::kOpenLocked, path); error != err::kSuccess)
      return error;
    if (locks_.count(key) != 0 || locksElsewhere_.count(key) != 0) return err::kSharingViolation;
  }
  const err::Win32Error error = Open(path, request, handle);
  if (error != err::kSuccess) return error;
  const std::lock_guard<std::mutex> guard(mutex_);
  locks_[key] = handle;
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::LockLogFile(std::wstring_view path) {
  std::unique_lock<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kLockLog, path); error != err::kSuccess)
    return error;
  const std::wstring key = Key(path);
  if (!IsFile(key)) return err::kFileNotFound;
  logUnlocked_.wait(guard, [&] { return lockedLogs_.count(key) == 0; });
  lockedLogs_.insert(key);
  return err::kSuccess;
}

err::Win32Error FakeFileSystem::UnlockLogFile(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (const err::Win32Error error = Enter(FileOp::kUnlockLog, path); error != err::kSuccess)
    return error;
  if (lockedLogs_.erase(Key(path)) == 0) return err::kNotLocked;
  logUnlocked_.notify_all();
  return err::kSuccess;
}

}  // namespace tw::testing
