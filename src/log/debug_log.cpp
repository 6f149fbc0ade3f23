#include "log/debug_log.h"

#include <algorithm>
#include <new>
#include <string>

#include "base/hresult_error.h"
#include "base/shell_path.h"
#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "log/log_timestamp.h"

namespace tw {
namespace {

// Characters GetModuleFileNameW puts into a buffer of 261.
constexpr std::size_t kModulePathLength = 260;

// The request of every open of a log file: GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ |
// FILE_SHARE_WRITE, with the given disposition. Deliberate deviation, so that several processes
// can share the file: the handle appends (FILE_APPEND_DATA in place of FILE_WRITE_DATA), so that
// each line lands whole at the end of the file, whoever wrote last.
FileOpenRequest LogOpenRequest(CreationDisposition disposition) {
  FileOpenRequest request;
  request.read = true;
  request.write = true;
  request.append = true;
  request.shareRead = true;
  request.shareWrite = true;
  request.disposition = disposition;
  return request;
}

// Holds the lock of one log file that the processes writing it share (FileSystem::LockLogFile)
// until Release() or the end of the scope. A lock that cannot be had is not waited for again:
// the line is then written without it.
class SharedLogLock {
 public:
  SharedLogLock(FileSystem& fileSystem, const std::wstring& path)
      : fileSystem_(fileSystem),
        path_(path),
        held_(fileSystem.LockLogFile(path) == err::kSuccess) {}
  SharedLogLock(const SharedLogLock&) = delete;
  SharedLogLock& operator=(const SharedLogLock&) = delete;
  ~SharedLogLock() { Release(); }

  void Release() {
    if (held_) fileSystem_.UnlockLogFile(path_);
    held_ = false;
  }

 private:
  FileSystem& fileSystem_;
  const std::wstring& path_;
  bool held_;
};

using LogFiles = std::unordered_map<std::wstring, FileHandle, LogPathHash, LogPathEqual>;

// "[timestamp][0xthread] message\r\n". Bytes of a file name that are not UTF-8 are shown as
// "<HH>" (text_encoding.h).
std::wstring LogLine(SystemServices& system, std::wstring_view message) {
  const std::wstring timestamp = LogTimestamp(system);
  const std::uint32_t threadId = system.CurrentThreadId();
  return Format(L"[%s][0x%08lx] %s\r\n", timestamp, threadId, ShowUndecodableBytes(message));
}

// The handle of `path`'s log file: the one kept in `openFiles`, or the file opened (at its end)
// and kept. False when no line is to be written, with the result to return: the open's error,
// or 0 for a path whose open failed before.
bool FindLogFile(FileSystem& fileSystem, LogFiles& openFiles, const std::wstring& path,
                 LogFiles::iterator& found, FileHandle& handle, HResult& result) {
  found = openFiles.find(path);
  if (found != openFiles.end()) {
    handle = found->second;
    result = hr::kOk;
    return handle != kInvalidFileHandle;
  }
  const err::Win32Error error =
      fileSystem.Open(path, LogOpenRequest(CreationDisposition::kOpenAlways), handle);
  if (error != err::kSuccess) {
    result = HResultFromWin32(error);
    return false;
  }
  std::uint64_t position = 0;
  fileSystem.Seek(handle, 0, SeekOrigin::kEnd, position);
  found = openFiles.emplace(path, handle).first;
  return true;
}

// Rotation: the size is tested before the line is written, so a file may pass the limit by its
// last line and is rotated by the next write. The file is copied to "<name> (previous).log" and
// emptied; `handle` becomes the new handle, or kInvalidFileHandle when the file cannot be
// opened again.
void RotateWhenFull(FileSystem& fileSystem, LogFiles& openFiles, LogFiles::iterator found,
                    const std::wstring& path, FileHandle& handle) {
  std::uint64_t size = 0;
  if (fileSystem.QuerySize(handle, size) != err::kSuccess || size <= kLogRotationSize) return;
  fileSystem.Close(handle);
  std::wstring withoutExtension = path;
  PathRemoveExtensionW(withoutExtension);
  const std::wstring rotatedPath = Format(L"%s (previous).log", withoutExtension);
  fileSystem.CopyFileTo(path, rotatedPath, false);  // the result does not matter
  FileHandle reopened = kInvalidFileHandle;
  const err::Win32Error error =
      fileSystem.Open(path, LogOpenRequest(CreationDisposition::kCreateAlways), reopened);
  if (error == err::kSuccess) {
    found->second = reopened;
    handle = reopened;
  } else {
    // Deliberate: the map keeps the old, now closed handle, so this write and every later
    // write to this path fail instead of opening the file again. It keeps it as
    // kClosedFileHandle: Windows may give the closed value to the next object opened.
    openFiles[path] = kClosedFileHandle;
    handle = kInvalidFileHandle;
  }
}

// Writes `line` in the thread's ANSI code page and lets go of `fileLock` before the flush.
// Returns 0 or the write's HRESULT; a failed conversion throws its HRESULT.
[[nodiscard]] HResult WriteLogLine(SystemServices& system, FileSystem& fileSystem,
                                   FileHandle handle, const std::wstring& line,
                                   SharedLogLock& fileLock) {
  std::string bytes;
  const err::Win32Error encodeError = system.EncodeToThreadAnsi(line, bytes);
  if (encodeError != err::kSuccess) ThrowHResult(HResultFromWin32(encodeError));

  // Exactly as many bytes as the line has UTF-16 code units. With a single-byte code page that
  // is the encoded text; where the encoding came out shorter, the rest are the zero bytes that
  // follow the converted text in the conversion buffer.
  const std::size_t byteCount = Utf16Length(line);
  bytes.resize(byteCount, '\0');
  std::uint32_t written = 0;
  const err::Win32Error writeError =
      fileSystem.Write(handle, bytes.data(), static_cast<std::uint32_t>(byteCount), written);
  fileLock.Release();  // the flush needs no lock
  if (writeError != err::kSuccess) return HResultFromWin32(writeError);
  fileSystem.Flush(handle);
  return hr::kOk;
}

}  // namespace

std::uint32_t LogPathHash::operator()(std::wstring_view path) const {
  std::uint32_t hash = 0;
  for (const wchar_t c : path) {
    hash = hash * 33u + static_cast<std::uint32_t>(ToUpperCrt(c));
  }
  return hash;
}

bool LogPathEqual::operator()(std::wstring_view a, std::wstring_view b) const {
  return CompareNoCaseCrt(a, b) == 0;
}

CDebugLog::CDebugLog()
    : CDebugLog(ProcessFileSystem(), ProcessSystemServices(), ProcessFileSystem().LogModulePath()) {
}

// The map starts with the 17 buckets of the platform map; its growth policy is the standard
// library's, which only affects speed.
CDebugLog::CDebugLog(FileSystem& fileSystem, SystemServices& system, std::wstring_view modulePath)
    : fileSystem_(fileSystem), system_(system), openFiles(17) {
  const std::wstring module(modulePath.substr(0, std::min(modulePath.size(), kModulePathLength)));
  logDirectory = module;
  PathRemoveFileSpecW(logDirectory);
  PathAddBackslashW(logDirectory);
  logName = module;
  PathStripPathW(logName);
  PathRemoveExtensionW(logName);
}

CDebugLog::~CDebugLog() {
  const std::lock_guard<std::mutex> guard(lock);
  for (const auto& [path, handle] : openFiles) {
    if (handle != kInvalidFileHandle && handle != kClosedFileHandle) fileSystem_.Close(handle);
  }
}

void CDebugLog::WriteMessage(std::wstring_view message) {
  static_cast<void>(WriteEntry(logName, message));
}

[[nodiscard]] HResult CDebugLog::WriteEntry(std::wstring_view name, std::wstring_view message) {
  try {
    return WriteLine(name, message);
  } catch (const std::bad_alloc&) {
    ThrowHResult(hr::kOutOfMemory);  // the tool's out-of-memory exception, E_OUTOFMEMORY
  }
}

[[nodiscard]] HResult CDebugLog::WriteLine(std::wstring_view name, std::wstring_view message) {
  const std::wstring line = LogLine(system_, message);
  std::wstring path = Format(L"%s%s.log", logDirectory, name);
  std::replace(path.begin(), path.end(), L'/', L'-');  // for names that carry a date

  const std::lock_guard<std::mutex> guard(lock);
  HResult result = hr::kOk;
  FileHandle handle = kInvalidFileHandle;
  LogFiles::iterator found;
  if (!FindLogFile(fileSystem_, openFiles, path, found, handle, result)) return result;

  // Deliberate deviation, so that several processes can share the file: from the size test to
  // the write this process holds the file's lock, which every process writing it takes, so
  // that no two of them rotate it at once and no line is written between the copy and the
  // emptying of a rotation. The lock outlives the handle that the rotation closes.
  SharedLogLock fileLock(fileSystem_, found->first);
  RotateWhenFull(fileSystem_, openFiles, found, path, handle);
  return WriteLogLine(system_, fileSystem_, handle, line, fileLock);
}

}  // namespace tw
