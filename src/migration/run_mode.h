// The run mode: the profile version a run migrates from and the one it migrates to, as one value,
// and the modes an option or the configuration file can name.
//
//   sourceVersion  targetVersion  mode                  named by
//   0              0              V1 to V2 (default)    nothing
//   2              5              V2 to V5              "/V2TOV5", configuration "migv2tov5"
//   2              6              V2 to V6              "/V2TOV6", "migv2tov6"
//   5              6              V5 to V6              "/V5TOV6", "migv5tov6"
//   6              6              V6 to V6 selection    "/V6TOV6", "migv6tov6" (runs as V1 to V2)
#pragma once

#include <cstdint>
#include <string_view>

namespace tw {

struct RunMode {
  std::int32_t sourceVersion = 0;
  std::int32_t targetVersion = 0;

  friend constexpr bool operator==(const RunMode&, const RunMode&) = default;
};

inline constexpr RunMode kModeV1ToV2{0, 0};
inline constexpr RunMode kModeV2ToV5{2, 5};
inline constexpr RunMode kModeV2ToV6{2, 6};
inline constexpr RunMode kModeV5ToV6{5, 6};
inline constexpr RunMode kModeV6ToV6{6, 6};

// A mode that can be asked for by name: its command-line option (upper case, matched as a
// begins-with test on the upper-cased argument) and its element under the configuration file's
// "source" element (its text "true" without regard to case selects it).
struct NamedRunMode {
  RunMode mode;
  std::wstring_view option;
  std::wstring_view configurationElement;
};

// The named modes in the order the configuration file is read (a later "true" wins).
inline constexpr NamedRunMode kNamedRunModes[] = {
    {kModeV2ToV5, L"/V2TOV5", L"migv2tov5"},
    {kModeV2ToV6, L"/V2TOV6", L"migv2tov6"},
    {kModeV5ToV6, L"/V5TOV6", L"migv5tov6"},
    {kModeV6ToV6, L"/V6TOV6", L"migv6tov6"},
};

// Whether `mode` is one of the named modes (the configuration file's mode replaces the command
// line's only then).
constexpr bool IsNamedRunMode(RunMode mode) {
  for (const NamedRunMode& named : kNamedRunModes) {
    if (named.mode == mode) return true;
  }
  return false;
}

// V2 to V5, V2 to V6 or V5 to V6: the modes that need only the offline-registry binding and
// accept a source path that ends in a version suffix. The 6/6 selection is not one of them.
constexpr bool IsVersionMode(RunMode mode) {
  return mode == kModeV2ToV5 || mode == kModeV2ToV6 || mode == kModeV5ToV6;
}

// Whether the profile loop walks the source with a version suffix: chosen by the source version
// alone (2 or 5).
constexpr bool IsSuffixLoopMode(RunMode mode) {
  return mode.sourceVersion == 2 || mode.sourceVersion == 5;
}

// The suffix of the source profiles in a suffix loop: "V2" for source version 2, else "V5".
constexpr const wchar_t* SourceSuffixOf(RunMode mode) {
  return mode.sourceVersion == 2 ? L"V2" : L"V5";
}

}  // namespace tw
