// Case resolution of Linux paths: a path that exists as written comes back unchanged (one check
// for the whole path), and every other path is resolved component by component as before.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "fakes/temp_folder.h"
#include "platform/posix/native_path.h"

namespace tw::posix {
namespace {

namespace fs = std::filesystem;

class NameCaseResolutionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    temp_.WriteFile("Profiles/Alice/Documents/letter.txt", "letter");
    fs::create_directory_symlink(temp_.path() / "Profiles" / "Alice", temp_.path() / "link");
  }
  std::string Root() const { return temp_.path().string(); }

  testing::TempFolder temp_;
};

TEST_F(NameCaseResolutionTest, ExistingPathComesBackAsWritten) {
  const std::string exact = Root() + "/Profiles/Alice/Documents/letter.txt";
  EXPECT_EQ(ResolveNameCase(exact), exact);
  EXPECT_EQ(ResolveNameCase(Root() + "/Profiles/Alice/"), Root() + "/Profiles/Alice/");
  EXPECT_EQ(ResolveNameCase(Root() + "/Profiles/./Alice/../Alice"),
            Root() + "/Profiles/./Alice/../Alice");
  EXPECT_EQ(ResolveNameCase(Root() + "/link/Documents"), Root() + "/link/Documents");
}

TEST_F(NameCaseResolutionTest, OtherCaseIsResolvedToTheEntries) {
  EXPECT_EQ(ResolveNameCase(Root() + "/PROFILES/alice/documents/LETTER.TXT"),
            Root() + "/Profiles/Alice/Documents/letter.txt");
  EXPECT_EQ(ResolveNameCase(Root() + "/LINK/documents/"), Root() + "/link/Documents/");
}

TEST_F(NameCaseResolutionTest, EmptyComponentsAreDroppedEvenWhenThePathExists) {
  EXPECT_EQ(ResolveNameCase(Root() + "/Profiles//Alice"), Root() + "/Profiles/Alice");
}

TEST_F(NameCaseResolutionTest, MissingRestIsKeptAsGiven) {
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/alice/New/SUB"),
            Root() + "/Profiles/Alice/New/SUB");
}

}  // namespace
}  // namespace tw::posix
