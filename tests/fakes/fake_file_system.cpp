#include "fake_file_system.h"

#include <algorithm>
#include <cstring>

#include "base/wide_string.h"

namespace tw::testing {

FakeFileSystem::FakeFileSystem(std::wstring modulePath) : modulePath_(std::move(modulePath)) {
  AddFolder(ParentKey(Key(modulePath_)));
}

std::wstring FakeFileSystem::Key(std::wstring_view path) {
  std::wstring key(path);
  for (wchar_t& c : key) c = ToUpperWindows(c);
  while (key.size() > 3 && key.back() == L'\\') key.pop_back();
  return key;
}

std::wstring FakeFileSystem::ParentKey(const std::wstring& key) {
  const std::wstring::size_type slash = key.find_last_of(L'\\');
  if (slash == std::wstring::npos) return std::wstring();
  if (slash == 2 && key.size() > 1 && key[1] == L':') return key.substr(0, 3);  // "C:\"
  return key.substr(0, slash);
}

void FakeFileSystem::FailOperation(FileOp op, err::Win32Error error, int succeedFirst) {
  const std::lock_guard<std::mutex> guard(mutex_);
  failures_[op] = Failure{error, succeedFirst};
}

void FakeFileSystem::ClearFailures() {
  const std::lock_guard<std::mutex> guard(mutex_);
  failures_.clear();
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

void FakeFileSystem::AddFolder(std::wstring_view path) {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::wstring key = Key(path);
  while (!key.empty()) {
    folders_[key] = true;
    const std::wstring parent = ParentKey(key);
    if (parent == key) break;
    key = parent;
  }
}

void FakeFileSystem::SetFile(std::wstring_view path, std::string content) {
  const std::lock_guard<std::mutex> guard(mutex_);
  files_[Key(path)] = std::move(content);
}

bool FakeFileSystem::HasFile(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return files_.count(Key(path)) != 0;
}

std::string FakeFileSystem::FileContent(std::wstring_view path) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = files_.find(Key(path));
  return found == files_.end() ? std::string() : found->second;
}

int FakeFileSystem::OpenHandles() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return static_cast<int>(handles_.size());
}

err::Win32Error FakeFileSystem::Enter(FileOp op) {
  const int call = calls_[op]++;
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
  if (Enter(FileOp::kPathExists) != err::kSuccess) return false;
  const std::wstring key = Key(path);
  return files_.count(key) != 0 || folders_.count(key) != 0;
}

err::Win32Error FakeFileSystem::Open(std::wstring_view path, const FileOpenRequest& request,
                                     FileHandle& handle) {
  const std::lock_guard<std::mutex> guard(mutex_);
  handle = kInvalidFileHandle;
  ++opens_[request.disposition];
  if (const err::Win32Error error = Enter(FileOp::kOpen); error != err::kSuccess) return error;
  const std::wstring key = Key(path);
  if (folders_.count(key) != 0) return err::kAccessDenied;
  if (folders_.count(ParentKey(key)) == 0) return err::kPathNotFound;
  const bool exists = files_.count(key) != 0;
  switch (request.disposition) {
    case CreationDisposition::kCreateNew:
      if (exists) return err::kFileExists;
      files_[key];
      break;
    case CreationDisposition::kCreateAlways:
      files_[key].clear();
      break;
    case CreationDisposition::kOpenExisting:
      if (!exists) return err::kFileNotFound;
      break;
    case CreationDisposition::kOpenAlways:
      files_[key];
      break;
    case CreationDisposition::kTruncateExisting:
      if (!exists) return err::kFileNotFound;
      files_[key].clear();
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
    base = static_cast<std::int64_t>(files_[found->second.key].size());
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
  size = files_[found->second.key].size();
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
  std::string& content = files_[found->second.key];
  const std::size_t position = static_cast<std::size_t>(found->second.position);
  if (content.size() < position + byteCount) content.resize(position + byteCount, '\0');
  if (byteCount != 0) std::memcpy(content.data() + position, data, byteCount);
  found->second.position += byteCount;
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
  if (const err::Win32Error error = Enter(FileOp::kCopy); error != err::kSuccess) return error;
  const std::wstring source = Key(from);
  const std::wstring target = Key(to);
  const auto found = files_.find(source);
  if (found == files_.end()) {
    return folders_.count(ParentKey(source)) != 0 ? err::kFileNotFound : err::kPathNotFound;
  }
  if (folders_.count(ParentKey(target)) == 0) return err::kPathNotFound;
  if (failIfExists && files_.count(target) != 0) return err::kFileExists;
  files_[target] = found->second;
  return err::kSuccess;
}

}  // namespace tw::testing
