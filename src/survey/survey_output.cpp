#include "survey/survey_output.h"

#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "base/text_encoding.h"

namespace tw::survey {
namespace {

std::string Utf8(std::wstring_view text) { return WideToUtf8(text); }

// The targets of a row that `mode` selects (every one when absent).
std::vector<const TargetInfo*> ShownTargets(const SurveyRow& row, std::optional<Mode> mode) {
  std::vector<const TargetInfo*> shown;
  for (const TargetInfo& target : row.targets)
    if (!mode || target.mode == *mode) shown.push_back(&target);
  return shown;
}

std::string Owner(const SurveyRow& row) {
  if (row.ownerSid.empty()) return "?";
  if (row.ownerName.empty()) return Utf8(row.ownerSid);
  return Utf8(row.ownerName) + " (" + Utf8(row.ownerSid) + ")";
}

std::string HiveText(const HiveInfo& hive) {
  std::string text = Utf8(HiveStateName(hive.state));
  if (!hive.reason.empty()) text += ": " + Utf8(hive.reason);
  return text;
}

std::string Joined(const std::vector<std::wstring>& items, std::string_view separator) {
  std::string text;
  for (const std::wstring& item : items) {
    if (!text.empty()) text += separator;
    text += Utf8(item);
  }
  return text;
}

void AddList(std::string& text, const char* label, const std::vector<std::wstring>& items) {
  for (const std::wstring& item : items)
    text += std::string("    ") + label + ": " + Utf8(item) + "\n";
}

nlohmann::ordered_json TargetJson(const TargetInfo& target) {
  return {{"mode", Utf8(ModeName(target.mode))},
          {"path", Utf8(target.path)},
          {"state", Utf8(TargetStateName(target.state))}};
}

nlohmann::ordered_json HiveJson(const HiveInfo& hive) {
  nlohmann::ordered_json value = {{"state", Utf8(HiveStateName(hive.state))}};
  if (!hive.reason.empty()) value["reason"] = Utf8(hive.reason);
  return value;
}

nlohmann::ordered_json ListJson(const std::vector<std::wstring>& items) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const std::wstring& item : items) list.push_back(Utf8(item));
  return list;
}

nlohmann::ordered_json RowJson(const SurveyRow& row, std::optional<Mode> mode) {
  nlohmann::ordered_json value = {
      {"name", Utf8(row.name)}, {"path", Utf8(row.path)}, {"kind", Utf8(KindName(row.kind))}};
  if (row.kind == ProfileKind::kNone) value["reason"] = Utf8(row.reason);
  value["owner"] = Utf8(row.ownerSid);
  value["ownerName"] = Utf8(row.ownerName);
  value["bytes"] = row.bytes;
  value["files"] = row.files;
  value["hive"] = Utf8(HiveStateName(row.hive.state));
  if (!row.hive.reason.empty()) value["hiveReason"] = Utf8(row.hive.reason);
  value["usrClass"] = HiveJson(row.usrClass);
  const std::vector<const TargetInfo*> shown = ShownTargets(row, mode);
  value["target"] = shown.empty() ? nlohmann::ordered_json(nullptr) : TargetJson(*shown.front());
  nlohmann::ordered_json targets = nlohmann::ordered_json::array();
  for (const TargetInfo* target : shown) targets.push_back(TargetJson(*target));
  value["targets"] = targets;
  value["leftoverTemporaryProfile"] =
      row.leftoverTemporaryProfile.empty()
          ? nlohmann::ordered_json(nullptr)
          : nlohmann::ordered_json(Utf8(row.leftoverTemporaryProfile));
  value["redirectedFolders"] = ListJson(row.redirectedFolders);
  value["longPaths"] = ListJson(row.longPaths);
  value["caseCollisions"] = ListJson(row.caseCollisions);
  value["unreadable"] = ListJson(row.unreadable);
  const std::vector<std::wstring> failures = row.Failures(mode);
  value["wouldFail"] = !failures.empty();
  value["failures"] = ListJson(failures);
  return value;
}

// One CSV field, quoted when it holds a separator, a quote or a line break (RFC 4180).
std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

SurveyTotals TotalsOf(const SurveyResult& result, std::optional<Mode> mode) {
  SurveyTotals totals;
  for (const SurveyRow& row : result.rows) {
    ++totals.folders;
    switch (row.kind) {
      case ProfileKind::kV1:
        ++totals.v1;
        break;
      case ProfileKind::kV2:
        ++totals.v2;
        break;
      case ProfileKind::kV5:
        ++totals.v5;
        break;
      case ProfileKind::kV6:
        ++totals.v6;
        break;
      case ProfileKind::kNone:
        ++totals.none;
        break;
    }
    totals.files += row.files;
    totals.bytes += row.bytes;
    if (!row.Failures(mode).empty()) ++totals.wouldFail;
    if (row.kind == ProfileKind::kNone) continue;
    totals.itemsLost += row.longPaths.size() + row.caseCollisions.size() + row.unreadable.size();
    if (row.hive.state == HiveState::kDirtyWithLogs ||
        row.hive.state == HiveState::kDirtyWithoutLogs)
      ++totals.dirtyHives;
    if (!row.leftoverTemporaryProfile.empty()) ++totals.leftovers;
    if (!row.redirectedFolders.empty()) ++totals.redirected;
  }
  return totals;
}

std::string SurveyText(const SurveyResult& result, std::optional<Mode> mode) {
  std::string text = "Survey of " + Utf8(result.sharePath) + "\n";
  for (const SurveyRow& row : result.rows) {
    text += Utf8(row.name) + "  " + Utf8(KindName(row.kind));
    if (row.kind == ProfileKind::kNone) text += " (" + Utf8(row.reason) + ")";
    text += "  owner " + Owner(row) + "  " + std::to_string(row.files) + " files, " +
            std::to_string(row.bytes) + " bytes\n";
    if (row.kind != ProfileKind::kNone) {
      text += "    ntuser.dat: " + HiveText(row.hive) +
              "; UsrClass.dat: " + HiveText(row.usrClass) + "\n";
    }
    for (const TargetInfo* target : ShownTargets(row, mode)) {
      text += "    " + Utf8(ModeName(target->mode)) + " target: " + Utf8(target->path) + " (" +
              Utf8(TargetStateName(target->state)) + ")\n";
    }
    if (!row.leftoverTemporaryProfile.empty()) {
      text += "    leftover temporary profile: " + Utf8(row.leftoverTemporaryProfile) + "\n";
    }
    AddList(text, "redirected to a UNC path", row.redirectedFolders);
    AddList(text, "lost, path over 260 characters", row.longPaths);
    AddList(text, "lost, differs from another name only in case", row.caseCollisions);
    AddList(text, "lost, unreadable", row.unreadable);
    AddList(text, "WOULD FAIL", row.Failures(mode));
  }
  const SurveyTotals t = TotalsOf(result, mode);
  text += "Totals: " + std::to_string(t.folders) + " folders (V1 " + std::to_string(t.v1) +
          ", V2 " + std::to_string(t.v2) + ", V5 " + std::to_string(t.v5) + ", V6 " +
          std::to_string(t.v6) + ", not a profile " + std::to_string(t.none) + "); " +
          std::to_string(t.files) + " files, " + std::to_string(t.bytes) + " bytes; " +
          std::to_string(t.wouldFail) + " would fail; " + std::to_string(t.itemsLost) +
          " items would be lost; " + std::to_string(t.dirtyHives) + " dirty hives; " +
          std::to_string(t.leftovers) + " leftover temporary profiles; " +
          std::to_string(t.redirected) + " with UNC-redirected folders\n";
  return text;
}

std::string SurveyJson(const SurveyResult& result, std::optional<Mode> mode) {
  nlohmann::ordered_json profiles = nlohmann::ordered_json::array();
  for (const SurveyRow& row : result.rows) profiles.push_back(RowJson(row, mode));
  const SurveyTotals t = TotalsOf(result, mode);
  const nlohmann::ordered_json document = {{"share", Utf8(result.sharePath)},
                                           {"profiles", profiles},
                                           {"totals",
                                            {{"folders", t.folders},
                                             {"V1", t.v1},
                                             {"V2", t.v2},
                                             {"V5", t.v5},
                                             {"V6", t.v6},
                                             {"none", t.none},
                                             {"files", t.files},
                                             {"bytes", t.bytes},
                                             {"wouldFail", t.wouldFail},
                                             {"itemsLost", t.itemsLost},
                                             {"dirtyHives", t.dirtyHives},
                                             {"leftoverTemporaryProfiles", t.leftovers},
                                             {"redirected", t.redirected}}}};
  // Names whose bytes are not UTF-8 are shown with replacement characters, never refused.
  return document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string SurveyCsv(const SurveyResult& result, std::optional<Mode> mode) {
  std::string text =
      "name,path,kind,reason,owner,owner_name,bytes,files,hive,usrclass,target_mode,target,"
      "target_state,leftover_temporary_profile,redirected_folders,long_paths,case_collisions,"
      "unreadable,would_fail,failures\r\n";
  for (const SurveyRow& row : result.rows) {
    const std::vector<const TargetInfo*> shown = ShownTargets(row, mode);
    const TargetInfo* target = shown.empty() ? nullptr : shown.front();
    const std::vector<std::wstring> failures = row.Failures(mode);
    const std::vector<std::string> fields = {
        Utf8(row.name),
        Utf8(row.path),
        Utf8(KindName(row.kind)),
        Utf8(row.reason),
        Utf8(row.ownerSid),
        Utf8(row.ownerName),
        std::to_string(row.bytes),
        std::to_string(row.files),
        row.kind == ProfileKind::kNone ? "" : HiveText(row.hive),
        row.kind == ProfileKind::kNone ? "" : HiveText(row.usrClass),
        target ? Utf8(ModeName(target->mode)) : "",
        target ? Utf8(target->path) : "",
        target ? Utf8(TargetStateName(target->state)) : "",
        Utf8(row.leftoverTemporaryProfile),
        Joined(row.redirectedFolders, "; "),
        Joined(row.longPaths, "; "),
        Joined(row.caseCollisions, "; "),
        Joined(row.unreadable, "; "),
        failures.empty() ? "no" : "yes",
        Joined(failures, "; ")};
    for (std::size_t i = 0; i < fields.size(); ++i) {
      if (i != 0) text += ',';
      text += CsvField(fields[i]);
    }
    text += "\r\n";
  }
  return text;
}

}  // namespace tw::survey
