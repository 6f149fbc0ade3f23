// What Windows reports about a file or folder (attributes, times, size), read from a Linux path
// without ever following a symbolic link.
//
// Attributes live in the "user.DOSATTRIB" extended attribute in the file server's own format
// (samba/dos_attrib.h: every form it ever wrote is read, the current one written), together with
// the creation time. Without it they are derived from the type: a folder is
// FILE_ATTRIBUTE_DIRECTORY (0x10), a file FILE_ATTRIBUTE_ARCHIVE (0x20, what Windows gives a new
// file). A symbolic link and anything that is neither a regular file nor a folder (device, pipe,
// socket) is FILE_ATTRIBUTE_REPARSE_POINT (0x400) alone: Linux keeps no user attributes on links,
// and the core never enters or copies reparse points. The stored DIRECTORY bit always follows
// the real type; a file whose stored value is 0 reads as FILE_ATTRIBUTE_NORMAL (0x80), as on
// Windows.
//
// Where the file system refuses user extended attributes (ENOTSUP, as older tmpfs does), the
// values are kept in a table of this process keyed by device and inode instead: they then last
// only as long as the process. Every machine the tests run on keeps them in the file system.
//
// Times: the creation time is the one "user.DOSATTRIB" holds, else the birth time where statx
// reports one, else the earlier of the status-change and last-write times. Writing attributes
// stores the creation time the file has then beside them; setting a creation time through a
// handle stores it there.
#pragma once

#include <cstdint>
#include <string>

#include "base/win32_error.h"
#include "ports/file_system.h"

namespace tw::posix {

// FILETIME from a Linux time (seconds and nanoseconds since 1970) and back. Times before 1601
// clamp to 0.
FileTime FileTimeFromUnix(std::int64_t seconds, std::uint32_t nanoseconds);
void UnixFromFileTime(FileTime time, std::int64_t& seconds, std::int64_t& nanoseconds);

// Attributes, times and size of native (name left as it is). A missing object gives
// kFileNotFound or kPathNotFound as Windows tells them apart.
[[nodiscard]] err::Win32Error QueryFileInfo(const std::string& native, FindEntry& info);

// The stored attribute value of native (without the type bits), or false when none is stored.
bool ReadStoredAttributes(const std::string& native, std::uint32_t& value);

// Stores value as native's attributes. Links and special files keep none: kAccessDenied.
[[nodiscard]] err::Win32Error WriteStoredAttributes(const std::string& native, std::uint32_t value);

// Forgets native's stored attributes (it then reads as its type gives).
void RemoveStoredAttributes(const std::string& native);

// For a file just created: drops what the in-process fallback store may still hold for an
// earlier file with the same inode number. Costs nothing while the store is empty (user
// extended attributes supported), as a new file has no extended attributes.
void ForgetFallbackAttributes(const std::string& native);

// The bits SetFileAttributesW can change: READONLY, HIDDEN, SYSTEM, ARCHIVE, TEMPORARY,
// OFFLINE, NOT_CONTENT_INDEXED.
constexpr std::uint32_t kSettableAttributes = 0x3127;

// The times of the open descriptor fd (the creation time the file server keeps, if any).
[[nodiscard]] err::Win32Error QueryDescriptorTimes(int fd, FileTimes& times);

// Keeps `creation` as the creation time of the open descriptor fd, beside its attributes (the
// type's when none are stored yet), where the file server's clients see it.
[[nodiscard]] err::Win32Error StoreDescriptorCreationTime(int fd, FileTime creation);

// kFileNotFound when the folder that should hold native exists, else kPathNotFound.
[[nodiscard]] err::Win32Error MissingPathError(const std::string& native);

// The Win32 error of a failed call on native, read from errno (ENOENT refined as above).
[[nodiscard]] err::Win32Error PathError(const std::string& native);

}  // namespace tw::posix
