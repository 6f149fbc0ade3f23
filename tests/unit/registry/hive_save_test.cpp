#include "registry/hive_save.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/win32_error.h"
#include "registry/offreg_calls.h"
#include "registry_test_bed.h"

namespace tw {
namespace {

// The save returns a Win32 error code, not an HRESULT, as documented; its callers make it one
// with HResultFromWin32 before they log it (hive_migration_test). Returning an HResult here would
// change what the callers log and return.
static_assert(std::is_same_v<decltype(SaveTargetHive(std::declval<MigrationContext&>(),
                                                     std::declval<OrKey&>(), 2,
                                                     std::declval<const std::wstring&>())),
                             err::Win32Error>);

using ::testing::ElementsAre;
using testing::ExportHive;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::MakeDescriptor;
using testing::MakeHive;
using ::testing::Not;
using testing::OffregFunction;
using testing::RealFilesTestBed;
using testing::WinPath;

class HiveSaveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeHive(file, "[\\Software]\n\"Old\"=\"o\"\n\n");
    ASSERT_EQ(bed.fake.offreg().OROpenHive(path.c_str(), &hive), 0u);
    // A change to be saved.
    std::vector<std::uint8_t> data = {'n', 0, 0, 0};
    ASSERT_EQ(bed.fake.offreg().ORSetValue(hive, L"New", 1, data.data(), 4), 0u);
  }
  void TearDown() override {
    if (hive != nullptr && hive != registry::kNoOrKey) bed.fake.offreg().ORCloseHive(hive);
  }

  RealFilesTestBed bed;
  std::filesystem::path file = bed.folder.path() / "profile" / "ntuser.dat";
  std::wstring path = WinPath(file);
  OrKey hive = nullptr;
};

TEST_F(HiveSaveTest, AHiddenHiveKeepsItsAttributesOwnerAndDaclAndIsReopened) {
  FileSystem& files = bed.context.files;
  SecurityWrite write;
  write.writeDacl = true;
  security::SecurityDescriptor custom;
  // The running user keeps full access (on Linux the DACL also decides the mode bits).
  const std::wstring user = bed.context.security.CurrentUserSid().value().ToString();
  ASSERT_EQ(security::ParseSelfRelative(
                MakeDescriptor(nullptr, {user.c_str(), L"S-1-5-21-3-3-3-1003"}), &custom),
            0u);
  write.dacl = custom.dacl;
  ASSERT_EQ(bed.context.security.WriteNamedSecurity(path, write), err::kSuccess);
  security::SecurityDescriptor before;
  ASSERT_EQ(bed.context.security.ReadNamedSecurity(path, before), err::kSuccess);
  ASSERT_EQ(files.SetAttributes(path, file_attr::kHidden | file_attr::kArchive), err::kSuccess);

  EXPECT_EQ(SaveTargetHive(bed.context, hive, 2, path), err::kSuccess);
  EXPECT_THAT(bed.log.messages(), IsEmpty());
  std::uint32_t attributes = 0;
  ASSERT_EQ(files.GetAttributes(path, attributes), err::kSuccess);
  EXPECT_EQ(attributes & (file_attr::kReadOnly | file_attr::kHidden), file_attr::kHidden);
  security::SecurityDescriptor after;
  ASSERT_EQ(bed.context.security.ReadNamedSecurity(path, after), err::kSuccess);
  EXPECT_EQ(after.owner, before.owner);
  EXPECT_EQ(after.dacl, before.dacl);
  // The new content, read independently; the temporary file is gone; the handle is the re-opened
  // hive.
  EXPECT_THAT(ExportHive(file), HasSubstr("\"New\"="));
  EXPECT_FALSE(std::filesystem::exists(file.parent_path() / "~mighive.dat"));
  ASSERT_NE(hive, registry::kNoOrKey);
  OrKey software = nullptr;
  EXPECT_EQ(bed.fake.offreg().OROpenKey(hive, L"Software", &software), 0u);
  bed.fake.offreg().ORCloseKey(software);
}

// The attributes are put back before the file is opened for writing its security, so a
// read-only hive is replaced and keeps READONLY and HIDDEN, but the open for writing is then
// refused (as CreateFileW refuses GENERIC_WRITE on a read-only file): the order of the steps is
// kept as it is.
TEST_F(HiveSaveTest, AReadOnlyHiddenHiveKeepsItsAttributesAndTheOpenForSecurityIsRefused) {
  FileSystem& files = bed.context.files;
  ASSERT_EQ(files.SetAttributes(path, file_attr::kReadOnly | file_attr::kHidden), err::kSuccess);
  EXPECT_EQ(SaveTargetHive(bed.context, hive, 2, path), err::kAccessDenied);
  EXPECT_THAT(bed.log.messages(),
              ElementsAre(L"Failed opening newly created hive (0x80070005): " + path));
  std::uint32_t attributes = 0;
  ASSERT_EQ(files.GetAttributes(path, attributes), err::kSuccess);
  EXPECT_EQ(attributes & (file_attr::kReadOnly | file_attr::kHidden),
            file_attr::kReadOnly | file_attr::kHidden);
  EXPECT_THAT(ExportHive(file), HasSubstr("\"New\"="));
  EXPECT_EQ(hive, registry::kNoOrKey);
  hive = nullptr;
  ASSERT_EQ(files.SetAttributes(path, file_attr::kArchive), err::kSuccess);
}

TEST_F(HiveSaveTest, FormatVersionsFollowTheTargetVersionAndOthersAreAnError) {
  HiveFormatVersion format;
  ASSERT_TRUE(HiveFormatForVersion(2, format));
  EXPECT_EQ(format.major * 10 + format.minor, 61u);
  ASSERT_TRUE(HiveFormatForVersion(3, format));
  EXPECT_EQ(format.major * 10 + format.minor, 62u);
  ASSERT_TRUE(HiveFormatForVersion(4, format));
  EXPECT_EQ(format.major * 10 + format.minor, 63u);
  ASSERT_TRUE(HiveFormatForVersion(5, format));
  EXPECT_EQ(format.major * 10 + format.minor, 100u);
  ASSERT_TRUE(HiveFormatForVersion(6, format));
  EXPECT_EQ(format.major * 10 + format.minor, 100u);
  EXPECT_FALSE(HiveFormatForVersion(1, format));
  EXPECT_FALSE(HiveFormatForVersion(7, format));

  const OrKey open = hive;
  EXPECT_EQ(SaveTargetHive(bed.context, hive, 7, path), err::kInvalidParameter);
  EXPECT_EQ(hive, open);  // untouched, still open for the caller
  EXPECT_THAT(bed.fake.CallsOf(OffregFunction::kSaveHive), IsEmpty());
  EXPECT_THAT(bed.log.messages(), IsEmpty());
}

TEST_F(HiveSaveTest, AStaleTemporaryFileMakesTheSaveFailAndIsThenReplacedByNothing) {
  // A "~mighive.dat" left over: the save refuses to overwrite it, and the copy then puts the
  // stale file in place of the hive; it is deleted afterwards.
  MakeHive(file.parent_path() / "~mighive.dat", "[\\Stale]\n\n");
  EXPECT_EQ(SaveTargetHive(bed.context, hive, 5, path), err::kSuccess);
  const std::wstring temporary = WinPath(file.parent_path() / "~mighive.dat");
  EXPECT_THAT(bed.log.messages(),
              ElementsAre(L"Failed saving hive file (0x800700B7): " + temporary));
  EXPECT_FALSE(std::filesystem::exists(file.parent_path() / "~mighive.dat"));
  // The hive file now holds the stale file's keys: neither the change nor the old content.
  const std::string exported = ExportHive(file);
  EXPECT_THAT(exported, HasSubstr("[\\Stale]"));
  EXPECT_THAT(exported, Not(HasSubstr("\"New\"=")));
  EXPECT_THAT(exported, Not(HasSubstr("\"Old\"=")));
  EXPECT_THAT(exported, Not(HasSubstr("[\\Software]")));
}

TEST_F(HiveSaveTest, AHiveWhoseSecurityCannotBeReadIsNotReplaced) {
  const std::wstring missing = WinPath(bed.folder.path() / "gone" / "ntuser.dat");
  EXPECT_EQ(SaveTargetHive(bed.context, hive, 2, missing), err::kPathNotFound);
  EXPECT_EQ(hive, registry::kNoOrKey);
  hive = nullptr;
  EXPECT_THAT(bed.log.messages(),
              ElementsAre(L"Failed saving hive file (0x80070003): " +
                              WinPath(bed.folder.path() / "gone" / "~mighive.dat"),
                          L"Failed getting security descriptor (0x80070003): " + missing));
}

// The fake ports with a shared record of what happens to the hive file: its opens (with their
// requests), the security writes of either form, and the closes.
class HiveFileRecord {
 public:
  std::vector<std::string> events;
  std::vector<FileOpenRequest> requests;
  static std::string Hex(FileHandle handle) {
    char text[32];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(handle));
    return text;
  }
};

class RecordingFiles final : public testing::FakeFileSystem {
 public:
  RecordingFiles(HiveFileRecord& record, std::wstring hive)
      : record_(record), hive_(std::move(hive)) {}
  err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                       FileHandle& handle) override {
    const err::Win32Error error = FakeFileSystem::Open(path, request, handle);
    if (path == hive_) {
      record_.requests.push_back(request);
      record_.events.push_back("open " + HiveFileRecord::Hex(handle));
    }
    return error;
  }
  err::Win32Error Close(FileHandle handle) override {
    record_.events.push_back("close " + HiveFileRecord::Hex(handle));
    return FakeFileSystem::Close(handle);
  }

 private:
  HiveFileRecord& record_;
  std::wstring hive_;
};

class RecordingSecurity final : public testing::FakeSecurityPort {
 public:
  explicit RecordingSecurity(HiveFileRecord& record) : record_(record) {}
  err::Win32Error WriteOpenedObjectSecurity(FileHandle handle, std::wstring_view path,
                                            const SecurityWrite& write) override {
    record_.events.push_back(std::string(write.writeOwner ? "owner" : "") +
                             (write.writeDacl ? "dacl" : "") + " on " +
                             HiveFileRecord::Hex(handle));
    return FakeSecurityPort::WriteOpenedObjectSecurity(handle, path, write);
  }
  err::Win32Error WriteNamedSecurity(std::wstring_view path, const SecurityWrite& write) override {
    record_.events.push_back("by name");
    return FakeSecurityPort::WriteNamedSecurity(path, write);
  }

 private:
  HiveFileRecord& record_;
};

// Steps 9 to 12 over the fakes: the hive is opened with GENERIC_WRITE | WRITE_DAC | WRITE_OWNER,
// FILE_SHARE_READ, OPEN_EXISTING and backup semantics; owner and then DACL are set on that
// handle while it is open (never by name); then it is closed and the hive re-opened. The
// offline-registry calls reach a real hive of the same name, which the re-open needs.
class HiveSaveOnFakesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeHive(file, "[\\Software]\n\n");
    files.AddFolder(WinPath(file.parent_path()));
    files.SetFile(path, "old hive", file_attr::kArchive);
    files.SetFile(temporary, "saved hive", file_attr::kArchive);
    saved.owner = security::Sid(5, {21, 7, 7, 7, 1001});
    security::Acl dacl;
    EXPECT_EQ(security::Acl::FromAces(security::kAclRevision,
                                      {security::Ace::Allowed(0x001F01FF, *saved.owner)}, &dacl),
              err::kSuccess);
    saved.SetDacl(dacl);
    security.SetObject(path, saved);
  }
  void TearDown() override {
    if (hive != registry::kNoOrKey) fake.offreg().ORCloseHive(hive);
  }

  testing::TempFolder folder;
  std::filesystem::path file = folder.path() / "profile" / "ntuser.dat";
  std::wstring path = WinPath(file);
  std::wstring temporary = WinPath(file.parent_path() / "~mighive.dat");
  HiveFileRecord record;
  RecordingFiles files{record, path};
  RecordingSecurity security{record};
  testing::FakeOffreg fake;
  MigrationSettings settings;
  MigrationContext context{&settings, files, security, fake.offreg()};
  testing::LogCapture log;
  security::SecurityDescriptor saved;
  OrKey hive = registry::kNoOrKey;  // nothing to save: the temporary file is already there
};

TEST_F(HiveSaveOnFakesTest, OpensForWriteDacAndOwnerWithBackupSemanticsAndSetsBothOnTheHandle) {
  EXPECT_EQ(SaveTargetHive(context, hive, 2, path), err::kSuccess);
  EXPECT_THAT(log.messages(), IsEmpty());
  ASSERT_EQ(record.requests.size(), 1u);
  const FileOpenRequest& request = record.requests[0];
  EXPECT_FALSE(request.read);
  EXPECT_TRUE(request.write);
  EXPECT_EQ(request.otherAccess, file_access::kWriteDac | file_access::kWriteOwner);
  EXPECT_TRUE(request.shareRead);
  EXPECT_FALSE(request.shareWrite);
  EXPECT_FALSE(request.shareDelete);
  EXPECT_EQ(request.disposition, CreationDisposition::kOpenExisting);
  EXPECT_EQ(request.attributes, file_attr::kNormal);
  EXPECT_TRUE(request.backupSemantics);
  ASSERT_FALSE(record.events.empty());
  const std::string handle = record.events[0].substr(5);
  EXPECT_THAT(record.events, ElementsAre("open " + handle, "owner on " + handle,
                                         "dacl on " + handle, "close " + handle));
  // The saved owner and DACL, as the fake applied them.
  const security::SecurityDescriptor* now = security.Object(path);
  ASSERT_NE(now, nullptr);
  EXPECT_EQ(now->owner, saved.owner);
  EXPECT_EQ(now->dacl, saved.dacl);
  EXPECT_EQ(files.FileContent(path), "saved hive");
  EXPECT_FALSE(files.HasFile(temporary));
  EXPECT_NE(hive, registry::kNoOrKey);  // the re-opened hive
}

TEST_F(HiveSaveOnFakesTest, AFailedOwnerIsLoggedAndTheDaclStillGoesOnTheSameHandle) {
  security.FailOn(testing::SecurityOp::kWriteOwner, path, err::kInvalidOwner);
  EXPECT_EQ(SaveTargetHive(context, hive, 2, path), err::kInvalidOwner);
  EXPECT_THAT(log.messages(), ElementsAre(L"Failed setting owner SID (0x8007051B): " + path));
  ASSERT_FALSE(record.events.empty());
  const std::string handle = record.events[0].substr(5);
  EXPECT_THAT(record.events, ElementsAre("open " + handle, "owner on " + handle,
                                         "dacl on " + handle, "close " + handle));
  EXPECT_EQ(hive, registry::kNoOrKey);  // an error is pending: no re-open
}

}  // namespace
}  // namespace tw
