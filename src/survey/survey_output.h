// The survey's three outputs: a text table for people, JSON (an object whose "profiles" array holds
// one object per folder) and CSV (the same rows, one line each), all UTF-8; and the totals and the
// program's verdict.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "survey/survey_row.h"

namespace tw::survey {

struct SurveyTotals {
  std::uint64_t folders = 0;
  std::uint64_t v1 = 0, v2 = 0, v5 = 0, v6 = 0, none = 0;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::uint64_t wouldFail = 0;   // profiles with at least one failure
  std::uint64_t itemsLost = 0;   // long paths, case collisions and unreadable items
  std::uint64_t dirtyHives = 0;  // ntuser.dat dirty, with or without logs
  std::uint64_t leftovers = 0;   // leftover temporary profiles
  std::uint64_t redirected = 0;  // profiles with UNC-redirected folders
};

// `mode`: the mode whose targets and failures are shown; absent: every mode of each row's kind.
SurveyTotals TotalsOf(const SurveyResult& result, std::optional<Mode> mode);

std::string SurveyText(const SurveyResult& result, std::optional<Mode> mode);
std::string SurveyJson(const SurveyResult& result, std::optional<Mode> mode);
std::string SurveyCsv(const SurveyResult& result, std::optional<Mode> mode);

}  // namespace tw::survey
