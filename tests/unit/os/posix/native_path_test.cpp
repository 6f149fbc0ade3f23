#include "os/posix/paths/native_path.h"

#include <gtest/gtest.h>

#include <string>

namespace tw::posix {
namespace {

std::string Native(std::wstring_view path) {
  std::string native = "unchanged";
  err::Win32Error error{12345};
  EXPECT_TRUE(ToNativePath(path, native, error)) << "error " << error;
  EXPECT_EQ(error, err::kSuccess);
  return native;
}

err::Win32Error Failure(std::wstring_view path) {
  std::string native;
  err::Win32Error error = err::kSuccess;
  EXPECT_FALSE(ToNativePath(path, native, error));
  return error;
}

TEST(ToNativePath, DriveZIsTheLinuxRoot) {
  EXPECT_EQ(Native(L"Z:\\tmp\\x"), "/tmp/x");
  EXPECT_EQ(Native(L"z:\\tmp\\x\\tarnwick"), "/tmp/x/tarnwick");
  EXPECT_EQ(Native(L"Z:/tmp/x"), "/tmp/x");
  EXPECT_EQ(Native(L"Z:\\"), "/");
  EXPECT_EQ(Native(L"Z:"), "/");
  EXPECT_EQ(Native(L"Z:\\tmp\\dir\\"), "/tmp/dir/");
  EXPECT_EQ(Native(L"Z:relative\\x"), "relative/x");
}

TEST(ToNativePath, RootedPathIsOnTheCurrentDriveZ) { EXPECT_EQ(Native(L"\\tmp\\x"), "/tmp/x"); }

TEST(ToNativePath, LongPathPrefixIsRemoved) {
  EXPECT_EQ(Native(L"\\\\?\\Z:\\tmp\\x"), "/tmp/x");
  EXPECT_EQ(Failure(L"\\\\?\\UNC\\server\\share\\x"), err::kBadNetPath);
}

TEST(ToNativePath, PosixPathsStandAsTheyAre) {
  EXPECT_EQ(Native(L"/tmp/x/config.xml"), "/tmp/x/config.xml");
  EXPECT_EQ(Native(L"conf/x.xml"), "conf/x.xml");
  EXPECT_EQ(Native(L"x.xml"), "x.xml");
}

TEST(ToNativePath, RelativeWindowsPathsUseEitherSeparator) {
  // As the bare "*" source builds them: each profile's hive is found below the current folder.
  EXPECT_EQ(Native(L"alice\\ntuser.dat"), "alice/ntuser.dat");
  EXPECT_EQ(Native(L"alice\\sub/x"), "alice/sub/x");
  EXPECT_EQ(Native(L"..\\x"), "../x");
  // A POSIX absolute path keeps a backslash as part of a name.
  EXPECT_EQ(Native(L"/tmp/a\\b"), "/tmp/a\\b");
}

TEST(ToNativePath, TextIsUtf8) {
  EXPECT_EQ(Native(L"Z:\\tmp\\caf\u00e9\\\u20ac"), "/tmp/caf\xc3\xa9/\xe2\x82\xac");
}

TEST(ToNativePath, OtherDrivesAndEmptyPathsAreNotFound) {
  EXPECT_EQ(Failure(L"C:\\Windows"), err::kPathNotFound);
  EXPECT_EQ(Failure(L"c:"), err::kPathNotFound);
  EXPECT_EQ(Failure(L""), err::kPathNotFound);
}

TEST(ToNativePath, EmbeddedNulIsAnInvalidName) {
  EXPECT_EQ(Failure(std::wstring_view(L"Z:\\a\0b", 6)), err::kInvalidName);
}

TEST(ToNativePath, UncPathOnAServerTheShareMapDoesNotListIsBadNetPath) {
  EXPECT_EQ(Failure(L"\\\\server\\share\\profile"), err::kBadNetPath);
}

TEST(ToWindowsPath, AbsolutePathsAreOnDriveZ) {
  EXPECT_EQ(ToWindowsPath("/tmp/x/tarnwick"), L"Z:\\tmp\\x\\tarnwick");
  EXPECT_EQ(ToWindowsPath("/"), L"Z:\\");
  EXPECT_EQ(ToWindowsPath("/tmp/caf\xc3\xa9"), L"Z:\\tmp\\caf\u00e9");
}

TEST(ToWindowsPath, RelativePathsStayRelative) {
  EXPECT_EQ(ToWindowsPath("a/b"), L"a\\b");
  EXPECT_EQ(ToWindowsPath(""), L"");
}

TEST(ToWindowsPath, RoundTripsThroughToNativePath) {
  for (const char* native : {"/tmp/x/tarnwick", "/", "/srv/profiles/User One.V2"}) {
    EXPECT_EQ(Native(ToWindowsPath(native)), native);
  }
}

}  // namespace
}  // namespace tw::posix
