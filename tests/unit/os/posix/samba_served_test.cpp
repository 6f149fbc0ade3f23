// What this tool writes, seen through a real smbd as a Windows client sees it: the descriptors
// in "security.NTACL" are served as they are (not judged stale and replaced by the POSIX view),
// and the DOS attributes and creation time in "user.DOSATTRIB" are the client's.
// tests/samba/served_descriptors.py runs the server in a private network namespace; it needs root
// and Samba (skipped otherwise, with the reason).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "descriptor/well_known_sids.h"
#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"
#include "ports/security_port.h"

namespace tw {
namespace {

using security::Ace;
using security::Acl;
using security::Sid;

Acl MakeAcl(std::vector<Ace> aces) {
  Acl acl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, std::move(aces), &acl), err::kSuccess);
  return acl;
}

std::string Section(const std::string& output, const std::string& path) {
  const std::string start = "== " + path + "\n";
  const std::string::size_type at = output.find(start);
  if (at == std::string::npos) return {};
  const std::string::size_type end = output.find("\n== ", at + start.size());
  return output.substr(at + start.size(),
                       end == std::string::npos ? std::string::npos : end + 1 - at - start.size());
}

TEST(SambaServedTest, StoredDescriptorsAndAttributesAreWhatAClientSees) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: needs root (smbd, security.NTACL)";
  testing::TempFolder folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  folder.WriteFile("file.txt", "served");
  ASSERT_EQ(::mkdir(folder.Child("folder").c_str(), 0755), 0);
  const Sid anna(5, {21, 7, 8, 9, 1001});  // no account: the POSIX owner stays root

  SecurityPort& port = ProcessSecurityPort();
  SecurityWrite write;
  write.writeOwner = true;
  write.owner = anna;
  write.writeDacl = true;
  write.protection = DaclProtection::kProtected;
  write.dacl =
      MakeAcl({Ace::Allowed(0x001F01FF, security::EveryoneSid()), Ace::Allowed(0x001200A9, anna)});
  ASSERT_EQ(port.WriteNamedSecurity(posix::ToWindowsPath(folder.Child("file.txt")), write),
            err::kSuccess);
  write.dacl = MakeAcl(
      {Ace::Allowed(0x001F01FF, security::EveryoneSid(), 3), Ace::Allowed(0x001F01FF, anna, 3)});
  ASSERT_EQ(port.WriteNamedSecurity(posix::ToWindowsPath(folder.Child("folder")), write),
            err::kSuccess);
  FileSystem& files = ProcessFileSystem();
  ASSERT_EQ(files.SetAttributes(posix::ToWindowsPath(folder.Child("file.txt")), 0x22),
            err::kSuccess);
  ASSERT_EQ(files.SetAttributes(posix::ToWindowsPath(folder.Child("folder")), 0x11), err::kSuccess);
  // A creation time set through a handle (2009-02-13 23:31:30 UTC).
  FileOpenRequest request;
  request.read = false;
  request.otherAccess = file_access::kFileWriteAttributes;
  request.backupSemantics = true;
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(posix::ToWindowsPath(folder.Child("file.txt")), request, handle),
            err::kSuccess);
  EXPECT_EQ(files.SetTimes(handle, FileTimes{128790414900000000ull, 0, 0}), err::kSuccess);
  EXPECT_EQ(files.Close(handle), err::kSuccess);
  struct stat info {};
  ASSERT_EQ(::stat(folder.Child("file.txt").c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, 0u);

  const testing::ProcessResult result = testing::RunProcess(
      "/usr/bin/python3", {std::string(TARNWICK_SOURCE_DIR) + "/tests/samba/served_descriptors.py",
                           folder.path().string(), "file.txt", "folder"});
  if (result.exitStatus == 77) GTEST_SKIP() << result.output;
  ASSERT_EQ(result.exitStatus, 0) << result.output << result.errors;

  // Protected DACLs written by name are auto-inherited too (SE_DACL_AUTO_INHERITED, 0x0400).
  EXPECT_EQ(Section(result.output, "file.txt"),
            "REVISION:1\n"
            "CONTROL:0x9404\n"
            "OWNER:S-1-5-21-7-8-9-1001\n"
            "GROUP:S-1-22-2-0\n"
            "ACL:S-1-1-0:0/0x0/0x001f01ff\n"
            "ACL:S-1-5-21-7-8-9-1001:0/0x0/0x001200a9\n"
            "create_time:    Fri Feb 13 23:31:30 2009 UTC\n"
            "attributes: HA (22)\n")
      << result.output;
  EXPECT_EQ(Section(result.output, "folder"),
            "REVISION:1\n"
            "CONTROL:0x9404\n"
            "OWNER:S-1-5-21-7-8-9-1001\n"
            "GROUP:S-1-22-2-0\n"
            "ACL:S-1-1-0:0/0x3/0x001f01ff\n"
            "ACL:S-1-5-21-7-8-9-1001:0/0x3/0x001f01ff\n"
            "attributes: RD (11)\n")
      << result.output;
}

}  // namespace
}  // namespace tw
