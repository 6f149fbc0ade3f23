#include "os/posix/samba/ntacl_xattr.h"

#include <cstring>

#include "os/posix/samba/ndr_writer.h"

namespace tw::posix::samba {
namespace {

constexpr std::uint32_t kFirstReferent = 0x00020000;  // NDR's first unique pointer
constexpr std::size_t kHashField = 64;

std::uint16_t Le16(std::span<const std::uint8_t> b, std::size_t at) {
  return static_cast<std::uint16_t>(b[at] | (b[at + 1] << 8));
}
std::uint32_t Le32(std::span<const std::uint8_t> b, std::size_t at) {
  return static_cast<std::uint32_t>(b[at]) | (static_cast<std::uint32_t>(b[at + 1]) << 8) |
         (static_cast<std::uint32_t>(b[at + 2]) << 16) |
         (static_cast<std::uint32_t>(b[at + 3]) << 24);
}
std::uint64_t Le64(std::span<const std::uint8_t> b, std::size_t at) {
  return Le32(b, at) | (static_cast<std::uint64_t>(Le32(b, at + 4)) << 32);
}
std::size_t Align4(std::size_t at) { return (at + 3) & ~std::size_t{3}; }

// The descriptor at `at` whose offsets count from the start of `bytes`.
NtAclProblem ReadDescriptor(std::span<const std::uint8_t> bytes, std::size_t at,
                            security::SecurityDescriptor& sd) {
  if (at > bytes.size() || bytes.size() - at < security::kSelfRelativeHeaderSize) {
    return NtAclProblem::kTruncated;
  }
  std::vector<std::uint8_t> block(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end());
  block[2] = static_cast<std::uint8_t>(block[2] | (security::kSeSelfRelative & 0xFF));
  block[3] = static_cast<std::uint8_t>(block[3] | (security::kSeSelfRelative >> 8));
  for (std::size_t field = 4; field < security::kSelfRelativeHeaderSize; field += 4) {
    const std::uint32_t offset = Le32(block, field);
    if (offset == 0) continue;
    if (offset < at + security::kSelfRelativeHeaderSize) return NtAclProblem::kBadDescriptor;
    const std::uint32_t local = offset - static_cast<std::uint32_t>(at);
    for (std::size_t i = 0; i < 4; ++i) {
      block[field + i] = static_cast<std::uint8_t>(local >> (8 * i));
    }
  }
  if (security::ParseSelfRelative(block, &sd) != err::kSuccess) {
    return NtAclProblem::kBadDescriptor;
  }
  sd.control &= static_cast<std::uint16_t>(~security::kSeSelfRelative);
  return NtAclProblem::kNone;
}

void PutHash(NdrWriter& out, const Sha256Digest& digest) {
  out.Bytes(digest);
  for (std::size_t i = digest.size(); i < kHashField; ++i) out.bytes().push_back(0);
}

}  // namespace

NtAclProblem DecodeNtAcl(std::span<const std::uint8_t> bytes, NtAclBlob& blob) {
  blob = NtAclBlob{};
  if (bytes.size() < 8) return NtAclProblem::kTruncated;
  blob.version = Le16(bytes, 0);
  if (blob.version < 1 || blob.version > 4) return NtAclProblem::kUnknownVersion;
  if (Le16(bytes, 2) != blob.version) return NtAclProblem::kUnknownVersion;
  if (Le32(bytes, 4) == 0) return NtAclProblem::kNoDescriptor;
  std::size_t at = 8;
  if (blob.version == 1) return ReadDescriptor(bytes, at, blob.sd);

  // Versions 2-4 start with the descriptor's pointer.
  if (bytes.size() < at + 4) return NtAclProblem::kTruncated;
  const bool hasDescriptor = Le32(bytes, at) != 0;
  at += 4;
  if (blob.version == 2) {
    if (bytes.size() < at + 16) return NtAclProblem::kTruncated;
    blob.hash.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                     bytes.begin() + static_cast<std::ptrdiff_t>(at + 16));
    at += 16;
  } else {
    if (bytes.size() < at + 2 + kHashField) return NtAclProblem::kTruncated;
    blob.hashType = Le16(bytes, at);
    at += 2;
    blob.hash.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                     bytes.begin() + static_cast<std::ptrdiff_t>(at + kHashField));
    at += kHashField;
    if (blob.version == 4) {
      std::size_t end = at;
      while (end < bytes.size() && bytes[end] != 0) ++end;
      if (end == bytes.size()) return NtAclProblem::kTruncated;
      blob.description.assign(reinterpret_cast<const char*>(bytes.data()) + at, end - at);
      at = Align4(end + 1);
      if (bytes.size() < at + 8 + kHashField) return NtAclProblem::kTruncated;
      blob.time = Le64(bytes, at);
      at += 8;
      blob.sysAclHash.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                             bytes.begin() + static_cast<std::ptrdiff_t>(at + kHashField));
      at += kHashField;
    }
  }
  if (!hasDescriptor) return NtAclProblem::kNoDescriptor;
  return ReadDescriptor(bytes, Align4(at), blob.sd);
}

std::vector<std::uint8_t> NdrSecurityDescriptor(const security::SecurityDescriptor& sd,
                                                std::size_t base) {
  const security::Acl* sacl = sd.HasSacl() && sd.sacl ? &*sd.sacl : nullptr;
  const security::Acl* dacl = sd.HasDacl() && sd.dacl ? &*sd.dacl : nullptr;
  std::vector<std::uint8_t> out(security::kSelfRelativeHeaderSize, 0);
  out[0] = security::kSecurityDescriptorRevision;
  const auto control = static_cast<std::uint16_t>(sd.control | security::kSeSelfRelative);
  out[2] = static_cast<std::uint8_t>(control & 0xFF);
  out[3] = static_cast<std::uint8_t>(control >> 8);
  auto place = [&](std::size_t field) {
    const auto offset = static_cast<std::uint32_t>(base + out.size());
    for (std::size_t i = 0; i < 4; ++i) {
      out[field + i] = static_cast<std::uint8_t>(offset >> (8 * i));
    }
  };
  if (sd.owner) {
    place(4);
    sd.owner->AppendTo(out);
  }
  if (sd.group) {
    place(8);
    sd.group->AppendTo(out);
  }
  if (sacl != nullptr) {
    place(12);
    sacl->AppendTo(out);
  }
  if (dacl != nullptr) {
    place(16);
    dacl->AppendTo(out);
  }
  return out;
}

Sha256Digest DescriptorHash(const security::SecurityDescriptor& sd) {
  NdrWriter out;
  out.U16(3);
  out.U16(3);
  out.U32(kFirstReferent);
  out.U32(kFirstReferent + 4);  // the descriptor's pointer
  out.U16(kHashTypeSha256);
  PutHash(out, Sha256Digest{});  // all zero
  out.Align(4);
  out.Bytes(NdrSecurityDescriptor(sd, out.size()));
  return Sha256(out.bytes());
}

std::vector<std::uint8_t> EncodeNtAclV4(const security::SecurityDescriptor& sd,
                                        const Sha256Digest& derivedHash, std::uint64_t time,
                                        const Sha256Digest& sysAclHash) {
  NdrWriter out;
  out.U16(4);
  out.U16(4);
  out.U32(kFirstReferent);
  out.U32(kFirstReferent + 4);  // the descriptor's pointer
  out.U16(kHashTypeSha256);
  PutHash(out, derivedHash);
  const char* description = kPosixAclDescription;
  out.Bytes(std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(description),
                                          std::strlen(description) + 1));
  out.Time(time);
  PutHash(out, sysAclHash);
  out.Align(4);
  out.Bytes(NdrSecurityDescriptor(sd, out.size()));
  return std::move(out.bytes());
}

const wchar_t* NtAclProblemText(NtAclProblem problem) {
  switch (problem) {
    case NtAclProblem::kNone:
      return L"valid";
    case NtAclProblem::kTruncated:
      return L"truncated";
    case NtAclProblem::kUnknownVersion:
      return L"of an unknown version";
    case NtAclProblem::kNoDescriptor:
      return L"without a descriptor";
    case NtAclProblem::kBadDescriptor:
      return L"holding an invalid descriptor";
  }
  return L"invalid";
}

}  // namespace tw::posix::samba
