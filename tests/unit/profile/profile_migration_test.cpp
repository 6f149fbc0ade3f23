// The per-profile migration over real folders behind a share map in temp folders (the POSIX
// file-system adapter), hives made by hivexregedit, the fake offline-registry table over the hive
// engine, a fake security port that can deny reads, the fake network port, and stand-ins for
// CreateProfile and DeleteProfileW.
#include "profile/profile_migration.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "migration/special_folder_table.h"
#include "os/posix/files/folder_lock.h"
#include "os/posix/paths/share_map.h"
#include "ports/file_system.h"
#include "ports/last_error.h"
#include "profile_test_bed.h"
#include "unit/registry/registry_test_bed.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::AdminSid;
using testing::AnnaSid;
using testing::ExpandValue;
using testing::ExplorerSection;
using testing::kExplorerKeys;
using testing::MakeHive;
using testing::OwnedBy;
using testing::RegHex;
using testing::SecurityOp;
using testing::WinPath;

void Write(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

// What the stand-ins of CreateProfile and DeleteProfileW do and were asked.
struct ProfileCalls {
  fs::path templateFolder;  // copied to make the temporary profile
  fs::path profileFolder;   // where it is made
  HResult createResult = hr::kOk;
  bool createWritesPath = true;
  std::wstring createPath;  // the path written into the buffer (default: profileFolder)
  std::int32_t deleteResult = 1;
  err::Win32Error deleteError = err::kSuccess;
  std::vector<std::wstring> created;  // "sid|user"
  std::vector<std::wstring> deleted;  // "sid|path|computer-null"
  // A folder whose lock CreateProfile tries (as another run would), and whether it was taken.
  fs::path lockProbe;
  bool probeFoundLocked = false;
};
ProfileCalls* calls = nullptr;

std::int32_t TW_OR_CALL FakeCreateProfile(const wchar_t* sid, const wchar_t* user, wchar_t* path,
                                          OrDword size) {
  calls->created.push_back(std::wstring(sid) + L"|" + user);
  if (!calls->lockProbe.empty()) {
    int probe = -1;
    calls->probeFoundLocked =
        posix::LockNativeFolder(calls->lockProbe.string(), probe) == err::kSharingViolation;
    if (probe >= 0) ::close(probe);
  }
  if (Failed(calls->createResult)) return calls->createResult.Value();
  fs::copy(calls->templateFolder, calls->profileFolder, fs::copy_options::recursive);
  const std::wstring written =
      calls->createPath.empty() ? WinPath(calls->profileFolder) : calls->createPath;
  if (calls->createWritesPath && written.size() < size) {
    std::copy(written.begin(), written.end(), path);
    path[written.size()] = L'\0';
  }
  return calls->createResult.Value();
}

std::int32_t TW_OR_CALL FakeDeleteProfile(const wchar_t* sid, const wchar_t* path,
                                          const wchar_t* computer) {
  calls->deleted.push_back(std::wstring(sid) + L"|" + path + L"|" +
                           (computer == nullptr ? L"null" : computer));
  if (calls->deleteResult == 0) SetThreadLastError(calls->deleteError);
  return calls->deleteResult;
}

// Reading the denied path's security fails with access denied until the running user owns it.
class DenyingSecurityPort : public testing::LinkedSecurityPort {
 public:
  using LinkedSecurityPort::LinkedSecurityPort;
  std::wstring denied;
  err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                    security::SecurityDescriptor& sd) override {
    if (path == denied && Object(path) != nullptr && Object(path)->owner != AdminSid()) {
      return err::kAccessDenied;
    }
    return LinkedSecurityPort::ReadNamedSecurity(path, sd);
  }
  // Called when the denied path gets its former owner written back (its restore).
  std::function<void()> onRestore;
  err::Win32Error WriteNamedSecurity(std::wstring_view path, const SecurityWrite& write) override {
    if (onRestore && path == denied && write.writeOwner && write.owner == AnnaSid()) onRestore();
    return LinkedSecurityPort::WriteNamedSecurity(path, write);
  }
};

class ProfileMigrationTest : public ::testing::Test {
 protected:
  ProfileMigrationTest() {
    currentUserSid.Clear();
    currentUserSid.Set(AdminSid());
    security.userSid = AdminSid();
    network.statuses[L"\\Device\\Mup\\srv\\profiles"] = ntstatus::kSuccess;
    calls = &profiles;
    bed.fake.offreg().CreateProfile = &FakeCreateProfile;
    bed.fake.offreg().DeleteProfileW = &FakeDeleteProfile;
  }
  ~ProfileMigrationTest() override {
    // The migration fills the process-wide table's locations; later tests expect them empty.
    for (SpecialFolderRow& row : SpecialFolders()) {
      row.sourceLocation.clear();
      row.targetLocation.clear();
    }
    calls = nullptr;
    currentUserSid.Clear();
    posix::UseShareMapFileForTesting("");
  }

  void SetUp() override {
    Write(bed.folder.path() / "shares.conf",
          "\\\\srv\\profiles = " + (bed.folder.path() / "share").string() + "\n");
    posix::UseShareMapFileForTesting((bed.folder.path() / "shares.conf").string());
    MakeHive(source() / "ntuser.dat", kExplorerKeys + ExplorerSection("User Shell Folders") +
                                          ExpandValue("Desktop", L"%USERPROFILE%\\Desktop") + "\n");
    Write(source() / "Desktop" / "d.txt", "desk");
    Write(source() / "Other" / "o.txt", "other");
    security.SetObject(kSource, OwnedBy(AnnaSid()));

    profiles.templateFolder = bed.folder.path() / "template";
    profiles.profileFolder = bed.folder.path() / "local" / "_tarnwick_";
    fs::create_directories(profiles.profileFolder.parent_path());
    MakeHive(profiles.templateFolder / "NTUSER.DAT",
             kExplorerKeys + ExplorerSection("User Shell Folders") +
                 ExpandValue("Desktop", L"%USERPROFILE%\\Desktop") + "\n" +
                 ExplorerSection("Shell Folders") +
                 "\"Desktop\"=hex(1):" + RegHex(L"C:\\Users\\x\\Desktop") + "\n\n");
    Write(profiles.templateFolder / "AppData" / "Local" / "default.ini", "default");
  }

  fs::path source() const { return bed.folder.path() / "share" / "anna"; }
  fs::path target() const { return bed.folder.path() / "share" / "anna.V2"; }
  std::wstring Temporary() const { return WinPath(profiles.profileFolder); }

  HResult Migrate(const std::wstring& sourcePath = kSource) {
    targetPath = L"in";
    return MigrateProfile(context, sourcePath, 1, targetPath, 2);
  }
  bool Logged(const std::wstring& message) const {
    for (const std::wstring& logged : bed.log.messages()) {
      if (logged == message) return true;
    }
    return false;
  }
  std::wstring Joined() const {
    std::wstring all;
    for (const std::wstring& logged : bed.log.messages()) all += logged + L"\n";
    return all;
  }

  static constexpr const wchar_t* kSource = L"\\\\srv\\profiles\\anna";
  static constexpr const wchar_t* kTarget = L"\\\\srv\\profiles\\anna.V2";
  testing::RealFilesTestBed bed;
  DenyingSecurityPort security{ProcessFileSystem()};
  testing::FakeNetworkPort network;
  MigrationContext context{&bed.settings, ProcessFileSystem(), security, bed.fake.offreg(),
                           &network};
  ProfileCalls profiles;
  std::wstring targetPath;
};

TEST_F(ProfileMigrationTest, MigratesIntoTheV2FolderBesideTheSource) {
  EXPECT_EQ(Migrate(), hr::kOk) << Joined();
  EXPECT_EQ(targetPath, kTarget);
  EXPECT_EQ(testing::ReadWholeFile(target() / "Desktop" / "d.txt"), "desk");
  EXPECT_EQ(testing::ReadWholeFile(target() / "Other" / "o.txt"), "other");
  EXPECT_EQ(testing::ReadWholeFile(target() / "AppData" / "Local" / "default.ini"), "default");
  EXPECT_FALSE(fs::exists(target() / "_qzk_mig_marker_"));
  EXPECT_FALSE(fs::exists(profiles.profileFolder));
  EXPECT_EQ(profiles.created, std::vector<std::wstring>{AnnaSid().ToString() + L"|_tarnwick_"});
  EXPECT_EQ(profiles.deleted,
            std::vector<std::wstring>{AnnaSid().ToString() + L"|" + Temporary() + L"|null"});
  EXPECT_TRUE(Logged(L"Deleted temporary profile: " + Temporary()));
  // The target root has the source's security; the default profile's objects its owner.
  EXPECT_EQ(security.Object(kTarget)->owner, AnnaSid());
  EXPECT_EQ(security.Object(std::wstring(kTarget) + L"\\AppData")->owner, AnnaSid());
  // The source is unchanged.
  EXPECT_EQ(testing::ReadWholeFile(source() / "Desktop" / "d.txt"), "desk");
}

TEST_F(ProfileMigrationTest, ATargetRootIsHonoured) {
  fs::create_directories(bed.folder.path() / "share" / "new");
  bed.settings.targetPath = L"\\\\srv\\profiles\\new";
  EXPECT_EQ(Migrate(), hr::kOk) << Joined();
  EXPECT_EQ(targetPath, L"\\\\srv\\profiles\\new\\anna.V2");
  EXPECT_TRUE(fs::exists(bed.folder.path() / "share" / "new" / "anna.V2" / "Desktop" / "d.txt"));
}

TEST_F(ProfileMigrationTest, ADrivePathSourceIsNotValidEvenIfItExists) {
  const std::wstring drivePath = WinPath(source());
  EXPECT_EQ(Migrate(drivePath), hr::kSourceProfileInvalid);
  EXPECT_EQ(bed.log.messages(), std::vector<std::wstring>{L"Source path not valid: " + drivePath});
}

TEST_F(ProfileMigrationTest, AMissingSourceIsNotReachable) {
  EXPECT_EQ(Migrate(L"\\\\srv\\profiles\\bob"), hr::kSourceProfileInvalid);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Source path not reachable: \\\\srv\\profiles\\bob"});
}

TEST_F(ProfileMigrationTest, TheTargetMustBeUncAndItsShareReachable) {
  bed.settings.targetPath = WinPath(bed.folder.path());
  EXPECT_EQ(Migrate(), hr::kTargetProfileInvalid);
  EXPECT_EQ(bed.log.messages(), std::vector<std::wstring>{L"Target path not valid: " + targetPath});
  bed.log.Clear();
  bed.settings.targetPath.clear();
  network.statuses.clear();
  EXPECT_EQ(Migrate(), hr::kTargetProfileInvalid);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Target path not reachable: \\\\srv\\profiles\\anna.V2"});
  EXPECT_FALSE(fs::exists(target()));
}

TEST_F(ProfileMigrationTest, AFinishedTargetIsNeverTouched) {
  Write(target() / "ntuser.dat", "finished");
  EXPECT_EQ(Migrate(), hr::kAlreadyExists);
  EXPECT_EQ(bed.log.messages(),
            (std::vector<std::wstring>{
                L"The target profile path already exists: \\\\srv\\profiles\\anna.V2",
                L"Failed to create the root profile folder (0x800700B7): "
                L"\\\\srv\\profiles\\anna.V2"}));
  EXPECT_EQ(testing::ReadWholeFile(target() / "ntuser.dat"), "finished");
  EXPECT_TRUE(profiles.created.empty());
}

TEST_F(ProfileMigrationTest, AnInterruptedTargetIsRebuilt) {
  Write(target() / "_qzk_mig_marker_", "");
  Write(target() / "half.txt", "half");
  EXPECT_EQ(Migrate(), hr::kOk) << Joined();
  EXPECT_TRUE(
      Logged(L"The target profile contains an interrupted migration, rebuilding "
             L"profile: \\\\srv\\profiles\\anna.V2"));
  EXPECT_FALSE(fs::exists(target() / "half.txt"));
  EXPECT_FALSE(fs::exists(target() / "_qzk_mig_marker_"));
  EXPECT_TRUE(fs::exists(target() / "Desktop" / "d.txt"));
}

// A run holds its target locked while it builds it, and lets go of it when it is finished.
TEST_F(ProfileMigrationTest, TheTargetIsLockedWhileItIsBuilt) {
  profiles.lockProbe = target();
  EXPECT_EQ(Migrate(), hr::kOk) << Joined();
  EXPECT_TRUE(profiles.probeFoundLocked);
  int lock = -1;
  EXPECT_EQ(posix::LockNativeFolder(target().string(), lock), err::kSuccess);
  ::close(lock);
}

// A marked target that a live run holds (here a lock on it taken as that run takes it) is
// neither rebuilt nor deleted: the profile fails with ERROR_SHARING_VIOLATION. Once that run has
// ended, the next run rebuilds it.
TEST_F(ProfileMigrationTest, ATargetALiveRunHoldsIsNeitherRebuiltNorDeleted) {
  Write(target() / "_qzk_mig_marker_", "");
  Write(target() / "half.txt", "half");
  int live = -1;
  ASSERT_EQ(posix::LockNativeFolder(target().string(), live), err::kSuccess);
  EXPECT_EQ(Migrate(), HResultFromWin32(err::kSharingViolation));
  EXPECT_EQ(bed.log.messages(),
            (std::vector<std::wstring>{
                L"The target profile is being migrated by another run: \\\\srv\\profiles\\anna.V2",
                L"Failed to create the root profile folder (0x80070020): "
                L"\\\\srv\\profiles\\anna.V2"}));
  EXPECT_EQ(testing::ReadWholeFile(target() / "half.txt"), "half");
  EXPECT_TRUE(fs::exists(target() / "_qzk_mig_marker_"));
  EXPECT_TRUE(profiles.created.empty());
  ::close(live);

  bed.log.Clear();
  EXPECT_EQ(Migrate(), hr::kOk) << Joined();
  EXPECT_TRUE(
      Logged(L"The target profile contains an interrupted migration, rebuilding "
             L"profile: \\\\srv\\profiles\\anna.V2"));
  EXPECT_FALSE(fs::exists(target() / "half.txt"));
  EXPECT_TRUE(fs::exists(target() / "Desktop" / "d.txt"));
}

TEST_F(ProfileMigrationTest, AnUnreadableSourceWithoutTakeOwnershipFails) {
  security.denied = kSource;
  EXPECT_EQ(Migrate(), hr::kAccessDenied);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed to get security descriptor for profile "
                                      L"(0x80070005): \\\\srv\\profiles\\anna"});
  EXPECT_FALSE(fs::exists(target()));
}

TEST_F(ProfileMigrationTest, AnUnreadableSourceIsTakenOverAndKeepsItsRealOwner) {
  bed.settings.takeOwnership = true;
  security.denied = kSource;
  EXPECT_EQ(Migrate(), hr::kOk) << Joined();
  // The temporary profile is made for the source's former owner, the copies carry it, and
  // source and target end with the source's former security.
  EXPECT_EQ(profiles.created, std::vector<std::wstring>{AnnaSid().ToString() + L"|_tarnwick_"});
  EXPECT_EQ(security.Object(std::wstring(kTarget) + L"\\AppData")->owner, AnnaSid());
  EXPECT_EQ(security.Object(kSource)->owner, AnnaSid());
  EXPECT_EQ(security.Object(kSource)->dacl, OwnedBy(AnnaSid()).dacl);
  EXPECT_EQ(security.Object(kTarget)->owner, AnnaSid());
  EXPECT_EQ(security.Object(kTarget)->dacl, OwnedBy(AnnaSid()).dacl);
}

TEST_F(ProfileMigrationTest, ASourceWithoutOwnerDeletesTheTargetAndStillReturnsZero) {
  security::SecurityDescriptor ownerless = OwnedBy(AnnaSid());
  ownerless.owner.reset();
  security.SetObject(kSource, ownerless);
  EXPECT_EQ(Migrate(), hr::kOk);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed to get owner sid of source profile folder "
                                      L"(0x00000000): \\\\srv\\profiles\\anna"});
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_TRUE(profiles.created.empty());
}

TEST_F(ProfileMigrationTest, CreateProfileUnboundOrFailingDeletesTheTarget) {
  bed.fake.offreg().CreateProfile = nullptr;
  EXPECT_EQ(Migrate(), HResult{1});
  EXPECT_EQ(bed.log.messages(), std::vector<std::wstring>{L"Failed creating profile (0x00000001)"});
  EXPECT_FALSE(fs::exists(target()));
  bed.log.Clear();
  bed.fake.offreg().CreateProfile = &FakeCreateProfile;
  profiles.createResult = hr::kAccessDenied;
  EXPECT_EQ(Migrate(), hr::kAccessDenied);
  EXPECT_EQ(bed.log.messages(), std::vector<std::wstring>{L"Failed creating profile (0x80070005)"});
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_TRUE(profiles.deleted.empty());
}

TEST_F(ProfileMigrationTest, AFailingDefaultProfileCopyDeletesTargetAndTemporaryProfile) {
  profiles.createPath = WinPath(bed.folder.path() / "nowhere");
  EXPECT_EQ(Migrate(), HResultFromWin32(err::kPathNotFound));
  const std::wstring nowhere = profiles.createPath;
  EXPECT_TRUE(Logged(L"Failed enumerating folder(0x80070003): " + nowhere + L"\\*"));
  EXPECT_TRUE(Logged(L"Failed to copy the default profile (0x80070003 - " + nowhere +
                     L"): \\\\srv\\profiles\\anna.V2"));
  EXPECT_TRUE(Logged(L"Deleted temporary profile: " + nowhere));
  EXPECT_FALSE(fs::exists(target()));
}

TEST_F(ProfileMigrationTest, AnEmptyTemporaryProfilePathIsCodeThree) {
  profiles.createWritesPath = false;
  EXPECT_EQ(Migrate(), HResult{3});
  EXPECT_TRUE(
      Logged(L"Failed to copy the default profile (0x00000003 - ): "
             L"\\\\srv\\profiles\\anna.V2"));
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_TRUE(profiles.deleted.empty());  // nothing to delete
}

TEST_F(ProfileMigrationTest, AFailedUserProfileMigrationKeepsTheTemporaryProfile) {
  fs::remove(source() / "ntuser.dat");
  EXPECT_EQ(Migrate(), HResultFromWin32(err::kFileNotFound));
  EXPECT_EQ(bed.log.messages().back(),
            L"Failed to migrate the user profile (0x80070002): \\\\srv\\profiles\\anna");
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_TRUE(fs::exists(profiles.profileFolder / "NTUSER.DAT"));
  EXPECT_TRUE(profiles.deleted.empty());
}

TEST_F(ProfileMigrationTest, AFailingDeleteProfileFailsAnOtherwiseSuccessfulMigration) {
  profiles.deleteResult = 0;
  profiles.deleteError = err::kSharingViolation;
  EXPECT_EQ(Migrate(), HResultFromWin32(err::kSharingViolation));
  EXPECT_EQ(bed.log.messages().back(), L"Failed deleting (0x80070020): " + Temporary());
  EXPECT_TRUE(fs::exists(target() / "Desktop" / "d.txt"));
  EXPECT_FALSE(fs::exists(target() / "_qzk_mig_marker_"));
}

TEST_F(ProfileMigrationTest, AnUnboundDeleteProfileFailsTheMigration) {
  bed.fake.offreg().DeleteProfileW = nullptr;
  EXPECT_EQ(Migrate(), HResultFromWin32(err::kProcNotFound));
  EXPECT_EQ(bed.log.messages().back(), L"Failed deleting (0x8007007F): " + Temporary());
  EXPECT_FALSE(fs::exists(profiles.profileFolder));
}

TEST_F(ProfileMigrationTest, AFailedTargetRestoreIsTheResultAndTheSourceRestoreOnlyLogs) {
  bed.settings.takeOwnership = true;
  security.denied = kSource;
  security.FailOn(SecurityOp::kWriteDacl, kTarget, err::kAccessDenied);
  EXPECT_EQ(Migrate(), hr::kAccessDenied);
  EXPECT_EQ(bed.log.messages().back(), L"Deleted temporary profile: " + Temporary());
  EXPECT_TRUE(
      Logged(L"Failed to restore security on user profile (0x80070005): "
             L"\\\\srv\\profiles\\anna.V2"));
  EXPECT_TRUE(fs::exists(target() / "Desktop" / "d.txt"));
}

// A source taken over gets its security back exactly once on every way out: after the target
// was deleted again on a failure, before the temporary profile is deleted, and on success after
// the marker is gone and before the target gets the kept security.
TEST_F(ProfileMigrationTest, ATakenOverSourceIsRestoredWhereEachWayOutSaysSo) {
  bed.settings.takeOwnership = true;
  security.denied = kSource;
  struct AtRestore {
    bool targetThere = false;
    bool markerThere = false;
    std::wstring lastLine;
  };
  std::vector<AtRestore> restores;
  security.onRestore = [&] {
    restores.push_back({fs::exists(target()), fs::exists(target() / "_qzk_mig_marker_"),
                        bed.log.messages().empty() ? L"" : bed.log.messages().back()});
  };
  const auto migrateOnce = [&] {
    restores.clear();
    bed.log.Clear();
    security.SetObject(kSource, OwnedBy(AnnaSid()));
    return Migrate();
  };

  // Success: the marker is gone, the target still has the running user's security.
  EXPECT_EQ(migrateOnce(), hr::kOk) << Joined();
  ASSERT_EQ(restores.size(), 1u);
  EXPECT_TRUE(restores[0].targetThere);
  EXPECT_FALSE(restores[0].markerThere);
  EXPECT_NE(restores[0].lastLine.rfind(L"Deleted temporary profile", 0), 0u);
  EXPECT_EQ(bed.log.messages().back(), L"Deleted temporary profile: " + Temporary());
  std::size_t sourceRestore = 0;
  std::size_t targetRestore = 0;
  for (std::size_t i = 0; i < security.writes().size(); ++i) {
    const auto& [path, write] = security.writes()[i];
    if (!write.writeOwner || write.owner != AnnaSid()) continue;
    if (path == kSource) sourceRestore = i;
    if (path == kTarget) targetRestore = i;
  }
  EXPECT_LT(sourceRestore, targetRestore);

  // Step 6 (a finished target): right after its line.
  EXPECT_EQ(migrateOnce(), hr::kAlreadyExists);
  ASSERT_EQ(restores.size(), 1u);
  EXPECT_EQ(restores[0].lastLine.rfind(L"Failed to create the root profile folder", 0), 0u);
  fs::remove_all(target());

  // Step 9: after the target is deleted again.
  profiles.createResult = hr::kAccessDenied;
  EXPECT_EQ(migrateOnce(), hr::kAccessDenied);
  ASSERT_EQ(restores.size(), 1u);
  EXPECT_FALSE(restores[0].targetThere);
  EXPECT_EQ(restores[0].lastLine, L"Failed creating profile (0x80070005)");
  profiles.createResult = hr::kOk;

  // Step 10: after the target is deleted, before the temporary profile is.
  profiles.createPath = WinPath(bed.folder.path() / "nowhere");
  EXPECT_EQ(migrateOnce(), static_cast<HResult>(0x80070003u));
  ASSERT_EQ(restores.size(), 1u);
  EXPECT_FALSE(restores[0].targetThere);
  EXPECT_EQ(restores[0].lastLine.rfind(L"Failed to copy the default profile", 0), 0u);
  EXPECT_EQ(bed.log.messages().back(), L"Deleted temporary profile: " + profiles.createPath);
  profiles.createPath.clear();
  fs::remove_all(profiles.profileFolder);

  // Step 11: after the target is deleted; the temporary profile stays.
  fs::remove(source() / "ntuser.dat");
  EXPECT_EQ(migrateOnce(), static_cast<HResult>(0x80070002u));
  ASSERT_EQ(restores.size(), 1u);
  EXPECT_FALSE(restores[0].targetThere);
  EXPECT_EQ(restores[0].lastLine.rfind(L"Failed to migrate the user profile", 0), 0u);
  EXPECT_EQ(bed.log.messages().back(), restores[0].lastLine);
  EXPECT_EQ(security.Object(kSource)->owner, AnnaSid());
}

// Over the fakes: a marker that cannot be created is only logged, and a source whose attributes
// cannot be read for lack of access still passes the source test.
TEST(ProfileMigrationFakes, MarkerFailureOnlyLogsAndADeniedSourcePassesValidation) {
  testing::ProfileTestBed bed;
  ProfileCalls profiles;
  profiles.createResult = hr::kFail;
  calls = &profiles;
  bed.fake.offreg().CreateProfile = &FakeCreateProfile;
  bed.files.AddFolder(L"\\\\srv\\profiles\\anna");
  bed.security.SetObject(L"\\\\srv\\profiles\\anna", OwnedBy(AnnaSid()));
  bed.files.FailPath(testing::FileOp::kGetAttributes, L"\\\\srv\\profiles\\anna",
                     err::kAccessDenied);
  bed.files.FailOperation(testing::FileOp::kOpen, err::kAccessDenied);
  std::wstring target;
  EXPECT_EQ(MigrateProfile(bed.context, L"\\\\srv\\profiles\\anna", 1, target, 2), hr::kFail);
  EXPECT_EQ(bed.log.messages(),
            (std::vector<std::wstring>{L"Failed to create marker file (0x80070005)",
                                       L"Failed creating profile (0x80004005)"}));
  EXPECT_FALSE(bed.files.PathExists(L"\\\\srv\\profiles\\anna.V2"));
  calls = nullptr;
}

// Over the fakes: a marked target whose lock another run holds fails the profile with
// ERROR_SHARING_VIOLATION before anything is made or deleted; its lock free, it is rebuilt.
TEST(ProfileMigrationFakes, ALockedTargetFailsWithSharingViolationAndAFreeOneIsRebuilt) {
  testing::ProfileTestBed bed;
  ProfileCalls profiles;
  profiles.createResult = hr::kFail;
  calls = &profiles;
  bed.fake.offreg().CreateProfile = &FakeCreateProfile;
  const std::wstring marker = L"\\\\srv\\profiles\\anna.V2\\_qzk_mig_marker_";
  bed.files.AddFolder(L"\\\\srv\\profiles\\anna");
  bed.security.SetObject(L"\\\\srv\\profiles\\anna", OwnedBy(AnnaSid()));
  bed.files.AddFolder(L"\\\\srv\\profiles\\anna.V2");
  bed.files.SetFile(marker, "", file_attr::kReadOnly | file_attr::kHidden);
  bed.files.SetFile(L"\\\\srv\\profiles\\anna.V2\\ntuser.dat", "half");
  bed.files.HoldLockElsewhere(marker);
  std::wstring target;
  EXPECT_EQ(MigrateProfile(bed.context, L"\\\\srv\\profiles\\anna", 1, target, 2),
            HResultFromWin32(err::kSharingViolation));
  EXPECT_EQ(bed.files.Calls(testing::FileOp::kDeleteTree), 0);
  EXPECT_EQ(bed.files.Calls(testing::FileOp::kDeleteFile), 0);
  EXPECT_EQ(bed.files.FileContent(L"\\\\srv\\profiles\\anna.V2\\ntuser.dat"), "half");
  EXPECT_TRUE(bed.files.HasFile(marker));
  EXPECT_TRUE(profiles.created.empty());

  bed.files.ReleaseLockElsewhere(marker);
  bed.log.Clear();
  EXPECT_EQ(MigrateProfile(bed.context, L"\\\\srv\\profiles\\anna", 1, target, 2), hr::kFail);
  EXPECT_EQ(bed.log.messages(),
            (std::vector<std::wstring>{L"The target profile contains an interrupted migration, "
                                       L"rebuilding profile: \\\\srv\\profiles\\anna.V2",
                                       L"Failed creating profile (0x80004005)"}));
  EXPECT_EQ(profiles.created.size(), 1u);
  // The marker was made under this run's lock, held until the target was deleted again.
  EXPECT_EQ(bed.files.Opens(CreationDisposition::kCreateAlways), 1);
  EXPECT_FALSE(bed.files.PathExists(L"\\\\srv\\profiles\\anna.V2"));
  EXPECT_FALSE(bed.files.IsLocked(marker));
  EXPECT_EQ(bed.files.OpenHandles(), 0);
  calls = nullptr;
}

TEST(ProfileMigrationFakes, NoBackslashInTheSourceFailsFirst) {
  testing::ProfileTestBed bed;
  std::wstring target = L"kept";
  EXPECT_EQ(MigrateProfile(bed.context, L"anna", 1, target, 2), hr::kFail);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed to get target path (0x80004005)"});
}

}  // namespace
}  // namespace tw
