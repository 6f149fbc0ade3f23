#include "survey/survey_scan.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "base/format.h"
#include "base/shell_path.h"
#include "migration/migration_context.h"
#include "migration/migration_settings.h"
#include "ports/file_system.h"
#include "ports/security_port.h"
#include "profile/target_profile.h"
#include "registry/hive_migration.h"
#include "run/run_flow.h"
#include "survey/survey_parts.h"

namespace tw::survey {
namespace {

bool IsDotEntry(const std::wstring& name) { return name == L"." || name == L".."; }

// The kind of a folder whose walk gave facts: a profile holds "ntuser.dat" (the enumeration's
// test); its version is the suffix the target naming recognises; a folder that holds the marker is
// a target under construction, not a profile to migrate.
ProfileKind KindOf(const std::wstring& path, const std::wstring& name, const WalkFacts& facts,
                   std::wstring& reason) {
  const std::wstring hive = path + L"\\" + kUserHiveName;
  if (facts.files.count(MarkerPathOf(path)) != 0) {
    reason = L"an unfinished migration target (holds the marker)";
    return ProfileKind::kNone;
  }
  if (facts.files.count(hive) == 0 && facts.links.count(hive) == 0) {
    reason = L"no ntuser.dat";
    return ProfileKind::kNone;
  }
  if (!HasVersionSuffix(name)) return ProfileKind::kV1;
  switch (name.back()) {
    case L'2':
      return ProfileKind::kV2;
    case L'5':
      return ProfileKind::kV5;
    default:
      return ProfileKind::kV6;
  }
}

// The target each mode that migrates this kind would build, by the run's own naming.
void AddTargets(const SurveyServices& services, SurveyRow& row) {
  MigrationSettings settings;
  settings.targetPath = services.targetRoot;
  MigrationContext context{&settings, services.files, services.security, g_offreg};
  for (const Mode mode : kAllModes) {
    if (SourceKindOf(mode) != row.kind) continue;
    TargetInfo target;
    target.mode = mode;
    if (GetTargetPath(context, row.path, target.path, TargetVersionOf(mode)) != hr::kOk ||
        target.path.empty()) {
      row.wouldFail.push_back(L"no target path can be made for it");
      continue;
    }
    target.state = TargetStateOf(services.files, target.path);
    row.targets.push_back(std::move(target));
  }
}

void ReadOwner(const SurveyServices& services, SurveyRow& row) {
  security::SecurityDescriptor sd;
  const err::Win32Error read = services.security.ReadNamedSecurity(row.path, sd);
  if (read != err::kSuccess || !sd.owner) {
    if (row.kind != ProfileKind::kNone)
      row.unreadable.push_back(Format(L"%s (owner and access list, error %u)", row.path, read));
    return;
  }
  row.ownerSid = sd.owner->ToString();
  row.ownerName = services.port.AccountNameOf(*sd.owner);
  if (row.kind != ProfileKind::kNone)
    row.leftoverTemporaryProfile = services.port.TemporaryProfileOf(*sd.owner);
}

// The causes for which tarnwick itself refuses this profile, whatever its target.
void AddRefusals(SurveyRow& row) {
  if (row.kind == ProfileKind::kV1) {
    if (const VersionSuffixAdvice* refused = RefusedSourceSuffixForV1Mode(row.path)) {
      row.wouldFail.push_back(
          Format(L"the name ends in %s, which the default mode refuses (%s is needed)",
                 refused->suffix, refused->advice));
    }
  }
  if (row.path.find(L'%') != std::wstring::npos) row.wouldFail.push_back(L"a \"%\" in the path");
  if (row.hive.state == HiveState::kCorrupt)
    row.wouldFail.push_back(L"ntuser.dat is corrupt: " + row.hive.reason);
  if (row.usrClass.state == HiveState::kCorrupt)
    row.wouldFail.push_back(L"UsrClass.dat is corrupt: " + row.usrClass.reason);
}

// Surveys folders, up to services.parallelFolders at once, appending their rows.
void SurveyFolders(const SurveyServices& services, const std::vector<std::wstring>& folders,
                   std::vector<SurveyRow>& rows) {
  std::vector<SurveyRow> surveyed(folders.size());
  std::atomic<std::size_t> next{0};
  const auto work = [&]() {
    for (std::size_t index = next++; index < folders.size(); index = next++)
      surveyed[index] = SurveyFolder(services, folders[index]);
  };
  const std::size_t helpers =
      std::min<std::size_t>(std::max(services.parallelFolders, 1U), folders.size() + 1) - 1;
  std::vector<std::thread> threads;
  threads.reserve(helpers);
  for (std::size_t i = 0; i < helpers; ++i) threads.emplace_back(work);
  work();
  for (std::thread& thread : threads) thread.join();
  for (SurveyRow& row : surveyed) rows.push_back(std::move(row));
}

}  // namespace

SurveyRow SurveyFolder(const SurveyServices& services, const std::wstring& folderPath) {
  SurveyRow row;
  row.path = folderPath;
  const std::size_t slash = folderPath.rfind(L'\\');
  row.name = slash == std::wstring::npos ? folderPath : folderPath.substr(slash + 1);

  // The classes hive lies where the version's layout puts it; the name's suffix tells which.
  const std::wstring classesHive =
      folderPath + L"\\" + ClassesHiveRelativePath(HasVersionSuffix(row.name) ? 2 : 1);
  const std::wstring classesFolder = classesHive.substr(0, classesHive.rfind(L'\\'));

  // The walk measures target paths against the first target's folder; every mode's target of
  // one source has a name of the same length.
  WalkFacts facts;
  std::wstring firstTarget;
  {
    MigrationSettings settings;
    settings.targetPath = services.targetRoot;
    MigrationContext context{&settings, services.files, services.security, g_offreg};
    // A name that gives no target leaves the first target empty: nothing of it is compared.
    static_cast<void>(
        GetTargetPath(context, folderPath, firstTarget, HasVersionSuffix(row.name) ? 6 : 2));
  }
  WalkProfileTree(services.files, folderPath, firstTarget, classesFolder, row, facts);

  row.kind = KindOf(folderPath, row.name, facts, row.reason);
  ReadOwner(services, row);
  if (row.kind == ProfileKind::kNone) return row;

  const std::wstring userHive = folderPath + L"\\" + kUserHiveName;
  row.hive = HiveStateOf(services.port, userHive, facts);
  row.usrClass = HiveStateOf(services.port, classesHive, facts);
  if (services.readRedirects &&
      (row.hive.state == HiveState::kClean || row.hive.state == HiveState::kDirtyWithLogs))
    row.redirectedFolders = RedirectedFoldersOf(g_offreg, userHive);
  AddTargets(services, row);
  AddRefusals(row);
  return row;
}

[[nodiscard]] err::Win32Error SurveyShare(const SurveyServices& services,
                                          std::wstring_view sharePath, SurveyResult& result) {
  result = SurveyResult{};
  std::wstring root(sharePath);
  while (root.size() > 2 && root.back() == L'\\') root.pop_back();
  result.sharePath = root;
  if (!PathIsUNCW(root)) return err::kBadPathname;

  // A profile folder named itself is surveyed alone, as the enumeration takes it alone.
  if (services.files.PathExists(root + L"\\" + kUserHiveName)) {
    result.rows.push_back(SurveyFolder(services, root));
    return err::kSuccess;
  }
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  const err::Win32Error error = services.files.FindFirstEntry(root + L"\\*", search, entry);
  if (error == err::kFileNotFound) return err::kSuccess;
  if (error != err::kSuccess) return error;
  std::vector<std::pair<std::wstring, std::uint32_t>> entries;
  {
    const UniqueSearchHandle searching(services.files, search);
    do {
      if (!IsDotEntry(entry.name)) entries.emplace_back(entry.name, entry.attributes);
    } while (services.files.FindNextEntry(search, entry) == err::kSuccess);
  }
  std::vector<std::wstring> folders;
  for (const auto& [name, attributes] : entries) {
    if ((attributes & file_attr::kReparsePoint) != 0) {
      SurveyRow row;
      row.name = name;
      row.path = root + L"\\" + name;
      row.reason = L"a link or junction, never followed";
      result.rows.push_back(std::move(row));
      continue;
    }
    if ((attributes & file_attr::kDirectory) != 0) folders.push_back(root + L"\\" + name);
  }
  SurveyFolders(services, folders, result.rows);
  std::sort(result.rows.begin(), result.rows.end(), [](const SurveyRow& a, const SurveyRow& b) {
    return CompareNoCase(a.name, b.name) < 0;
  });
  return err::kSuccess;
}

std::vector<const SurveyRow*> SourcesOf(const SurveyResult& result, Mode mode) {
  std::vector<const SurveyRow*> sources;
  for (const SurveyRow& row : result.rows)
    if (row.kind == SourceKindOf(mode)) sources.push_back(&row);
  return sources;
}

std::wstring TargetPathOf(const std::wstring& source, Mode mode, const std::wstring& targetRoot) {
  MigrationSettings settings;
  settings.targetPath = targetRoot;
  MigrationContext context{&settings, ProcessFileSystem(), ProcessSecurityPort(), g_offreg};
  std::wstring target;
  if (GetTargetPath(context, source, target, TargetVersionOf(mode)) != hr::kOk) return {};
  return target;
}

}  // namespace tw::survey
