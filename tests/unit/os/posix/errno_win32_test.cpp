#include "os/posix/errno_win32.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace tw::posix {
namespace {

TEST(Win32ErrorFromErrno, MapsTheCommonFailures) {
  EXPECT_EQ(Win32ErrorFromErrno(0), err::kSuccess);
  EXPECT_EQ(Win32ErrorFromErrno(EACCES), err::kAccessDenied);
  EXPECT_EQ(Win32ErrorFromErrno(EPERM), err::kAccessDenied);
  EXPECT_EQ(Win32ErrorFromErrno(ENOENT), err::kFileNotFound);
  EXPECT_EQ(Win32ErrorFromErrno(ENOTDIR), err::kPathNotFound);
  EXPECT_EQ(Win32ErrorFromErrno(EEXIST), err::kFileExists);
  EXPECT_EQ(Win32ErrorFromErrno(ENOTEMPTY), err::kDirNotEmpty);
  EXPECT_EQ(Win32ErrorFromErrno(ENOSPC), err::kDiskFull);
  EXPECT_EQ(Win32ErrorFromErrno(EROFS), err::kWriteProtect);
  EXPECT_EQ(Win32ErrorFromErrno(EBADF), err::kInvalidHandle);
  EXPECT_EQ(Win32ErrorFromErrno(ENAMETOOLONG), err::kFilenameExcedRange);
  EXPECT_EQ(Win32ErrorFromErrno(EMFILE), err::kTooManyOpenFiles);
  EXPECT_EQ(Win32ErrorFromErrno(EINVAL), err::kInvalidParameter);
  EXPECT_EQ(Win32ErrorFromErrno(EILSEQ), err::kInvalidName);
}

TEST(Win32ErrorFromErrno, UnknownValuesAreAGeneralFailure) {
  EXPECT_EQ(Win32ErrorFromErrno(-12345), err::kGenFailure);
}

}  // namespace
}  // namespace tw::posix
