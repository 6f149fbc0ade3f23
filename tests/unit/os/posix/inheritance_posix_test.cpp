// Windows inheritance on the Linux file server, on real folders: what objects created without a
// descriptor of their own receive from their folder, and how a folder's DACL written by name
// reaches what is already inside it. Descriptors are read back through the security port and
// the adapter's own read, never from the stored bytes, so the checks hold for any storage.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "descriptor/inheritance.h"
#include "descriptor/well_known_sids.h"
#include "fakes/temp_folder.h"
#include "hive/offreg_api.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/security/object_security.h"
#include "ports/file_system.h"
#include "ports/module_loader.h"
#include "ports/security_port.h"
#include "registry/offreg_wrapper.h"

namespace tw {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using security::Sid;

constexpr std::uint8_t kOi = security::kObjectInheritAce;
constexpr std::uint8_t kCi = security::kContainerInheritAce;
constexpr std::uint8_t kNp = security::kNoPropagateInheritAce;
constexpr std::uint8_t kIo = security::kInheritOnlyAce;
constexpr std::uint8_t kId = security::kInheritedAce;
constexpr std::uint32_t kFullControl = 0x001F01FF;
constexpr std::uint32_t kReadAndExecute = 0x001200A9;
constexpr std::uint32_t kRead = 0x00120089;
constexpr std::uint16_t kAutoInherited = security::kSeDaclPresent | security::kSeDaclAutoInherited;

Sid Anna() { return Sid(5, {21, 7, 8, 9, 1001}); }
Sid Bert() { return Sid(5, {21, 7, 8, 9, 1002}); }
const Sid& Users() { return security::BuiltinUsersSid(); }
const Sid& Everyone() { return security::EveryoneSid(); }
const Sid& System() { return security::LocalSystemSid(); }

Acl MakeAcl(std::vector<Ace> aces) {
  Acl acl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, std::move(aces), &acl), err::kSuccess);
  return acl;
}

// A parent DACL with one entry for each kind of inheritance.
Acl EveryKindOfInheritance() {
  return MakeAcl({
      Ace::Allowed(kFullControl, Anna(), kOi | kCi),                    // both
      Ace::Allowed(kReadAndExecute, Users(), kCi),                      // folders only
      Ace::Allowed(security::kGenericRead, Everyone(), kOi),            // files only, generic
      Ace::Allowed(security::kGenericAll, security::CreatorOwnerSid(),  // creator owner,
                   kOi | kCi | kIo),                                    // inherit-only
      Ace::Allowed(security::kGenericRead | security::kGenericExecute,  // creator group
                   security::CreatorGroupSid(), kOi | kCi),             //
      Ace::Allowed(kReadAndExecute, System(), kOi | kCi | kNp),         // one generation
      Ace::Denied(0x00010000, Bert()),                                  // not inheritable
  });
}

class PosixInheritanceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The accounts the server gives what this process creates, as the adapter names them.
    folder.WriteFile("plain", "");
    SecurityDescriptor plain;
    ASSERT_EQ(posix::ReadObjectDescriptor(Native("plain"), plain), err::kSuccess);
    ASSERT_TRUE(plain.owner && plain.group);
    me = *plain.owner;
    myGroup = *plain.group;
    // The temporary folder itself passes nothing on: without a stored descriptor it would pass
    // on what the server derives from its mode (see NewObjectsBelowAFolderWithoutAStoredDescriptor
    // InheritWhatTheServerDerives).
    SecurityWrite closed;
    closed.writeDacl = true;
    closed.dacl = Acl();
    closed.protection = DaclProtection::kProtected;
    ASSERT_EQ(port.WriteNamedSecurity(posix::ToWindowsPath(folder.path().string()), closed),
              err::kSuccess);
  }

  std::wstring Win(const std::string& name) const {
    return posix::ToWindowsPath(folder.Child(name));
  }
  std::string Native(const std::string& name) const { return folder.Child(name); }
  SecurityDescriptor Read(const std::string& name) {
    SecurityDescriptor sd;
    EXPECT_EQ(port.ReadNamedSecurity(Win(name), sd), err::kSuccess) << name;
    return sd;
  }
  std::vector<Ace> Entries(const std::string& name) {
    const SecurityDescriptor sd = Read(name);
    return sd.dacl ? sd.dacl->aces() : std::vector<Ace>{};
  }
  err::Win32Error WriteDacl(const std::string& name, const Acl& dacl, DaclProtection protection) {
    SecurityWrite write;
    write.writeDacl = true;
    write.dacl = dacl;
    write.protection = protection;
    return port.WriteNamedSecurity(Win(name), write);
  }
  void MakeFolder(const std::string& name) {
    ASSERT_EQ(port.CreateFolderWithSecurity(Win(name), nullptr), err::kSuccess) << name;
  }
  void MakeFile(const std::string& name) {
    ASSERT_EQ(port.CreateFileWithSecurity(Win(name), true, nullptr), err::kSuccess) << name;
  }
  // A folder "top" that passes `dacl` on (written unprotected, so it is auto-inherited).
  void MakeTop(const Acl& dacl) {
    MakeFolder("top");
    ASSERT_EQ(WriteDacl("top", dacl, DaclProtection::kUnprotected), err::kSuccess);
  }

  // What a folder child of EveryKindOfInheritance() receives.
  std::vector<Ace> FolderChildEntries() const {
    return {
        Ace::Allowed(kFullControl, Anna(), kOi | kCi | kId),
        Ace::Allowed(kReadAndExecute, Users(), kCi | kId),
        Ace::Allowed(security::kGenericRead, Everyone(), kOi | kIo | kId),
        Ace::Allowed(kFullControl, me, kId),
        Ace::Allowed(security::kGenericAll, security::CreatorOwnerSid(), kOi | kCi | kIo | kId),
        Ace::Allowed(kReadAndExecute, myGroup, kId),
        Ace::Allowed(security::kGenericRead | security::kGenericExecute,
                     security::CreatorGroupSid(), kOi | kCi | kIo | kId),
        Ace::Allowed(kReadAndExecute, System(), kId),
    };
  }
  // What a file child of EveryKindOfInheritance() receives.
  std::vector<Ace> FileChildEntries() const {
    return {
        Ace::Allowed(kFullControl, Anna(), kId),      Ace::Allowed(kRead, Everyone(), kId),
        Ace::Allowed(kFullControl, me, kId),          Ace::Allowed(kReadAndExecute, myGroup, kId),
        Ace::Allowed(kReadAndExecute, System(), kId),
    };
  }
  // What a file two levels below EveryKindOfInheritance() receives (through a folder child).
  std::vector<Ace> GrandchildFileEntries() const {
    return {
        Ace::Allowed(kFullControl, Anna(), kId),
        Ace::Allowed(kRead, Everyone(), kId),
        Ace::Allowed(kFullControl, me, kId),
        Ace::Allowed(kReadAndExecute, myGroup, kId),
    };
  }

  testing::TempFolder folder;
  SecurityPort& port = ProcessSecurityPort();
  Sid me;
  Sid myGroup;
};

TEST_F(PosixInheritanceTest, NewFolderAndFileReceiveWhatTheirFolderPassesOn) {
  MakeTop(EveryKindOfInheritance());
  MakeFolder("top\\sub");
  MakeFile("top\\file.txt");
  MakeFile("top\\sub\\deep.txt");

  const SecurityDescriptor sub = Read("top\\sub");
  EXPECT_EQ(sub.owner, me);
  EXPECT_EQ(sub.control, kAutoInherited);
  EXPECT_EQ(Entries("top\\sub"), FolderChildEntries());

  const SecurityDescriptor file = Read("top\\file.txt");
  EXPECT_EQ(file.owner, me);
  EXPECT_EQ(file.control, kAutoInherited);
  EXPECT_EQ(Entries("top\\file.txt"), FileChildEntries());

  // The no-propagate entry stops after one generation; the container-only one never reaches a
  // file.
  EXPECT_EQ(Entries("top\\sub\\deep.txt"), GrandchildFileEntries());
}

TEST_F(PosixInheritanceTest, ParentWithoutAutoInheritancePassesEntriesWithoutTheFlag) {
  // A DACL written by name is always auto-inherited; a folder created with a protected
  // descriptor that does not say so is not.
  SecurityDescriptor given;
  given.SetDacl(MakeAcl({Ace::Allowed(kFullControl, Anna(), kOi | kCi)}));
  given.control |= security::kSeDaclProtected;
  ASSERT_EQ(port.CreateFolderWithSecurity(Win("top"), &given), err::kSuccess);
  ASSERT_EQ(Read("top").control, security::kSeDaclPresent | security::kSeDaclProtected);
  MakeFile("top\\f.txt");
  const SecurityDescriptor file = Read("top\\f.txt");
  EXPECT_EQ(file.control, security::kSeDaclPresent);
  EXPECT_EQ(file.dacl->aces(), std::vector<Ace>{Ace::Allowed(kFullControl, Anna(), kId)});
}

TEST_F(PosixInheritanceTest, DaclWrittenByNameIsAutoInheritedWhetherProtectedOrNot) {
  // As Windows leaves it: "D:PAI" for a protected write, "D:AI" for an unprotected one, whatever
  // the object held before.
  SecurityDescriptor given;
  given.SetDacl(MakeAcl({Ace::Allowed(kFullControl, Anna(), kOi | kCi)}));
  given.control |= security::kSeDaclProtected;
  ASSERT_EQ(port.CreateFolderWithSecurity(Win("top"), &given), err::kSuccess);
  ASSERT_EQ(Read("top").control, security::kSeDaclPresent | security::kSeDaclProtected);

  const Acl dacl = MakeAcl({Ace::Allowed(kRead, Bert(), kOi | kCi)});
  ASSERT_EQ(WriteDacl("top", dacl, DaclProtection::kProtected), err::kSuccess);
  EXPECT_EQ(Read("top").control, kAutoInherited | security::kSeDaclProtected);
  EXPECT_EQ(Entries("top"), dacl.aces());
  ASSERT_EQ(WriteDacl("top", dacl, DaclProtection::kUnprotected), err::kSuccess);
  EXPECT_EQ(Read("top").control, kAutoInherited);
  ASSERT_EQ(WriteDacl("top", dacl, DaclProtection::kProtected), err::kSuccess);
  EXPECT_EQ(Read("top").control, kAutoInherited | security::kSeDaclProtected);

  // A file created with a protected descriptor that is auto-inherited keeps both bits.
  given.control |= security::kSeDaclAutoInherited;
  ASSERT_EQ(port.CreateFileWithSecurity(Win("top\\copy.txt"), true, &given), err::kSuccess);
  EXPECT_EQ(Read("top\\copy.txt").control, kAutoInherited | security::kSeDaclProtected);
}

TEST_F(PosixInheritanceTest,
       NewObjectsBelowAFolderWithoutAStoredDescriptorInheritWhatTheServerDerives) {
  // A folder made outside Windows security passes on what the server shows for it: full control
  // for CREATOR OWNER, read and execute for CREATOR GROUP and Everyone, all inherit-only. A
  // client creating through the server's share receives the same.
  ASSERT_EQ(::mkdir(Native("bare").c_str(), 0750), 0);
  const SecurityDescriptor bare = Read("bare");
  ASSERT_EQ(bare.control, security::kSeDaclPresent);
  const std::vector<Ace> passedOn = {
      Ace::Allowed(kFullControl, security::CreatorOwnerSid(), kOi | kCi | kIo),
      Ace::Allowed(kReadAndExecute, security::CreatorGroupSid(), kOi | kCi | kIo),
      Ace::Allowed(kReadAndExecute, Everyone(), kOi | kCi | kIo),
  };
  const std::vector<Ace> all = Entries("bare");
  ASSERT_GE(all.size(), passedOn.size());
  ASSERT_EQ(std::vector<Ace>(all.end() - 3, all.end()), passedOn);

  MakeFile("bare\\f.txt");
  MakeFolder("bare\\sub");
  const SecurityDescriptor file = Read("bare\\f.txt");
  EXPECT_EQ(file.owner, me);
  EXPECT_EQ(file.control, security::kSeDaclPresent);  // the folder is not auto-inherited
  EXPECT_EQ(Entries("bare\\f.txt"), (std::vector<Ace>{
                                        Ace::Allowed(kFullControl, me, kId),
                                        Ace::Allowed(kReadAndExecute, myGroup, kId),
                                        Ace::Allowed(kReadAndExecute, Everyone(), kId),
                                    }));
  const SecurityDescriptor sub = Read("bare\\sub");
  EXPECT_EQ(sub.owner, me);
  EXPECT_EQ(sub.control, security::kSeDaclPresent);
  EXPECT_EQ(Entries("bare\\sub"),
            (std::vector<Ace>{
                Ace::Allowed(kFullControl, me, kId),
                Ace::Allowed(kFullControl, security::CreatorOwnerSid(), kOi | kCi | kIo | kId),
                Ace::Allowed(kReadAndExecute, myGroup, kId),
                Ace::Allowed(kReadAndExecute, security::CreatorGroupSid(), kOi | kCi | kIo | kId),
                Ace::Allowed(kReadAndExecute, Everyone(), kOi | kCi | kId),
            }));
}

TEST_F(PosixInheritanceTest, FolderWithOnlyContainerEntriesGivesAFileAnEmptyDacl) {
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Anna(), kCi)}));
  MakeFile("top\\f.txt");
  const SecurityDescriptor file = Read("top\\f.txt");
  EXPECT_EQ(file.control, kAutoInherited);
  ASSERT_TRUE(file.dacl.has_value());
  EXPECT_TRUE(file.dacl->aces().empty());
}

TEST_F(PosixInheritanceTest, FolderWithoutInheritableEntriesGivesTheProcessDefaultDacl) {
  const std::vector<Ace> defaults = {Ace::Allowed(kFullControl, me),
                                     Ace::Allowed(kFullControl, System())};
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Anna())}));
  MakeFile("top\\f.txt");
  EXPECT_EQ(Read("top\\f.txt").control, security::kSeDaclPresent);
  EXPECT_EQ(Entries("top\\f.txt"), defaults);

  SecurityWrite nullDacl;
  nullDacl.writeDacl = true;
  nullDacl.protection = DaclProtection::kProtected;
  ASSERT_EQ(port.WriteNamedSecurity(Win("top"), nullDacl), err::kSuccess);
  MakeFolder("top\\sub");
  EXPECT_EQ(Entries("top\\sub"), defaults);
}

TEST_F(PosixInheritanceTest, DescriptorWithoutADaclStillInheritsItsDacl) {
  MakeTop(EveryKindOfInheritance());
  SecurityDescriptor ownerOnly;
  ownerOnly.owner = Anna();
  ASSERT_EQ(port.CreateFolderWithSecurity(Win("top\\sub"), &ownerOnly), err::kSuccess);
  const SecurityDescriptor sub = Read("top\\sub");
  EXPECT_EQ(sub.owner, Anna());
  // CREATOR OWNER stands for the new object's owner.
  std::vector<Ace> expected = FolderChildEntries();
  expected[3].sid = Anna();
  EXPECT_EQ(sub.dacl->aces(), expected);
}

TEST_F(PosixInheritanceTest, DescriptorWithADaclIsPlacedAsAWritePlacesIt) {
  MakeTop(EveryKindOfInheritance());
  SecurityDescriptor given;
  given.owner = Anna();
  given.SetDacl(MakeAcl({Ace::Allowed(kFullControl, Bert(), kOi | kCi)}));
  given.control |= security::kSeDaclProtected;
  // Protected: exactly the list given, whatever the folder passes on.
  ASSERT_EQ(port.CreateFolderWithSecurity(Win("top\\closed"), &given), err::kSuccess);
  EXPECT_EQ(Read("top\\closed"), OwnerAndDaclOf(given));
  // Unprotected: the list given, then what the folder passes on.
  given.control = security::kSeDaclPresent;
  ASSERT_EQ(port.CreateFileWithSecurity(Win("top\\open.txt"), true, &given), err::kSuccess);
  const SecurityDescriptor open = Read("top\\open.txt");
  EXPECT_EQ(open.control, kAutoInherited);
  std::vector<Ace> expected = {Ace::Allowed(kFullControl, Bert(), kOi | kCi)};
  for (Ace ace : FileChildEntries()) {
    if (ace.sid == me) ace.sid = Anna();  // CREATOR OWNER is the given owner
    expected.push_back(ace);
  }
  EXPECT_EQ(open.dacl->aces(), expected);
}

TEST_F(PosixInheritanceTest, EveryCreationPathInherits) {
  MakeTop(EveryKindOfInheritance());
  FileSystem& files = ProcessFileSystem();

  // The marker: CreateFileW with CREATE_ALWAYS, read-only and hidden.
  FileOpenRequest marker;
  marker.read = false;
  marker.write = true;
  marker.otherAccess = file_access::kGenericAll;
  marker.disposition = CreationDisposition::kCreateAlways;
  marker.attributes = file_attr::kReadOnly | file_attr::kHidden;
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("top\\_qzk_mig_marker_"), marker, handle), err::kSuccess);
  files.Close(handle);
  EXPECT_EQ(Entries("top\\_qzk_mig_marker_"), FileChildEntries());

  // CopyFileW's target, whatever the source's security.
  folder.WriteFile("source.txt", "content");
  ASSERT_EQ(WriteDacl("source.txt", MakeAcl({Ace::Allowed(kFullControl, Bert())}),
                      DaclProtection::kProtected),
            err::kSuccess);
  ASSERT_EQ(files.CopyFileTo(Win("source.txt"), Win("top\\copy.txt"), true), err::kSuccess);
  EXPECT_EQ(Read("top\\copy.txt").control, kAutoInherited);
  EXPECT_EQ(Entries("top\\copy.txt"), FileChildEntries());

  // CreateDirectoryW and SHCreateDirectoryExW without security.
  ASSERT_EQ(files.MakeFolder(Win("top\\made")), err::kSuccess);
  EXPECT_EQ(Entries("top\\made"), FolderChildEntries());
  ASSERT_EQ(files.MakeFolderPath(Win("top\\path\\below")), err::kSuccess);
  EXPECT_EQ(Entries("top\\path"), FolderChildEntries());
  ASSERT_EQ(port.CreateFolderPathWithSecurity(Win("top\\other\\below"), nullptr), err::kSuccess);
  EXPECT_EQ(Entries("top\\other"), FolderChildEntries());

  // A hive saved through the offline registry, as "~mighive.dat" is.
  COffregWrapper offreg(ProcessModuleLoader());
  OrKey hive = nullptr;
  ASSERT_EQ(offreg.OROpenHive(posix::ToWindowsPath(std::string(TARNWICK_TESTDATA_DIR) +
                                                   "/hives/windows-xp-special.hiv")
                                  .c_str(),
                              &hive),
            0u);
  EXPECT_EQ(offreg.ORSaveHive(hive, Win("top\\~mighive.dat").c_str(), 5, 1), 0u);
  EXPECT_EQ(offreg.ORCloseHive(hive), 0u);
  EXPECT_EQ(Read("top\\~mighive.dat").control, kAutoInherited);
  EXPECT_EQ(Entries("top\\~mighive.dat"), FileChildEntries());
}

TEST_F(PosixInheritanceTest, FolderDaclWrittenByNameReachesItsExistingChildren) {
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Bert(), kOi | kCi)}));
  MakeFolder("top\\sub");
  MakeFile("top\\file.txt");
  MakeFile("top\\sub\\deep.txt");
  // An explicit entry of the child stays, before what it inherits.
  ASSERT_EQ(WriteDacl("top\\file.txt", MakeAcl({Ace::Denied(0x00010000, Users())}),
                      DaclProtection::kUnprotected),
            err::kSuccess);

  ASSERT_EQ(WriteDacl("top", EveryKindOfInheritance(), DaclProtection::kKeep), err::kSuccess);

  EXPECT_EQ(Read("top\\sub").control, kAutoInherited);
  EXPECT_EQ(Entries("top\\sub"), FolderChildEntries());
  std::vector<Ace> file = {Ace::Denied(0x00010000, Users())};
  for (const Ace& ace : FileChildEntries()) file.push_back(ace);
  EXPECT_EQ(Entries("top\\file.txt"), file);
  EXPECT_EQ(Entries("top\\sub\\deep.txt"), GrandchildFileEntries());
}

TEST_F(PosixInheritanceTest, ProtectedChildStopsThePropagation) {
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Bert(), kOi | kCi)}));
  MakeFolder("top\\closed");
  MakeFile("top\\closed\\inside.txt");
  const Acl own = MakeAcl({Ace::Allowed(kFullControl, Anna(), kOi | kCi)});
  ASSERT_EQ(WriteDacl("top\\closed", own, DaclProtection::kProtected), err::kSuccess);
  const SecurityDescriptor closed = Read("top\\closed");
  const SecurityDescriptor inside = Read("top\\closed\\inside.txt");
  ASSERT_EQ(inside.dacl->aces(), std::vector<Ace>{Ace::Allowed(kFullControl, Anna(), kId)});

  ASSERT_EQ(WriteDacl("top", EveryKindOfInheritance(), DaclProtection::kUnprotected),
            err::kSuccess);
  EXPECT_EQ(Read("top\\closed"), closed);
  EXPECT_EQ(Read("top\\closed\\inside.txt"), inside);

  // A protected folder still passes its own entries on.
  ASSERT_EQ(WriteDacl("top\\closed", MakeAcl({Ace::Allowed(kRead, Users(), kOi)}),
                      DaclProtection::kProtected),
            err::kSuccess);
  EXPECT_EQ(Entries("top\\closed\\inside.txt"),
            std::vector<Ace>{Ace::Allowed(kRead, Users(), kId)});
}

TEST_F(PosixInheritanceTest, DeepTreeIsReachedToTheBottom) {
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Bert(), kOi | kCi)}));
  std::string path = "top";
  for (int level = 0; level < 8; ++level) {
    path += "\\d" + std::to_string(level);
    MakeFolder(path);
  }
  MakeFile(path + "\\leaf.txt");
  ASSERT_EQ(Entries(path + "\\leaf.txt"),
            std::vector<Ace>{Ace::Allowed(kFullControl, Bert(), kId)});

  ASSERT_EQ(WriteDacl("top", MakeAcl({Ace::Allowed(kRead, Anna(), kOi | kCi)}),
                      DaclProtection::kUnprotected),
            err::kSuccess);
  EXPECT_EQ(Entries(path), std::vector<Ace>{Ace::Allowed(kRead, Anna(), kOi | kCi | kId)});
  EXPECT_EQ(Entries(path + "\\leaf.txt"), std::vector<Ace>{Ace::Allowed(kRead, Anna(), kId)});

  // Taking inheritable entries away takes them from every level.
  ASSERT_EQ(WriteDacl("top", MakeAcl({Ace::Allowed(kRead, Anna())}), DaclProtection::kKeep),
            err::kSuccess);
  EXPECT_TRUE(Entries(path).empty());
  EXPECT_TRUE(Entries(path + "\\leaf.txt").empty());
}

TEST_F(PosixInheritanceTest, LinksBelowAreNeitherWrittenNorEntered) {
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Bert(), kOi | kCi)}));
  MakeFolder("elsewhere");
  ASSERT_EQ(WriteDacl("elsewhere", MakeAcl({Ace::Allowed(kFullControl, Users(), kOi | kCi)}),
                      DaclProtection::kUnprotected),
            err::kSuccess);
  MakeFile("elsewhere\\kept.txt");
  const SecurityDescriptor outside = Read("elsewhere");
  const SecurityDescriptor kept = Read("elsewhere\\kept.txt");
  ASSERT_EQ(::symlink(Native("elsewhere").c_str(), Native("top/link").c_str()), 0);
  ASSERT_EQ(::symlink(Native("elsewhere/kept.txt").c_str(), Native("top/file-link").c_str()), 0);

  ASSERT_EQ(WriteDacl("top", MakeAcl({Ace::Allowed(kRead, Anna(), kOi | kCi)}),
                      DaclProtection::kUnprotected),
            err::kSuccess);
  EXPECT_EQ(Read("elsewhere\\kept.txt"), kept);
  EXPECT_EQ(Read("elsewhere"), outside);
}

TEST_F(PosixInheritanceTest, OnlyDaclWritesPropagate) {
  // A file moved in from another folder keeps what it inherited there until its new folder's
  // DACL is written; an owner-only write leaves it so.
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Bert(), kOi | kCi)}));
  MakeFolder("other");
  ASSERT_EQ(
      WriteDacl("other", MakeAcl({Ace::Allowed(kRead, Anna(), kOi)}), DaclProtection::kUnprotected),
      err::kSuccess);
  MakeFile("other\\moved.txt");
  ASSERT_EQ(::rename(Native("other/moved.txt").c_str(), Native("top/moved.txt").c_str()), 0);
  const std::vector<Ace> fromOther = {Ace::Allowed(kRead, Anna(), kId)};
  ASSERT_EQ(Entries("top\\moved.txt"), fromOther);

  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  ASSERT_EQ(port.WriteNamedSecurity(Win("top"), owner), err::kSuccess);
  EXPECT_EQ(Entries("top\\moved.txt"), fromOther);

  ASSERT_EQ(WriteDacl("top", *Read("top").dacl, DaclProtection::kKeep), err::kSuccess);
  EXPECT_EQ(Entries("top\\moved.txt"), std::vector<Ace>{Ace::Allowed(kFullControl, Bert(), kId)});
}

// Makes a file immutable for the life of the object (root on a file system that supports it).
class ImmutableFile {
 public:
  explicit ImmutableFile(const std::string& path) : path_(path) { ok_ = SetFlag(true); }
  ~ImmutableFile() {
    if (ok_) SetFlag(false);
  }
  ImmutableFile(const ImmutableFile&) = delete;
  ImmutableFile& operator=(const ImmutableFile&) = delete;
  bool ok() const { return ok_; }

 private:
  bool SetFlag(bool on) {
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    int flags = 0;
    bool done = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (done) {
      flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
      done = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return done;
  }
  std::string path_;
  bool ok_ = false;
};

TEST_F(PosixInheritanceTest, ChildThatCannotBeWrittenDoesNotStopTheOthers) {
  MakeTop(MakeAcl({Ace::Allowed(kFullControl, Bert(), kOi | kCi)}));
  MakeFile("top\\a.txt");
  MakeFile("top\\b.txt");
  MakeFile("top\\c.txt");
  const ImmutableFile locked(Native("top/b.txt"));
  if (!locked.ok()) GTEST_SKIP() << "making a file immutable needs root and ext4 or the like";

  // The folder's own DACL is written; the error of the child that refused comes back.
  EXPECT_EQ(WriteDacl("top", MakeAcl({Ace::Allowed(kRead, Anna(), kOi | kCi)}),
                      DaclProtection::kUnprotected),
            err::kAccessDenied);
  const std::vector<Ace> inherited = {Ace::Allowed(kRead, Anna(), kId)};
  EXPECT_EQ(Entries("top\\a.txt"), inherited);
  EXPECT_EQ(Entries("top\\c.txt"), inherited);
  EXPECT_EQ(Entries("top\\b.txt"), std::vector<Ace>{Ace::Allowed(kFullControl, Bert(), kId)});
  EXPECT_EQ(Entries("top"), std::vector<Ace>{Ace::Allowed(kRead, Anna(), kOi | kCi)});
}

}  // namespace
}  // namespace tw
