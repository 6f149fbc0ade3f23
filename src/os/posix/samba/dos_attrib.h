// The "user.DOSATTRIB" extended attribute in which the Linux file server keeps a file's DOS
// attributes and creation time. Every form the server has written is read:
//   - hex text alone ("0x22", with or without a closing NUL), as old servers wrote it;
//   - an NDR xattr_DOSATTRIB: the hex text (possibly empty) with its NUL, a version (1-5) and
//     the version's info, which carries the attributes and, from version 1 on, the creation time
//     (versions 3-5 say in a flags word which of the two are valid).
// Written is what current servers write: version 5 with empty text, the attributes and the
// creation time, both marked valid.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tw::posix::samba {

inline constexpr char kDosAttribAttribute[] = "user.DOSATTRIB";

struct DosAttrib {
  std::uint32_t attributes = 0;
  std::optional<std::uint64_t> creationTime;  // FILETIME, when the attribute holds a valid one
};

// Nothing when the value is none of the forms above.
std::optional<DosAttrib> DecodeDosAttrib(std::span<const std::uint8_t> bytes);

std::vector<std::uint8_t> EncodeDosAttrib(std::uint32_t attributes, std::uint64_t creationTime);

}  // namespace tw::posix::samba
