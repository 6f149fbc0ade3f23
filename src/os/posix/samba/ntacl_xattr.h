// The "security.NTACL" extended attribute in which the Linux file server keeps a file's Windows
// security descriptor: an NDR-encoded xattr_NTACL structure.
//
//   version 1: the descriptor alone;
//   version 2: the descriptor and a 16-byte hash;
//   version 3: the descriptor, a hash type (1 = SHA-256) and a 64-byte hash field;
//   version 4: as 3, then the name of the POSIX ACL blob format ("posix_acl"), the time the
//              blob was written (NTTIME) and a 64-byte field with the SHA-256 of that blob.
//
// In each, the descriptor follows the fixed fields (aligned to 4) as an NDR security_descriptor:
// the 20-byte header, then owner, group, SACL and DACL in that order, and its offsets count from
// the start of the whole attribute, not from the descriptor (so a version 4 attribute's owner is
// at 180, right after the header at 160). The hash field of versions 3 and 4 holds, in its first
// 32 bytes (the rest zero), DescriptorHash of the descriptor the server derives from the POSIX
// permissions.
//
// The server accepts a version 3 or 4 attribute only while one of its hashes still describes the
// file (otherwise it shows the descriptor derived from the POSIX permissions): the POSIX ACL hash
// for a version 4 one, else the hash of the derived descriptor.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "descriptor/security_descriptor.h"
#include "os/posix/samba/sha256.h"

namespace tw::posix::samba {

inline constexpr char kNtAclAttribute[] = "security.NTACL";
inline constexpr std::uint16_t kHashTypeSha256 = 1;
inline constexpr char kPosixAclDescription[] = "posix_acl";

struct NtAclBlob {
  std::uint16_t version = 0;
  security::SecurityDescriptor sd;
  std::uint16_t hashType = 0;            // versions 3 and 4
  std::vector<std::uint8_t> hash;        // 16 bytes (version 2) or 64 (versions 3 and 4)
  std::string description;               // version 4
  std::uint64_t time = 0;                // version 4, NTTIME
  std::vector<std::uint8_t> sysAclHash;  // version 4, 64 bytes
};

// Why an attribute could not be read; kNone when it was.
enum class NtAclProblem { kNone, kTruncated, kUnknownVersion, kNoDescriptor, kBadDescriptor };

// Reads an attribute of any version. A truncated blob, a version other than 1-4, a union level
// that disagrees with the version, a missing descriptor or one that is not valid give a problem.
NtAclProblem DecodeNtAcl(std::span<const std::uint8_t> bytes, NtAclBlob& blob);

// The NDR form of `sd` (owner, group, SACL, DACL after the header), with its offsets counted
// from `base` bytes before the header. SE_SELF_RELATIVE is set in the control word.
std::vector<std::uint8_t> NdrSecurityDescriptor(const security::SecurityDescriptor& sd,
                                                std::size_t base);

// The server's hash of a descriptor: the SHA-256 of a version 3 attribute holding it with hash
// type SHA-256 and an all-zero hash field.
Sha256Digest DescriptorHash(const security::SecurityDescriptor& sd);

// The version 4 attribute the server writes when a client sets a descriptor: hash type SHA-256,
// `derivedHash` (see above), "posix_acl", `time`, `sysAclHash` (posix_acl_blob.h), then `sd`.
std::vector<std::uint8_t> EncodeNtAclV4(const security::SecurityDescriptor& sd,
                                        const Sha256Digest& derivedHash, std::uint64_t time,
                                        const Sha256Digest& sysAclHash);

// The text of a problem for the log ("truncated", "of unknown version", ...).
const wchar_t* NtAclProblemText(NtAclProblem problem);

}  // namespace tw::posix::samba
