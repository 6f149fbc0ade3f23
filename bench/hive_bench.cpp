// The hive engine's benchmark program (see README.md beside this file).
//
//   hive_bench generate OUT   writes a hive of 100,000 keys and 300,000 values through the
//                             engine: 100 keys under the root, 999 sub keys under each, and
//                             three values (REG_SZ, REG_DWORD, REG_BINARY) on every key but the
//                             root
//   hive_bench walk IN OUT    OROpenHive(IN), a walk over every key (OREnumKey, OROpenKey,
//                             ORQueryInfoKey) that reads every value (OREnumValue with its
//                             data), then ORSaveHive(OUT); prints the counts and the time of
//                             each phase
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "base/text_encoding.h"
#include "hive/offreg_api.h"

namespace {

using namespace tw::hive;  // NOLINT: the offline-registry names read best unqualified here

constexpr int kTopKeys = 100;
constexpr int kSubKeys = 999;

bool Check(DWORD result, const char* what) {
  if (result == 0) return true;
  std::fprintf(stderr, "hive_bench: %s failed with error %u\n", what, result);
  return false;
}

bool AddValues(ORHKEY key, int n) {
  const std::wstring text = L"value text number " + std::to_wstring(n);
  std::vector<std::uint8_t> sz;
  for (const wchar_t c : text) {
    sz.push_back(static_cast<std::uint8_t>(c));
    sz.push_back(0);
  }
  sz.insert(sz.end(), {0, 0});
  const std::uint32_t dword = static_cast<std::uint32_t>(n);
  std::uint8_t binary[64];
  for (std::size_t i = 0; i < sizeof binary; ++i) binary[i] = static_cast<std::uint8_t>(n + i);
  return Check(tw_ORSetValue(key, L"Text", 1, sz.data(), static_cast<DWORD>(sz.size())),
               "ORSetValue") &&
         Check(tw_ORSetValue(key, L"Number", 4, reinterpret_cast<const std::uint8_t*>(&dword), 4),
               "ORSetValue") &&
         Check(tw_ORSetValue(key, L"Blob", 3, binary, sizeof binary), "ORSetValue");
}

int Generate(const std::wstring& out) {
  ORHKEY root = nullptr;
  if (!Check(tw_ORCreateHive(&root), "ORCreateHive")) return 1;
  int n = 0;
  for (int top = 0; top < kTopKeys; ++top) {
    ORHKEY group = nullptr;
    const std::wstring groupName = L"Group" + std::to_wstring(1000 + top);
    if (!Check(tw_ORCreateKey(root, groupName.c_str(), nullptr, 0, nullptr, &group, nullptr),
               "ORCreateKey") ||
        !AddValues(group, n++)) {
      return 1;
    }
    for (int sub = 0; sub < kSubKeys; ++sub) {
      ORHKEY key = nullptr;
      const std::wstring name = L"Entry" + std::to_wstring(10000 + sub);
      if (!Check(tw_ORCreateKey(group, name.c_str(), nullptr, 0, nullptr, &key, nullptr),
                 "ORCreateKey") ||
          !AddValues(key, n++)) {
        return 1;
      }
      tw_ORCloseKey(key);
    }
    tw_ORCloseKey(group);
  }
  const bool saved = Check(tw_ORSaveHive(root, out.c_str(), 10, 0), "ORSaveHive");
  tw_ORCloseHive(root);
  std::printf("generated %d keys with %d values\n", n, 3 * n);
  return saved ? 0 : 1;
}

struct Walk {
  std::uint64_t keys = 0;
  std::uint64_t values = 0;
  std::uint64_t dataBytes = 0;
  std::uint64_t checksum = 0;  // keeps the reads from being optimised away
};

bool WalkKey(ORHKEY key, Walk& walk) {
  std::vector<std::pair<ORHKEY, bool>> stack{{key, false}};  // handle, close it afterwards
  std::vector<wchar_t> name;
  std::vector<std::uint8_t> data;
  while (!stack.empty()) {
    const auto [handle, owned] = stack.back();
    stack.pop_back();
    DWORD subKeys = 0, maxSubKey = 0, values = 0, maxValueName = 0, maxValue = 0;
    if (!Check(tw_ORQueryInfoKey(handle, nullptr, nullptr, &subKeys, &maxSubKey, nullptr, &values,
                                 &maxValueName, &maxValue, nullptr, nullptr),
               "ORQueryInfoKey")) {
      return false;
    }
    ++walk.keys;
    name.resize(std::max(maxSubKey, maxValueName) + 1);
    data.resize(maxValue);
    for (DWORD i = 0; i < values; ++i) {
      DWORD nameLength = static_cast<DWORD>(name.size());
      DWORD type = 0;
      DWORD size = static_cast<DWORD>(data.size());
      if (!Check(tw_OREnumValue(handle, i, name.data(), &nameLength, &type, data.data(), &size),
                 "OREnumValue")) {
        return false;
      }
      ++walk.values;
      walk.dataBytes += size;
      for (DWORD b = 0; b < size; ++b) walk.checksum = walk.checksum * 31 + data[b];
      walk.checksum += type + nameLength;
    }
    for (DWORD i = 0; i < subKeys; ++i) {
      DWORD nameLength = static_cast<DWORD>(name.size());
      if (!Check(tw_OREnumKey(handle, i, name.data(), &nameLength, nullptr, nullptr, nullptr),
                 "OREnumKey")) {
        return false;
      }
      ORHKEY child = nullptr;
      if (!Check(tw_OROpenKey(handle, name.data(), &child), "OROpenKey")) return false;
      stack.emplace_back(child, true);
    }
    if (owned) tw_ORCloseKey(handle);
  }
  return true;
}

double Seconds(std::chrono::steady_clock::time_point from) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

int WalkAndSave(const std::wstring& in, const std::wstring& out) {
  const auto start = std::chrono::steady_clock::now();
  ORHKEY root = nullptr;
  if (!Check(tw_OROpenHive(in.c_str(), &root), "OROpenHive")) return 1;
  const double opened = Seconds(start);
  Walk walk;
  if (!WalkKey(root, walk)) return 1;
  const double walked = Seconds(start);
  if (!Check(tw_ORSaveHive(root, out.c_str(), 10, 0), "ORSaveHive")) return 1;
  const double saved = Seconds(start);
  tw_ORCloseHive(root);
  const double closed = Seconds(start);
  std::printf("keys %llu values %llu data %llu bytes (checksum %llx)\n",
              static_cast<unsigned long long>(walk.keys),
              static_cast<unsigned long long>(walk.values),
              static_cast<unsigned long long>(walk.dataBytes),
              static_cast<unsigned long long>(walk.checksum));
  std::printf("open %.3f s, walk %.3f s, save %.3f s, close %.3f s, total %.3f s\n", opened,
              walked - opened, saved - walked, closed - saved, closed);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "generate") == 0) return Generate(tw::Utf8ToWide(argv[2]));
  if (argc == 4 && std::strcmp(argv[1], "walk") == 0) {
    return WalkAndSave(tw::Utf8ToWide(argv[2]), tw::Utf8ToWide(argv[3]));
  }
  std::fprintf(stderr, "usage: hive_bench generate OUT | hive_bench walk IN OUT\n");
  return 2;
}
