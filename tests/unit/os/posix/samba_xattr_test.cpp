// The file server's extended attribute formats: security.NTACL (every version read, version 4
// written byte for byte as the server writes it), the POSIX ACL hash, and user.DOSATTRIB. The
// reference blobs were written by the server itself (smbd 4.17 with acl_xattr) and decoded with
// its own python bindings.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "descriptor/well_known_sids.h"
#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "fakes/unix_sids_account_map.h"
#include "os/posix/samba/account_map.h"
#include "os/posix/samba/dos_attrib.h"
#include "os/posix/samba/ntacl_xattr.h"
#include "os/posix/samba/posix_acl_blob.h"
#include "os/posix/security/descriptor_store.h"

namespace tw::posix::samba {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using security::Sid;

std::vector<std::uint8_t> FromHex(const std::string& hex) {
  std::vector<std::uint8_t> out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

std::string ToHex(std::span<const std::uint8_t> bytes) {
  std::string out;
  char digits[3];
  for (const std::uint8_t byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02x", byte);
    out += digits;
  }
  return out;
}

Sid SidOf(const wchar_t* text) {
  Sid sid;
  EXPECT_EQ(Sid::FromString(text, &sid), err::kSuccess);
  return sid;
}

// A folder's attribute as smbd 4.17 wrote it when a client made the folder (inherited from a
// share root without one): owner user RID 1000, group Domain Users, five entries.
const char kServerFolderBlob[] =
    "0400040000000200040002000100c47eaa681d599804f44b5a068185f962405800169516451d6dd5b12a67dbf790"
    "0000000000000000000000000000000000000000000000000000000000000000706f7369785f61636c0066d8f6f0"
    "b07bdd01a0128344665c815f99d0e7ccae68b7d5ff6b4288a23c4bc8b18214cf7380d78d00000000000000000000"
    "0000000000000000000000000000000000000000000001000480b4000000d000000000000000ec00000001050000"
    "000000051500000024b063d9a91852ce271cff8ee803000001050000000000051500000024b063d9a91852ce271c"
    "ff8e0102000002008c000500000000002400ff011f0001050000000000051500000024b063d9a91852ce271cff8e"
    "e8030000000b1400ff011f0001010000000000030000000000002400a900120001050000000000051500000024b0"
    "63d9a91852ce271cff8e01020000000b1400a900120001010000000000030100000000031400a900120001010000"
    "0000000100000000";

TEST(NtAclXattrTest, ReadsTheServersVersion4Blob) {
  NtAclBlob blob;
  ASSERT_EQ(DecodeNtAcl(FromHex(kServerFolderBlob), blob), NtAclProblem::kNone);
  EXPECT_EQ(blob.version, 4);
  EXPECT_EQ(blob.hashType, kHashTypeSha256);
  EXPECT_EQ(blob.description, "posix_acl");
  EXPECT_EQ(blob.time, 0x01DD7BB0F0F6D866ull);
  EXPECT_EQ(blob.sd.control, security::kSeDaclPresent);
  EXPECT_EQ(blob.sd.owner, SidOf(L"S-1-5-21-3647189028-3461486761-2399083559-1000"));
  EXPECT_EQ(blob.sd.group, SidOf(L"S-1-5-21-3647189028-3461486761-2399083559-513"));
  ASSERT_TRUE(blob.sd.dacl.has_value());
  ASSERT_EQ(blob.sd.dacl->aces().size(), 5u);
  EXPECT_EQ(blob.sd.dacl->aces()[1], Ace::Allowed(0x001F01FF, SidOf(L"S-1-3-0"), 0x0B));
  EXPECT_EQ(blob.sd.dacl->aces()[4], Ace::Allowed(0x001200A9, security::EveryoneSid(), 0x03));
}

TEST(NtAclXattrTest, WritesVersion4ByteForByteAsTheServer) {
  const std::vector<std::uint8_t> server = FromHex(kServerFolderBlob);
  NtAclBlob blob;
  ASSERT_EQ(DecodeNtAcl(server, blob), NtAclProblem::kNone);
  Sha256Digest hash{};
  Sha256Digest sysAclHash{};
  std::copy_n(blob.hash.begin(), 32, hash.begin());
  std::copy_n(blob.sysAclHash.begin(), 32, sysAclHash.begin());
  EXPECT_EQ(ToHex(EncodeNtAclV4(blob.sd, hash, blob.time, sysAclHash)), kServerFolderBlob);
}

// Versions 1-3 around the same descriptor, laid out as the server's NDR lays them out.
TEST(NtAclXattrTest, ReadsVersions1To3) {
  NtAclBlob v4;
  ASSERT_EQ(DecodeNtAcl(FromHex(kServerFolderBlob), v4), NtAclProblem::kNone);
  auto with = [&](const std::string& head) {
    std::vector<std::uint8_t> bytes = FromHex(head);
    const std::vector<std::uint8_t> sd = NdrSecurityDescriptor(v4.sd, bytes.size());
    bytes.insert(bytes.end(), sd.begin(), sd.end());
    return bytes;
  };
  NtAclBlob read;
  ASSERT_EQ(DecodeNtAcl(with("0100010000000200"), read), NtAclProblem::kNone);
  EXPECT_EQ(read.version, 1);
  EXPECT_EQ(read.sd, v4.sd);
  ASSERT_EQ(DecodeNtAcl(with("020002000000020004000200" + std::string(32, 'a')), read),
            NtAclProblem::kNone);
  EXPECT_EQ(read.version, 2);
  EXPECT_EQ(read.hash.size(), 16u);
  EXPECT_EQ(read.sd, v4.sd);
  ASSERT_EQ(
      DecodeNtAcl(with("0300030000000200040002000100" + std::string(128, 'b') + "0000"), read),
      NtAclProblem::kNone);
  EXPECT_EQ(read.version, 3);
  EXPECT_EQ(read.hashType, kHashTypeSha256);
  EXPECT_EQ(read.sd, v4.sd);
}

TEST(NtAclXattrTest, BadBlobsAreProblemsNeverCrashes) {
  const std::vector<std::uint8_t> server = FromHex(kServerFolderBlob);
  NtAclBlob blob;
  for (std::size_t size = 0; size < server.size(); ++size) {
    EXPECT_NE(DecodeNtAcl(std::span(server).first(size), blob), NtAclProblem::kNone) << size;
  }
  std::vector<std::uint8_t> changed = server;
  changed[0] = 5;
  changed[2] = 5;
  EXPECT_EQ(DecodeNtAcl(changed, blob), NtAclProblem::kUnknownVersion);
  changed = server;
  changed[2] = 3;  // the union's level disagrees with the version
  EXPECT_EQ(DecodeNtAcl(changed, blob), NtAclProblem::kUnknownVersion);
  changed = server;
  changed[164] = 8;  // the owner's offset points into the header
  EXPECT_EQ(DecodeNtAcl(changed, blob), NtAclProblem::kBadDescriptor);
  changed = server;
  changed[8] = changed[9] = changed[10] = changed[11] = 0;  // no descriptor
  EXPECT_EQ(DecodeNtAcl(changed, blob), NtAclProblem::kNoDescriptor);
}

// Blobs changed at random places: whatever reads, reads again the same once written; nothing
// is read outside the blob (the sanitizer build checks).
TEST(NtAclXattrTest, MutatedBlobsReadSafelyAndRoundTrip) {
  const std::vector<std::uint8_t> server = FromHex(kServerFolderBlob);
  const std::vector<std::uint8_t> dos = FromHex("000005000500000011000000220000001483f6f0b07bdd01");
  std::uint32_t state = 20261124;
  auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return state;
  };
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::uint8_t> bytes = server;
    for (int k = 0; k < 3; ++k)
      bytes[next() % bytes.size()] = static_cast<std::uint8_t>(next() >> 24);
    bytes.resize(bytes.size() - next() % 8);
    NtAclBlob blob;
    if (DecodeNtAcl(bytes, blob) == NtAclProblem::kNone) {
      NtAclBlob again;
      ASSERT_EQ(DecodeNtAcl(EncodeNtAclV4(blob.sd, Sha256({}), 0, Sha256({})), again),
                NtAclProblem::kNone);
      EXPECT_EQ(again.sd, blob.sd);
    }
    std::vector<std::uint8_t> attrib = dos;
    attrib[next() % attrib.size()] = static_cast<std::uint8_t>(next() >> 24);
    attrib.resize(attrib.size() - next() % 24);
    static_cast<void>(DecodeDosAttrib(attrib));
  }
}

// The server's python bindings read what we write as the same descriptor.
TEST(NtAclXattrTest, TheServersOwnDecoderReadsWhatWeWrite) {
  NtAclBlob v4;
  ASSERT_EQ(DecodeNtAcl(FromHex(kServerFolderBlob), v4), NtAclProblem::kNone);
  SecurityDescriptor sd = v4.sd;
  sd.control |= security::kSeDaclProtected;
  const std::vector<std::uint8_t> bytes = EncodeNtAclV4(sd, Sha256({}), 1, Sha256({}));
  testing::TempFolder folder;
  const std::string file = folder.WriteFile("blob", std::string(bytes.begin(), bytes.end()));
  const testing::ProcessResult result = testing::RunProcess(
      "/usr/bin/python3", {"-c",
                           "import sys\n"
                           "try:\n"
                           "  from samba.dcerpc import xattr, security\n"
                           "  from samba.ndr import ndr_unpack\n"
                           "except ImportError:\n"
                           "  sys.exit(77)\n"
                           "x = ndr_unpack(xattr.NTACL, open(sys.argv[1], 'rb').read())\n"
                           "print(x.version, x.info.hash_type, x.info.description, x.info.time)\n"
                           "print(x.info.sd.as_sddl())\n",
                           file});
  if (result.exitStatus == 77) GTEST_SKIP() << "skipped: python3-samba is not installed";
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_EQ(result.output,
            "4 1 posix_acl 1\n"
            "O:S-1-5-21-3647189028-3461486761-2399083559-1000"
            "G:S-1-5-21-3647189028-3461486761-2399083559-513"
            "D:P(A;;0x001f01ff;;;S-1-5-21-3647189028-3461486761-2399083559-1000)"
            "(A;OICIIO;0x001f01ff;;;CO)"
            "(A;;0x001200a9;;;S-1-5-21-3647189028-3461486761-2399083559-513)"
            "(A;OICIIO;0x001200a9;;;CG)(A;OICI;0x001200a9;;;WD)\n");
}

// The POSIX ACL hash of a file smbd made (access ACL user owner rwx, user 1001 rwx, group owner
// r-x, group 1001 r-x, mask rwx, others r-x; uid and gid 1001, mode 0100775): the hash smbd
// stored in the file's attribute.
TEST(PosixAclBlobTest, HashIsTheServersForTheSameAcl) {
  const std::optional<std::vector<PosixAclEntry>> acl = DecodePosixAcl(
      FromHex("0200000001000700ffffffff02000700e903000004000500ffffffff08000500e903000010000700fff"
              "fffff20000500ffffffff"));
  ASSERT_TRUE(acl.has_value());
  ASSERT_EQ(acl->size(), 6u);
  EXPECT_EQ((*acl)[1], (PosixAclEntry{kAclUser, 7, 1001}));
  EXPECT_EQ(ToHex(Sha256(SysAclBlob(*acl, std::nullopt, 1001, 1001, 0100775))),
            "b97d1cf7c759bfea8efdca1ff760f411a2249f571fdc9509f23724b25a631392");
  EXPECT_EQ(ToHex(EncodePosixAcl(*acl)),
            "0200000001000700ffffffff02000700e903000004000500ffffffff08000500e903000010000700fffff"
            "fff20000500ffffffff");
  EXPECT_FALSE(DecodePosixAcl(FromHex("01000000")).has_value());
  EXPECT_FALSE(DecodePosixAcl(FromHex("0200000001")).has_value());
}

// Every form of user.DOSATTRIB (versions 1-5 as the server's bindings pack them, with hex text
// "0x21" for the old ones, and the text alone).
TEST(DosAttribTest, ReadsEveryForm) {
  const std::uint64_t created = 0x01D0CCCCCCCCCCCCull;
  const char* const blobs[] = {
      "30783231000001000100000021000000aaaaaaaabbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbccccccccccccd001bbbb"
      "b"
      "bbbbbbbbbbb",
      "3078323100000200020000001100000021000000aaaaaaaabbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbcccccccccccc"
      "d0"
      "01bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb6e00",
      "3078323100000300030000001100000021000000aaaaaaaabbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbcccccccccccc"
      "d0"
      "01bbbbbbbbbbbbbbbb",
      "00000400040000001100000021000000bbbbbbbbbbbbbbbbccccccccccccd001",
      "00000500050000001100000021000000ccccccccccccd001",
  };
  for (const char* hex : blobs) {
    const std::optional<DosAttrib> read = DecodeDosAttrib(FromHex(hex));
    ASSERT_TRUE(read.has_value()) << hex;
    EXPECT_EQ(read->attributes, 0x21u) << hex;
    EXPECT_EQ(read->creationTime, created) << hex;
  }
  for (const char* text : {"3078323200", "30783232", "3078323200ffff"}) {
    const std::optional<DosAttrib> read = DecodeDosAttrib(FromHex(text));
    ASSERT_TRUE(read.has_value()) << text;
    EXPECT_EQ(read->attributes, 0x22u);
    EXPECT_FALSE(read->creationTime.has_value());
  }
  EXPECT_FALSE(DecodeDosAttrib(FromHex("")).has_value());
  EXPECT_FALSE(DecodeDosAttrib(FromHex("7a7a")).has_value());
  EXPECT_FALSE(DecodeDosAttrib(FromHex("0000090009000000")).has_value());
  EXPECT_FALSE(DecodeDosAttrib(FromHex("00000500050000001100")).has_value());
}

// What smbd 4.17 wrote for a hidden file: version 5, empty text, attributes and creation time.
TEST(DosAttribTest, WritesTheServersForm) {
  EXPECT_EQ(ToHex(EncodeDosAttrib(0x22, 0x01DD7BB0F0F68314ull)),
            "000005000500000011000000220000001483f6f0b07bdd01");
}

// The descriptor the server shows for a root-owned 0755 folder without an attribute (smbcacls:
// owner rwx, group r-x, Everyone r-x, then CREATOR OWNER, CREATOR GROUP and Everyone
// inherit-only), NDR-encoded as the server's own bindings encode it.
TEST(DerivedDescriptorTest, FolderWithoutAclIsTheServersView) {
  testing::UnixSidsOnly accounts;
  const ScopedAccountMap installed(accounts);
  const SecurityDescriptor sd = DescriptorFromMode(0, 0, 040755);
  EXPECT_EQ(ToHex(Sha256(NdrSecurityDescriptor(sd, 0))),
            "c0c5f6f9bdbd604e90a905475e0f57927d6e885901ce22a75b365a1774b9f75c");
}

}  // namespace
}  // namespace tw::posix::samba
