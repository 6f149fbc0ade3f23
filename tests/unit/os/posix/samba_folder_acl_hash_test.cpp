// The POSIX ACL hash of folders, whose blob holds a second ACL (the default one) after the
// access ACL: the values the file server itself stored for the same owner, group, mode and ACLs.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "os/posix/samba/posix_acl_blob.h"
#include "os/posix/samba/sha256.h"

namespace tw::posix::samba {
namespace {

std::string Hex(const Sha256Digest& digest) {
  std::string out;
  char pair[3];
  for (const std::uint8_t byte : digest) {
    std::snprintf(pair, sizeof pair, "%02x", byte);
    out += pair;
  }
  return out;
}

const std::vector<PosixAclEntry> kMode755 = {
    {kAclUserObj, 7, 0}, {kAclGroupObj, 5, 0}, {kAclOther, 5, 0}};

TEST(SambaFolderAclHash, FolderWithoutDefaultAclHashesAnEmptyDefaultAcl) {
  EXPECT_EQ(Hex(Sha256(SysAclBlob(kMode755, std::vector<PosixAclEntry>{}, 0, 0, 040755))),
            "cd6af5f9910940b526b039daa3cf990206afe7e772cdf77f27a8153482c8abd4");
}

TEST(SambaFolderAclHash, DefaultAclStartsAlignedAfterItsConformance) {
  EXPECT_EQ(Hex(Sha256(SysAclBlob(kMode755, kMode755, 0, 0, 040755))),
            "24afdf4a28ce48eb891869f52b78acd7fc5bb1b885601d0e19511ec366c99113");
}

}  // namespace
}  // namespace tw::posix::samba
