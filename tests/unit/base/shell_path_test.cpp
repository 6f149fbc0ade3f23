#include "base/shell_path.h"

#include <gtest/gtest.h>

#include <string>

namespace tw {
namespace {

std::wstring Combine(std::wstring_view dir, std::wstring_view file) {
  std::wstring dest = L"garbage";
  EXPECT_TRUE(PathCombineW(dest, dir, file)) << "dir: " << dir.size() << " file: " << file.size();
  return dest;
}

std::wstring Repeat(wchar_t c, std::size_t count) { return std::wstring(count, c); }

// PathCombineW

TEST(PathCombine, JoinsWithOneBackslash) {
  EXPECT_EQ(Combine(L"C:\\a", L"b"), L"C:\\a\\b");
  EXPECT_EQ(Combine(L"C:\\a\\", L"b"), L"C:\\a\\b");
  EXPECT_EQ(Combine(L"\\\\srv\\share", L"alice"), L"\\\\srv\\share\\alice");
}

TEST(PathCombine, DocumentedDriveExample) {
  EXPECT_EQ(Combine(L"C:", L"One\\Two\\Three"), L"C:\\One\\Two\\Three");
}

TEST(PathCombine, KeepsTrailingBackslashOfDirWhenFileEmpty) {
  EXPECT_EQ(Combine(L"C:\\a\\", L""), L"C:\\a\\");
  EXPECT_EQ(Combine(L"C:\\a", L""), L"C:\\a");
}

TEST(PathCombine, EmptyDirGivesFile) { EXPECT_EQ(Combine(L"", L"a\\b"), L"a\\b"); }

TEST(PathCombine, RemovesDotElements) {
  EXPECT_EQ(Combine(L"C:\\a\\.", L"b"), L"C:\\a\\b");
  EXPECT_EQ(Combine(L"C:\\a", L".\\b\\.\\c"), L"C:\\a\\b\\c");
  EXPECT_EQ(Combine(L"C:\\a", L"."), L"C:\\a");
}

TEST(PathCombine, DotDotRemovesPreviousElement) {
  EXPECT_EQ(Combine(L"C:\\a\\b", L"..\\c"), L"C:\\a\\c");
  EXPECT_EQ(Combine(L"C:\\a\\b", L".."), L"C:\\a");
  EXPECT_EQ(Combine(L"C:\\a\\b", L"..\\"), L"C:\\a\\");
  EXPECT_EQ(Combine(L"C:\\a", L".."), L"C:\\");
}

TEST(PathCombine, DotDotNeverRemovesRoot) {
  EXPECT_EQ(Combine(L"C:\\", L"..\\..\\x"), L"C:\\x");
  EXPECT_EQ(Combine(L"\\\\srv\\share", L"..\\x"), L"\\\\srv\\share\\x");
  EXPECT_EQ(Combine(L"\\\\srv\\share\\a", L"..\\.."), L"\\\\srv\\share");
}

TEST(PathCombine, UnresolvableDotDotInRelativePathLeavesBackslash) {
  EXPECT_EQ(Combine(L"..\\path1\\path2", L"path3"), L"\\path1\\path2\\path3");
}

TEST(PathCombine, EverythingResolvedAwayGivesBackslash) { EXPECT_EQ(Combine(L"a", L".."), L"\\"); }

TEST(PathCombine, BareDriveGetsItsBackslash) { EXPECT_EQ(Combine(L"C:", L""), L"C:\\"); }

TEST(PathCombine, LongUncRootIsKept) {
  EXPECT_EQ(Combine(L"\\\\?\\UNC\\srv\\share", L"..\\x"), L"\\\\?\\UNC\\srv\\share\\x");
}

TEST(PathCombine, EmptyElementsAreKept) {
  EXPECT_EQ(Combine(L"C:\\a\\\\b", L"c"), L"C:\\a\\\\b\\c");
}

TEST(PathCombine, TripleDotIsAnOrdinaryName) {
  EXPECT_EQ(Combine(L"C:\\a", L"...\\b"), L"C:\\a\\...\\b");
}

TEST(PathCombine, DriveRootedFileReplacesDir) {
  EXPECT_EQ(Combine(L"C:\\a\\b", L"D:\\x"), L"D:\\x");
  EXPECT_EQ(Combine(L"C:\\a\\b", L"C:\\x\\..\\y"), L"C:\\y");
}

TEST(PathCombine, UncFileReplacesDir) {
  EXPECT_EQ(Combine(L"C:\\a", L"\\\\srv\\share\\x"), L"\\\\srv\\share\\x");
}

TEST(PathCombine, BackslashRootedFileKeepsOnlyRootOfDir) {
  EXPECT_EQ(Combine(L"C:\\a\\b", L"\\x"), L"C:\\x");
  EXPECT_EQ(Combine(L"\\\\srv\\share\\a\\b", L"\\x"), L"\\\\srv\\share\\x");
  EXPECT_EQ(Combine(L"a\\b", L"\\x"), L"\\x");
}

TEST(PathCombine, DotsInsideNamesAreNotDotElements) {
  EXPECT_EQ(Combine(L"\\\\srv\\share\\user.V5", L"file.txt"), L"\\\\srv\\share\\user.V5\\file.txt");
  EXPECT_EQ(Combine(L"C:\\a.", L".b\\..c\\c.."), L"C:\\a.\\.b\\..c\\c..");
  EXPECT_EQ(Combine(L".x", L"y."), L".x\\y.");
}

TEST(PathCombine, LoneBackslashAfterUncRootGoes) {
  EXPECT_EQ(Combine(L"\\\\srv\\share\\", L""), L"\\\\srv\\share");
  EXPECT_EQ(Combine(L"\\\\srv\\share\\", L"x"), L"\\\\srv\\share\\x");
}

TEST(PathCombine, ForwardSlashIsAnOrdinaryCharacter) {
  EXPECT_EQ(Combine(L"C:\\a", L"b/c"), L"C:\\a\\b/c");
}

TEST(PathCombine, BothEmptyFailsAndEmptiesDest) {
  std::wstring dest = L"old";
  EXPECT_FALSE(PathCombineW(dest, L"", L""));
  EXPECT_TRUE(dest.empty());
}

TEST(PathCombine, ResultOf259CharactersFits) {
  const std::wstring dir = L"C:\\" + Repeat(L'a', 200);
  const std::wstring file = Repeat(L'b', 259 - dir.size() - 1);
  const std::wstring expected = dir + L"\\" + file;
  ASSERT_EQ(expected.size(), 259u);
  EXPECT_EQ(Combine(dir, file), expected);
}

TEST(PathCombine, ResultOf260CharactersFailsAndEmptiesDest) {
  const std::wstring dir = L"C:\\" + Repeat(L'a', 200);
  const std::wstring file = Repeat(L'b', 260 - dir.size() - 1);
  std::wstring dest = L"old";
  EXPECT_FALSE(PathCombineW(dest, dir, file));
  EXPECT_TRUE(dest.empty());
}

TEST(PathCombine, PartOfMaxPathLengthFails) {
  std::wstring dest;
  EXPECT_FALSE(PathCombineW(dest, Repeat(L'a', kMaxPath), L""));
  EXPECT_FALSE(PathCombineW(dest, L"", Repeat(L'a', kMaxPath)));
  EXPECT_TRUE(PathCombineW(dest, Repeat(L'a', kMaxPath - 1), L""));
}

TEST(PathCombine, TooLongBeforeCanonicalisingFails) {
  // Joined text is 263 characters although the canonical result would be short.
  const std::wstring file = Repeat(L'b', 250) + L"\\..\\x";
  std::wstring dest = L"old";
  EXPECT_FALSE(PathCombineW(dest, L"C:\\a", file));
  EXPECT_TRUE(dest.empty());
}

TEST(PathCombine, DestMayAliasDir) {
  std::wstring path = L"C:\\a";
  EXPECT_TRUE(PathCombineW(path, path, L"b"));
  EXPECT_EQ(path, L"C:\\a\\b");
}

// PathAppendW

TEST(PathAppend, InsertsBackslash) {
  std::wstring path = L"name_1\\name_2";
  EXPECT_TRUE(PathAppendW(path, L"name_3"));
  EXPECT_EQ(path, L"name_1\\name_2\\name_3");
}

TEST(PathAppend, DoesNotDoubleExistingBackslash) {
  std::wstring path = L"C:\\a\\";
  EXPECT_TRUE(PathAppendW(path, L"b"));
  EXPECT_EQ(path, L"C:\\a\\b");
}

TEST(PathAppend, BackslashLedMoreIsAppendedBelowPath) {
  std::wstring path = L"\\\\srv\\share\\alice";
  EXPECT_TRUE(PathAppendW(path, L"\\ntuser.dat"));
  EXPECT_EQ(path, L"\\\\srv\\share\\alice\\ntuser.dat");
  std::wstring other = L"C:\\a\\";
  EXPECT_TRUE(PathAppendW(other, L"\\b"));
  EXPECT_EQ(other, L"C:\\a\\b");
}

TEST(PathAppend, DocumentedLeadingDotDotIsStripped) {
  std::wstring path = L"..\\path1\\path2";
  EXPECT_TRUE(PathAppendW(path, L"path3"));
  EXPECT_EQ(path, L"\\path1\\path2\\path3");
}

TEST(PathAppend, CanonicalisesDotDot) {
  std::wstring path = L"C:\\Documents\\Text";
  EXPECT_TRUE(PathAppendW(path, L"..\\Test.txt"));
  EXPECT_EQ(path, L"C:\\Documents\\Test.txt");
}

TEST(PathAppend, UncOrDriveMoreReplacesPath) {
  std::wstring path = L"C:\\a";
  EXPECT_TRUE(PathAppendW(path, L"\\\\srv\\share"));
  EXPECT_EQ(path, L"\\\\srv\\share");
  path = L"C:\\a";
  EXPECT_TRUE(PathAppendW(path, L"D:\\x"));
  EXPECT_EQ(path, L"D:\\x");
}

TEST(PathAppend, TooLongFailsAndLeavesPathUnchanged) {
  const std::wstring original = L"C:\\" + Repeat(L'a', 250);
  std::wstring path = original;
  EXPECT_FALSE(PathAppendW(path, Repeat(L'b', 10)));
  EXPECT_EQ(path, original);
}

TEST(PathAppend, ExactlyFillingMaxPathSucceeds) {
  std::wstring path = L"C:\\" + Repeat(L'a', 250);  // 253
  EXPECT_TRUE(PathAppendW(path, Repeat(L'b', 5)));  // 253 + 1 + 5 = 259
  EXPECT_EQ(path.size(), 259u);
}

// PathAddBackslashW

TEST(PathAddBackslash, AddsMissingBackslash) {
  std::wstring path = L"C:\\Documents";
  EXPECT_TRUE(PathAddBackslashW(path));
  EXPECT_EQ(path, L"C:\\Documents\\");
}

TEST(PathAddBackslash, KeepsExistingBackslash) {
  std::wstring path = L"C:\\Documents\\";
  EXPECT_TRUE(PathAddBackslashW(path));
  EXPECT_EQ(path, L"C:\\Documents\\");
}

TEST(PathAddBackslash, EmptyPathStaysEmpty) {
  std::wstring path;
  EXPECT_TRUE(PathAddBackslashW(path));
  EXPECT_TRUE(path.empty());
}

TEST(PathAddBackslash, PathOf258CharactersGrowsTo259) {
  std::wstring path = Repeat(L'a', 258);
  EXPECT_TRUE(PathAddBackslashW(path));
  EXPECT_EQ(path.size(), 259u);
  EXPECT_EQ(path.back(), L'\\');
}

TEST(PathAddBackslash, PathOf259CharactersHasNoRoomForTerminator) {
  const std::wstring original = Repeat(L'a', 259);
  std::wstring path = original;
  EXPECT_FALSE(PathAddBackslashW(path));
  EXPECT_EQ(path, original);
}

TEST(PathAddBackslash, LengthTestComesBeforeTrailingBackslashTest) {
  std::wstring path = Repeat(L'a', 258) + L"\\";
  EXPECT_FALSE(PathAddBackslashW(path));
  EXPECT_EQ(path.size(), 259u);
}

// PathRemoveFileSpecW

TEST(PathRemoveFileSpec, RemovesLastElement) {
  std::wstring path = L"C:\\a\\b";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"C:\\a");
}

TEST(PathRemoveFileSpec, KeepsDriveRootBackslash) {
  std::wstring path = L"C:\\a";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"C:\\");
}

TEST(PathRemoveFileSpec, DriveRootIsUnchanged) {
  std::wstring path = L"C:\\";
  EXPECT_FALSE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"C:\\");
}

TEST(PathRemoveFileSpec, UncPathKeepsServerAndShare) {
  std::wstring path = L"\\\\srv\\share\\x";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"\\\\srv\\share");
}

TEST(PathRemoveFileSpec, UncShareLeavesServer) {
  std::wstring path = L"\\\\srv\\share";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"\\\\srv");
}

TEST(PathRemoveFileSpec, UncServerLeavesDoubleBackslash) {
  std::wstring path = L"\\\\srv";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"\\\\");
  EXPECT_FALSE(PathRemoveFileSpecW(path));
}

TEST(PathRemoveFileSpec, TrailingBackslashIsRemoved) {
  std::wstring path = L"C:\\a\\";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"C:\\a");
}

TEST(PathRemoveFileSpec, WildcardElementIsRemoved) {
  std::wstring path = L"\\\\srv\\profiles\\*.v2";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"\\\\srv\\profiles");
}

TEST(PathRemoveFileSpec, BareNameBecomesEmpty) {
  std::wstring path = L"file.txt";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_TRUE(path.empty());
  EXPECT_FALSE(PathRemoveFileSpecW(path));
}

TEST(PathRemoveFileSpec, RootBackslashIsKept) {
  std::wstring path = L"\\a";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"\\");
  EXPECT_FALSE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"\\");
}

TEST(PathRemoveFileSpec, DriveRelativeKeepsDrive) {
  std::wstring path = L"C:a";
  EXPECT_TRUE(PathRemoveFileSpecW(path));
  EXPECT_EQ(path, L"C:");
}

// PathStripPathW

TEST(PathStripPath, KeepsFileName) {
  std::wstring path = L"c:\\dir1\\file.txt";
  PathStripPathW(path);
  EXPECT_EQ(path, L"file.txt");
}

TEST(PathStripPath, TrailingBackslashFolderKeepsItsBackslash) {
  std::wstring path = L"c:\\dir1\\dir2\\";
  PathStripPathW(path);
  EXPECT_EQ(path, L"dir2\\");
}

TEST(PathStripPath, ModulePathGivesExecutableName) {
  std::wstring path = L"Z:\\opt\\tool\\tarnwick.exe";
  PathStripPathW(path);
  EXPECT_EQ(path, L"tarnwick.exe");
}

TEST(PathStripPath, NameWithoutFolderIsUnchanged) {
  std::wstring path = L"file.txt";
  PathStripPathW(path);
  EXPECT_EQ(path, L"file.txt");
}

TEST(PathStripPath, DriveRootIsUnchanged) {
  std::wstring path = L"C:\\";
  PathStripPathW(path);
  EXPECT_EQ(path, L"C:\\");
}

TEST(PathStripPath, ColonSeparatesDriveRelativeName) {
  std::wstring path = L"C:file";
  PathStripPathW(path);
  EXPECT_EQ(path, L"file");
}

// PathFindExtensionW and PathRemoveExtensionW

TEST(PathFindExtension, FindsLastDotOfLastElement) {
  const std::wstring_view path = L"C:\\a\\x.V2";
  EXPECT_EQ(path.substr(PathFindExtensionW(path)), L".V2");
  EXPECT_EQ(PathFindExtensionW(L"x.V2"), 1u);
  EXPECT_EQ(PathFindExtensionW(L"a.tar.gz"), 5u);
}

TEST(PathFindExtension, DotInFolderNameIsNoExtension) {
  const std::wstring_view path = L"C:\\a.b\\c";
  EXPECT_EQ(PathFindExtensionW(path), path.size());
}

TEST(PathFindExtension, SpaceEndsExtension) {
  const std::wstring_view path = L"C:\\a.b c";
  EXPECT_EQ(PathFindExtensionW(path), path.size());
}

TEST(PathFindExtension, TrailingDotIsAnEmptyExtension) {
  EXPECT_EQ(PathFindExtensionW(L"file."), 4u);
}

TEST(PathFindExtension, LeadingDotNameIsAllExtension) {
  EXPECT_EQ(PathFindExtensionW(L"C:\\.hidden"), 3u);
}

TEST(PathFindExtension, EmptyPath) { EXPECT_EQ(PathFindExtensionW(L""), 0u); }

TEST(PathRemoveExtension, RemovesExtensionWithDot) {
  std::wstring path = L"Z:\\opt\\tarnwick.exe";
  PathRemoveExtensionW(path);
  EXPECT_EQ(path, L"Z:\\opt\\tarnwick");
}

TEST(PathRemoveExtension, NoExtensionIsUnchanged) {
  std::wstring path = L"C:\\a.b\\c";
  PathRemoveExtensionW(path);
  EXPECT_EQ(path, L"C:\\a.b\\c");
}

// PathIsUNCW

TEST(PathIsUNC, TwoBackslashesAreUnc) {
  EXPECT_TRUE(PathIsUNCW(L"\\\\a\\b"));
  EXPECT_TRUE(PathIsUNCW(L"\\\\a"));
  EXPECT_TRUE(PathIsUNCW(L"\\\\"));
}

TEST(PathIsUNC, LongUncPrefixIsUnc) { EXPECT_TRUE(PathIsUNCW(L"\\\\?\\UNC\\a\\b")); }

TEST(PathIsUNC, LongDrivePrefixIsNotUnc) { EXPECT_FALSE(PathIsUNCW(L"\\\\?\\C:\\a")); }

TEST(PathIsUNC, ForwardSlashesAreNotUnc) { EXPECT_FALSE(PathIsUNCW(L"//a/b")); }

TEST(PathIsUNC, LocalAndRelativePathsAreNotUnc) {
  EXPECT_FALSE(PathIsUNCW(L"C:\\a"));
  EXPECT_FALSE(PathIsUNCW(L"\\a"));
  EXPECT_FALSE(PathIsUNCW(L""));
}

// PathStripToRootW

TEST(PathStripToRoot, UncPathKeepsServerAndShare) {
  std::wstring path = L"\\\\fileserver\\profiles\\alice\\x.txt";
  EXPECT_TRUE(PathStripToRootW(path));
  EXPECT_EQ(path, L"\\\\fileserver\\profiles");
}

TEST(PathStripToRoot, DrivePathKeepsDriveRoot) {
  std::wstring path = L"C:\\path1\\path2\\file";
  EXPECT_TRUE(PathStripToRootW(path));
  EXPECT_EQ(path, L"C:\\");
}

TEST(PathStripToRoot, BackslashPathKeepsBackslash) {
  std::wstring path = L"\\path1";
  EXPECT_TRUE(PathStripToRootW(path));
  EXPECT_EQ(path, L"\\");
}

TEST(PathStripToRoot, RootIsAlreadyRoot) {
  std::wstring path = L"\\\\srv\\share";
  EXPECT_TRUE(PathStripToRootW(path));
  EXPECT_EQ(path, L"\\\\srv\\share");
}

TEST(PathStripToRoot, RelativePathFails) {
  std::wstring path = L"a\\b";
  EXPECT_FALSE(PathStripToRootW(path));
  EXPECT_TRUE(path.empty());
}

TEST(PathStripToRoot, LongPrefixIsNotUnderstood) {
  // Only the newer path functions know "\\?\"; the classic one stops at the first element that
  // looks like a server.
  std::wstring path = L"\\\\?\\UNC\\srv\\share\\x";
  EXPECT_TRUE(PathStripToRootW(path));
  EXPECT_EQ(path, L"\\\\?\\UNC");
}

TEST(PathStripToRoot, BareDriveFails) {
  std::wstring path = L"C:";
  EXPECT_FALSE(PathStripToRootW(path));
  EXPECT_EQ(path, L"C:");
}

}  // namespace
}  // namespace tw
