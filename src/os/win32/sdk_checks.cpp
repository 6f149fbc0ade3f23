// Compile-time proof that the portable constants equal the Windows SDK's: every Win32 error
// name of base/win32_error.h, the result codes of base/hresult.h that the SDK has, and the enum
// values of the ports that are passed to Win32 calls as they are. A constant added to
// win32_error.h gets its line here.
#include "base/hresult.h"
#include "base/win32_error.h"
#include "os/win32/windows_headers.h"
#include "ports/file_system.h"

namespace tw {
namespace {

#define CHECK_ERROR(name, sdkName)                                        \
  static_assert(err::name == static_cast<err::Win32Error>(sdkName), #name \
                " differs "                                               \
                "from " #sdkName)

CHECK_ERROR(kSuccess, ERROR_SUCCESS);
CHECK_ERROR(kInvalidFunction, ERROR_INVALID_FUNCTION);
CHECK_ERROR(kFileNotFound, ERROR_FILE_NOT_FOUND);
CHECK_ERROR(kPathNotFound, ERROR_PATH_NOT_FOUND);
CHECK_ERROR(kTooManyOpenFiles, ERROR_TOO_MANY_OPEN_FILES);
CHECK_ERROR(kAccessDenied, ERROR_ACCESS_DENIED);
CHECK_ERROR(kInvalidHandle, ERROR_INVALID_HANDLE);
CHECK_ERROR(kNotEnoughMemory, ERROR_NOT_ENOUGH_MEMORY);
CHECK_ERROR(kInvalidData, ERROR_INVALID_DATA);
CHECK_ERROR(kOutOfMemory, ERROR_OUTOFMEMORY);
CHECK_ERROR(kNoMoreFiles, ERROR_NO_MORE_FILES);
CHECK_ERROR(kNotSameDevice, ERROR_NOT_SAME_DEVICE);
CHECK_ERROR(kWriteProtect, ERROR_WRITE_PROTECT);
CHECK_ERROR(kNotReady, ERROR_NOT_READY);
CHECK_ERROR(kGenFailure, ERROR_GEN_FAILURE);
CHECK_ERROR(kSharingViolation, ERROR_SHARING_VIOLATION);
CHECK_ERROR(kLockViolation, ERROR_LOCK_VIOLATION);
CHECK_ERROR(kHandleEof, ERROR_HANDLE_EOF);
CHECK_ERROR(kHandleDiskFull, ERROR_HANDLE_DISK_FULL);
CHECK_ERROR(kNotSupported, ERROR_NOT_SUPPORTED);
CHECK_ERROR(kBadNetPath, ERROR_BAD_NETPATH);
CHECK_ERROR(kUnexpectedNetError, ERROR_UNEXP_NET_ERR);
CHECK_ERROR(kBadNetName, ERROR_BAD_NET_NAME);
CHECK_ERROR(kFileExists, ERROR_FILE_EXISTS);
CHECK_ERROR(kInvalidParameter, ERROR_INVALID_PARAMETER);
CHECK_ERROR(kBrokenPipe, ERROR_BROKEN_PIPE);
CHECK_ERROR(kBufferOverflow, ERROR_BUFFER_OVERFLOW);
CHECK_ERROR(kDiskFull, ERROR_DISK_FULL);
CHECK_ERROR(kCallNotImplemented, ERROR_CALL_NOT_IMPLEMENTED);
CHECK_ERROR(kInsufficientBuffer, ERROR_INSUFFICIENT_BUFFER);
CHECK_ERROR(kInvalidName, ERROR_INVALID_NAME);
CHECK_ERROR(kModNotFound, ERROR_MOD_NOT_FOUND);
CHECK_ERROR(kProcNotFound, ERROR_PROC_NOT_FOUND);
CHECK_ERROR(kDirNotEmpty, ERROR_DIR_NOT_EMPTY);
CHECK_ERROR(kBadPathname, ERROR_BAD_PATHNAME);
CHECK_ERROR(kBusy, ERROR_BUSY);
CHECK_ERROR(kAlreadyExists, ERROR_ALREADY_EXISTS);
CHECK_ERROR(kFilenameExcedRange, ERROR_FILENAME_EXCED_RANGE);
CHECK_ERROR(kFileTooLarge, ERROR_FILE_TOO_LARGE);
CHECK_ERROR(kMoreData, ERROR_MORE_DATA);
CHECK_ERROR(kNoMoreItems, ERROR_NO_MORE_ITEMS);
CHECK_ERROR(kDirectory, ERROR_DIRECTORY);
CHECK_ERROR(kNotAReparsePoint, ERROR_NOT_A_REPARSE_POINT);
CHECK_ERROR(kCantResolveFilename, ERROR_CANT_RESOLVE_FILENAME);
CHECK_ERROR(kBadDb, ERROR_BADDB);
CHECK_ERROR(kBadKey, ERROR_BADKEY);
CHECK_ERROR(kCantOpen, ERROR_CANTOPEN);
CHECK_ERROR(kCantRead, ERROR_CANTREAD);
CHECK_ERROR(kCantWrite, ERROR_CANTWRITE);
CHECK_ERROR(kRegistryRecovered, ERROR_REGISTRY_RECOVERED);
CHECK_ERROR(kRegistryCorrupt, ERROR_REGISTRY_CORRUPT);
CHECK_ERROR(kRegistryIoFailed, ERROR_REGISTRY_IO_FAILED);
CHECK_ERROR(kNotRegistryFile, ERROR_NOT_REGISTRY_FILE);
CHECK_ERROR(kKeyDeleted, ERROR_KEY_DELETED);
CHECK_ERROR(kKeyHasChildren, ERROR_KEY_HAS_CHILDREN);
CHECK_ERROR(kNotFound, ERROR_NOT_FOUND);
CHECK_ERROR(kNoNetwork, ERROR_NO_NETWORK);
CHECK_ERROR(kNetworkUnreachable, ERROR_NETWORK_UNREACHABLE);
CHECK_ERROR(kNotAllAssigned, ERROR_NOT_ALL_ASSIGNED);
CHECK_ERROR(kInvalidOwner, ERROR_INVALID_OWNER);
CHECK_ERROR(kNoSuchPrivilege, ERROR_NO_SUCH_PRIVILEGE);
CHECK_ERROR(kPrivilegeNotHeld, ERROR_PRIVILEGE_NOT_HELD);
CHECK_ERROR(kNoneMapped, ERROR_NONE_MAPPED);
CHECK_ERROR(kInvalidAcl, ERROR_INVALID_ACL);
CHECK_ERROR(kInvalidSid, ERROR_INVALID_SID);
CHECK_ERROR(kInvalidSecurityDescr, ERROR_INVALID_SECURITY_DESCR);
CHECK_ERROR(kNoSecurityOnObject, ERROR_NO_SECURITY_ON_OBJECT);
CHECK_ERROR(kCantAccessFile, ERROR_CANT_ACCESS_FILE);

#undef CHECK_ERROR

static_assert(hr::kOk == HResult{S_OK});
static_assert(hr::kFalse == HResult{S_FALSE});
static_assert(hr::kFail == static_cast<HResult>(E_FAIL));
static_assert(hr::kNotImpl == static_cast<HResult>(E_NOTIMPL));
static_assert(hr::kOutOfMemory == static_cast<HResult>(E_OUTOFMEMORY));
static_assert(hr::kInvalidArg == static_cast<HResult>(E_INVALIDARG));
static_assert(hr::kAccessDenied == static_cast<HResult>(E_ACCESSDENIED));
static_assert(hr::kHandle == static_cast<HResult>(E_HANDLE));

static_assert(static_cast<DWORD>(CreationDisposition::kCreateNew) == CREATE_NEW);
static_assert(static_cast<DWORD>(CreationDisposition::kCreateAlways) == CREATE_ALWAYS);
static_assert(static_cast<DWORD>(CreationDisposition::kOpenExisting) == OPEN_EXISTING);
static_assert(static_cast<DWORD>(CreationDisposition::kOpenAlways) == OPEN_ALWAYS);
static_assert(static_cast<DWORD>(CreationDisposition::kTruncateExisting) == TRUNCATE_EXISTING);
static_assert(static_cast<DWORD>(SeekOrigin::kBegin) == FILE_BEGIN);
static_assert(static_cast<DWORD>(SeekOrigin::kCurrent) == FILE_CURRENT);
static_assert(static_cast<DWORD>(SeekOrigin::kEnd) == FILE_END);
static_assert(sizeof(FileHandle) == sizeof(HANDLE));

}  // namespace
}  // namespace tw
