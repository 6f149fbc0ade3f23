// libFuzzer target for the hive engine: no input may crash, hang or read outside itself.
//
// An input is a hive file, or a hive with its transaction logs in the container of
// fuzz_input.h. In memory, any hive the reader accepts must be written by the writer into a hive
// that passes the structural lint and reads back to the same tree (names, classes, times, flags,
// values, descriptors; a key without a descriptor is written with the default one), and the lint
// must survive any input. Each hive is tried as it is and, when it holds a base block, with its
// checksum made right, so that mutations of the base block's fields get past the checksum.
//
// Through the files, as the migration uses the engine: the hive and its logs are written into a
// private folder ("hive", "hive.LOG1", "hive.LOG2"), opened with OROpenHive, walked through the
// offline-registry functions (keys, classes, values, security), saved with ORSaveHive and the
// saved file opened again, which must walk to the same sums.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "hive/hive_lint.h"
#include "hive/hive_reader.h"
#include "hive/hive_writer.h"
#include "hive/offreg_api.h"
#include "hive/regf_layout.h"
#include "hive/security_parts.h"

namespace {

namespace hive = tw::hive;

// Stops with the failed condition and its line, so that a finding says what broke.
#define Require(condition) ((condition) ? void() : Fail(#condition, __LINE__))

[[noreturn]] void Fail(const char* condition, int line) {
  std::fprintf(stderr, "hive_reader_fuzz.cpp:%d: %s\n", line, condition);
  std::abort();
}

const hive::SecurityBytes& SecurityOf(const hive::Key& key) {
  return key.security ? *key.security : hive::DefaultSecurityDescriptor();
}

void RequireSameTree(const hive::Key& root, const hive::Key& copy) {
  std::vector<std::pair<const hive::Key*, const hive::Key*>> stack{{&root, &copy}};
  while (!stack.empty()) {
    const auto [a, b] = stack.back();
    stack.pop_back();
    Require(a->name == b->name);
    Require(a->className == b->className);
    Require(a->lastWriteTime == b->lastWriteTime);
    // Flag bits the format does not define are not saved.
    Require((a->flags & hive::regf::kNkDefinedFlags) == b->flags);
    Require(a->extraFlags == b->extraFlags);
    Require(SecurityOf(*a) == SecurityOf(*b));
    Require(a->values.size() == b->values.size());
    for (std::size_t i = 0; i < a->values.size(); ++i) {
      Require(a->values[i].name == b->values[i].name);
      Require(a->values[i].type == b->values[i].type);
      Require(a->values[i].data == b->values[i].data);
    }
    Require(a->children.size() == b->children.size());
    for (std::size_t i = 0; i < a->children.size(); ++i) {
      stack.emplace_back(a->children[i].get(), b->children[i].get());
    }
  }
}

void CheckHive(std::span<const std::uint8_t> input) {
  (void)hive::LintHive(input);
  hive::ReadResult read = hive::ParseHive(input);
  if (read.error != tw::err::kSuccess) {
    Require(!read.hive);
    return;
  }
  Require(read.hive && read.hive->root);
  const std::vector<std::uint8_t> written = hive::SerializeHive(*read.hive->root, 5, L"fuzz", 1);
  Require(hive::LintHive(written).problems.empty());
  hive::ReadResult again = hive::ParseHive(written);
  Require(again.error == tw::err::kSuccess);
  RequireSameTree(*read.hive->root, *again.hive->root);
}

void CheckInMemory(std::span<const std::uint8_t> input) {
  CheckHive(input);
  if (input.size() >= hive::regf::kBaseBlockSize) {
    std::vector<std::uint8_t> fixed(input.begin(), input.end());
    hive::regf::Put32(fixed.data() + hive::regf::kBaseChecksum,
                      hive::regf::BaseBlockChecksum(fixed.data()));
    if (!std::equal(fixed.begin(), fixed.end(), input.begin())) CheckHive(fixed);
  }
}

// A folder of this process's own under TMPDIR, removed at a normal exit (libFuzzer's own end of
// a run skips that: tools/run-fuzz.sh gives the target a TMPDIR of its own).
const std::filesystem::path& PrivateFolder() {
  static const std::filesystem::path folder = [] {
    std::random_device seed;
    std::filesystem::path path =
        std::filesystem::temp_directory_path() /
        ("tw-hive-fuzz-" + std::to_string(seed()) + std::to_string(seed()));
    std::filesystem::create_directories(path);
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(PrivateFolder(), ec);
    });
    return path;
  }();
  return folder;
}

void WriteFile(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  Require(static_cast<bool>(out));
}

// What a walk through the offline-registry functions saw: sums that a saved copy must repeat
// (security is read but not summed: a key without a descriptor is saved with the default one).
struct WalkSums {
  std::uint64_t keys = 0;
  std::uint64_t values = 0;
  std::uint64_t nameUnits = 0;
  std::uint64_t classUnits = 0;
  std::uint64_t dataBytes = 0;
  std::uint64_t dataSum = 0;
  bool operator==(const WalkSums&) const = default;
};

constexpr hive::DWORD kAllSecurity = 0x1 | 0x2 | 0x4 | 0x8;  // owner, group, DACL, SACL

// The levels below the root that the engine opens (Windows' own limit of a registry tree).
constexpr int kMaxOpenDepth = 512;

// Walks the key `depth` levels below the root.
void WalkKey(hive::ORHKEY key, WalkSums* sums, int depth) {
  hive::DWORD subKeys = 0;
  hive::DWORD maxSubKey = 0;
  hive::DWORD maxClass = 0;
  hive::DWORD values = 0;
  hive::DWORD maxValueName = 0;
  hive::DWORD maxValueData = 0;
  hive::DWORD securitySize = 0;
  hive::FILETIME time{};
  Require(hive::tw_ORQueryInfoKey(key, nullptr, nullptr, &subKeys, &maxSubKey, &maxClass, &values,
                                  &maxValueName, &maxValueData, &securitySize,
                                  &time) == tw::err::kSuccess);
  ++sums->keys;
  hive::DWORD size = 0;
  Require(hive::tw_ORGetKeySecurity(key, kAllSecurity, nullptr, &size) ==
          tw::err::kInsufficientBuffer);
  std::vector<std::uint8_t> security(size);
  Require(hive::tw_ORGetKeySecurity(key, kAllSecurity, security.data(), &size) ==
          tw::err::kSuccess);
  std::vector<wchar_t> name(std::max(maxSubKey, maxValueName) + 1);
  std::vector<wchar_t> className(maxClass + 1);
  std::vector<std::uint8_t> data(maxValueData + 1);
  for (hive::DWORD i = 0; i < values; ++i) {
    hive::DWORD nameSize = static_cast<hive::DWORD>(name.size());
    hive::DWORD type = 0;
    hive::DWORD dataSize = static_cast<hive::DWORD>(data.size());
    Require(hive::tw_OREnumValue(key, i, name.data(), &nameSize, &type, data.data(), &dataSize) ==
            tw::err::kSuccess);
    Require(dataSize <= maxValueData && nameSize <= maxValueName);
    ++sums->values;
    sums->nameUnits += nameSize;
    sums->dataBytes += dataSize;
    for (hive::DWORD b = 0; b < dataSize; ++b) sums->dataSum += data[b];
    // By name too (strings get their terminator; another value may have the same name but for
    // case, so the data is not compared): a name with a NUL character cannot be given.
    if (std::wstring(name.data(), nameSize).find(L'\0') != std::wstring::npos) continue;
    hive::DWORD got = 0;
    Require(hive::tw_ORGetValue(key, nullptr, name.data(), &type, nullptr, &got) ==
            tw::err::kSuccess);
    std::vector<std::uint8_t> value(got);
    Require(hive::tw_ORGetValue(key, nullptr, name.data(), &type, value.data(), &got) ==
            tw::err::kSuccess);
  }
  for (hive::DWORD i = 0; i < subKeys; ++i) {
    hive::DWORD nameSize = static_cast<hive::DWORD>(name.size());
    hive::DWORD classSize = static_cast<hive::DWORD>(className.size());
    Require(hive::tw_OREnumKey(key, i, name.data(), &nameSize, className.data(), &classSize,
                               &time) == tw::err::kSuccess);
    sums->nameUnits += nameSize;
    sums->classUnits += classSize;
    // A name that OROpenKey cannot be given (empty, or holding a NUL character or a path
    // separator, as only a damaged hive has): its tree is not walked.
    const std::wstring_view childName(name.data(), nameSize);
    if (childName.empty() ||
        childName.find_first_of(std::wstring_view(L"\0\\", 2)) != std::wstring_view::npos) {
      continue;
    }
    hive::ORHKEY child = nullptr;
    if (depth + 1 > kMaxOpenDepth) {  // deeper keys are read and saved, but never opened
      Require(hive::tw_OROpenKey(key, name.data(), &child) == tw::err::kInvalidParameter);
      continue;
    }
    Require(hive::tw_OROpenKey(key, name.data(), &child) == tw::err::kSuccess);
    WalkKey(child, sums, depth + 1);
    Require(hive::tw_ORCloseKey(child) == tw::err::kSuccess);
  }
}

// Opens, walks and closes a hive file; false when it does not open.
bool WalkFile(const std::filesystem::path& path, WalkSums* sums,
              const std::filesystem::path& save) {
  hive::ORHKEY root = nullptr;
  if (hive::tw_OROpenHive(path.wstring().c_str(), &root) != tw::err::kSuccess) return false;
  WalkKey(root, sums, 0);
  if (!save.empty()) {
    Require(hive::tw_ORSaveHive(root, save.wstring().c_str(), 6, 1) == tw::err::kSuccess);
  }
  Require(hive::tw_ORCloseHive(root) == tw::err::kSuccess);
  return true;
}

void CheckThroughFiles(const tw::fuzz::HiveWithLogs& input) {
  const std::filesystem::path& folder = PrivateFolder();
  const std::filesystem::path hivePath = folder / "hive";
  const std::filesystem::path logPaths[2] = {folder / "hive.LOG1", folder / "hive.LOG2"};
  const std::filesystem::path saved = folder / "saved";
  std::error_code ec;
  for (const auto& path : {hivePath, logPaths[0], logPaths[1], saved}) {
    std::filesystem::remove(path, ec);
  }
  WriteFile(hivePath, input.hive);
  for (int i = 0; i < 2; ++i) {
    if (input.logs[i]) WriteFile(logPaths[i], *input.logs[i]);
  }
  WalkSums opened;
  if (!WalkFile(hivePath, &opened, saved)) return;
  WalkSums reopened;
  Require(WalkFile(saved, &reopened, {}));
  Require(reopened == opened);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const tw::fuzz::HiveWithLogs input = tw::fuzz::SplitInput({data, size});
  CheckInMemory(input.hive);
  CheckThroughFiles(input);
  return 0;
}
