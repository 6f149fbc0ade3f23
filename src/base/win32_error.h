// Win32 error codes as their own type, portable. The ports return these exactly where the Windows
// call would; the Windows build checks every value against the SDK (os/win32/sdk_checks.cpp).
//
// A Win32Error is not an HResult: the two do not compare, convert or pass for each other. A raw
// code (a DWORD from GetLastError, an errno mapping, an offline-registry function's result) enters
// only through the explicit constructor. At the platform's C boundary a Win32 code is a DWORD, so
// a Win32Error reads out as its std::uint32_t implicitly: the offline-registry functions, whose
// signatures are the platform's, return it as it is. It becomes an HResult only through
// HResultFromWin32 (base/hresult.h) or one of the named conversions of base/result_conversions.h.
#pragma once

#include <cstdint>
#include <iosfwd>

namespace tw::err {

class Win32Error {
 public:
  constexpr Win32Error() noexcept = default;  // ERROR_SUCCESS
  constexpr explicit Win32Error(std::uint32_t code) noexcept : code_(code) {}

  [[nodiscard]] constexpr std::uint32_t Code() const noexcept { return code_; }
  constexpr operator std::uint32_t() const noexcept { return code_; }  // NOLINT: the DWORD
  // The value base/format prints for "%u", "%d", "%X": the code itself.
  [[nodiscard]] constexpr std::uint32_t FormatValue() const noexcept { return code_; }

  friend constexpr bool operator==(Win32Error, Win32Error) noexcept = default;

 private:
  std::uint32_t code_ = 0;
};

// gtest prints a Win32Error as its decimal code and name-free: "Win32Error 5".
void PrintTo(Win32Error error, std::ostream* out);

constexpr Win32Error kSuccess{0};
constexpr Win32Error kInvalidFunction{1};
constexpr Win32Error kFileNotFound{2};
constexpr Win32Error kPathNotFound{3};
constexpr Win32Error kTooManyOpenFiles{4};
constexpr Win32Error kAccessDenied{5};
constexpr Win32Error kInvalidHandle{6};
constexpr Win32Error kNotEnoughMemory{8};
constexpr Win32Error kInvalidData{13};
constexpr Win32Error kOutOfMemory{14};
constexpr Win32Error kNoMoreFiles{18};
constexpr Win32Error kNotSameDevice{17};
constexpr Win32Error kWriteProtect{19};
constexpr Win32Error kNotReady{21};
constexpr Win32Error kGenFailure{31};
constexpr Win32Error kSharingViolation{32};
constexpr Win32Error kLockViolation{33};
constexpr Win32Error kHandleEof{38};
constexpr Win32Error kHandleDiskFull{39};
constexpr Win32Error kNotSupported{50};
constexpr Win32Error kBadNetPath{53};
constexpr Win32Error kUnexpectedNetError{59};
constexpr Win32Error kBadNetName{67};
constexpr Win32Error kFileExists{80};
constexpr Win32Error kInvalidParameter{87};
constexpr Win32Error kBrokenPipe{109};
constexpr Win32Error kBufferOverflow{111};
constexpr Win32Error kDiskFull{112};
constexpr Win32Error kCallNotImplemented{120};
constexpr Win32Error kInsufficientBuffer{122};
constexpr Win32Error kInvalidName{123};
constexpr Win32Error kModNotFound{126};
constexpr Win32Error kProcNotFound{127};
constexpr Win32Error kDirNotEmpty{145};
constexpr Win32Error kNotLocked{158};
constexpr Win32Error kBadPathname{161};
constexpr Win32Error kBusy{170};
constexpr Win32Error kAlreadyExists{183};
constexpr Win32Error kFilenameExcedRange{206};
constexpr Win32Error kFileTooLarge{223};
constexpr Win32Error kMoreData{234};
constexpr Win32Error kNoMoreItems{259};
constexpr Win32Error kDirectory{267};
constexpr Win32Error kNotAReparsePoint{4390};
constexpr Win32Error kCantResolveFilename{1921};
constexpr Win32Error kBadDb{1009};
constexpr Win32Error kBadKey{1010};
constexpr Win32Error kCantOpen{1011};
constexpr Win32Error kCantRead{1012};
constexpr Win32Error kCantWrite{1013};
constexpr Win32Error kRegistryRecovered{1014};
constexpr Win32Error kRegistryCorrupt{1015};
constexpr Win32Error kRegistryIoFailed{1016};
constexpr Win32Error kNotRegistryFile{1017};
constexpr Win32Error kKeyDeleted{1018};
constexpr Win32Error kKeyHasChildren{1020};
constexpr Win32Error kNotFound{1168};
constexpr Win32Error kNoNetwork{1222};
constexpr Win32Error kNetworkUnreachable{1231};
constexpr Win32Error kNotAllAssigned{1300};
constexpr Win32Error kUnknownRevision{1305};
constexpr Win32Error kInvalidOwner{1307};
constexpr Win32Error kNoSuchPrivilege{1313};
constexpr Win32Error kPrivilegeNotHeld{1314};
constexpr Win32Error kNoneMapped{1332};
constexpr Win32Error kInvalidAcl{1336};
constexpr Win32Error kInvalidSid{1337};
constexpr Win32Error kInvalidSecurityDescr{1338};
constexpr Win32Error kNoSecurityOnObject{1350};
constexpr Win32Error kCantAccessFile{1920};

}  // namespace tw::err
