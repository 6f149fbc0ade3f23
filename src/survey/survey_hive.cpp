// Hive states from base blocks: the engine's own base block checks and its own recovery decide.
#include <span>
#include <vector>

#include "base/format.h"
#include "hive/hive_log_recovery.h"
#include "hive/hive_reader.h"
#include "hive/regf_layout.h"
#include "survey/survey_parts.h"

namespace tw::survey {
namespace {

// The largest dirty hive the survey reads whole to try its logs.
constexpr std::uint64_t kMaxRecoveredBytes = 512ull << 20;

// A transaction log beside path, found as the engine finds it (any case), read whole.
bool ReadLog(SurveyPort& port, const std::wstring& path, const wchar_t* suffix,
             const WalkFacts& facts, std::vector<std::uint8_t>& bytes) {
  const auto found = facts.files.find(path + suffix);
  if (found == facts.files.end()) return false;
  return port.ReadFileHead(found->first, static_cast<std::size_t>(found->second), bytes) ==
         err::kSuccess;
}

// A dirty hive: recovered in memory from its logs as the engine recovers it when it opens it.
HiveInfo DirtyState(SurveyPort& port, const std::wstring& path, std::uint64_t size,
                    const WalkFacts& facts) {
  HiveInfo info;
  if (size > kMaxRecoveredBytes) {
    info.state = HiveState::kDirtyWithoutLogs;
    info.reason = L"too large to be recovered by the survey";
    return info;
  }
  std::vector<std::uint8_t> file;
  if (port.ReadFileHead(path, static_cast<std::size_t>(size), file) != err::kSuccess) {
    info.state = HiveState::kCorrupt;
    info.reason = L"the file cannot be read";
    return info;
  }
  std::vector<std::uint8_t> bytes[3];
  hive::HiveLogs logs;
  hive::LogBytes* slots[3] = {&logs.log, &logs.log1, &logs.log2};
  const wchar_t* suffixes[3] = {L".LOG", L".LOG1", L".LOG2"};
  for (int i = 0; i < 3; ++i) {
    slots[i]->present = ReadLog(port, path, suffixes[i], facts, bytes[i]);
    slots[i]->bytes = bytes[i];
  }
  const hive::RecoveryResult recovery = hive::RecoverHive(file, logs);
  if (recovery.state == hive::RecoveryState::kRecovered) {
    const hive::BaseBlockCheck check = hive::CheckBaseBlock(recovery.image, recovery.image.size());
    if (check.error != err::kSuccess) {
      info.state = HiveState::kCorrupt;
      info.reason = check.reason;
      return info;
    }
    info.state = HiveState::kDirtyWithLogs;
    return info;
  }
  info.state = HiveState::kDirtyWithoutLogs;
  info.reason = recovery.detail;
  return info;
}

}  // namespace

HiveInfo HiveStateOf(SurveyPort& port, const std::wstring& path, const WalkFacts& facts) {
  HiveInfo info;
  if (facts.links.count(path) != 0) {
    info.state = HiveState::kCorrupt;
    info.reason = L"a link or special file, never followed";
    return info;
  }
  const auto seen = facts.files.find(path);
  if (seen == facts.files.end()) return info;  // missing
  const std::uint64_t size = seen->second;
  std::vector<std::uint8_t> head;
  const err::Win32Error read = port.ReadFileHead(seen->first, hive::regf::kBaseBlockSize, head);
  if (read != err::kSuccess) {
    info.state = HiveState::kCorrupt;
    info.reason = Format(L"the file cannot be read (error %u)", read);
    return info;
  }
  if (hive::IsDirtyHive(head)) return DirtyState(port, seen->first, size, facts);
  const hive::BaseBlockCheck check = hive::CheckBaseBlock(head, size);
  if (check.error != err::kSuccess) {
    info.state = HiveState::kCorrupt;
    info.reason = check.reason;
    return info;
  }
  info.state = HiveState::kClean;
  return info;
}

}  // namespace tw::survey
