// The plan of a whole share (--share): every profile of the kind the mode migrates, as the
// survey finds them, with the targets and target states it reports.
#pragma once

#include <string>
#include <vector>

#include "base/win32_error.h"
#include "batch/batch_plan.h"
#include "ports/survey_port.h"
#include "survey/survey_scan.h"

namespace tw::batch {

// The survey port as the batch needs it: file heads through `base`, but no account names and no
// temporary-profile look-ups (a run needs neither, and naming accounts can wait on a directory
// service for every profile).
class PlanningSurveyPort : public SurveyPort {
 public:
  explicit PlanningSurveyPort(SurveyPort& base) : base_(base) {}
  [[nodiscard]] err::Win32Error ReadFileHead(std::wstring_view path, std::size_t count,
                                             std::vector<std::uint8_t>& bytes) override {
    return base_.ReadFileHead(path, count, bytes);
  }
  std::wstring AccountNameOf(const security::Sid&) override { return std::wstring(); }
  std::wstring TemporaryProfileOf(const security::Sid&) override { return std::wstring(); }

 private:
  SurveyPort& base_;
};

// The plan entry of a surveyed source folder of `mode`.
PlannedProfile FromSurveyRow(const survey::SurveyRow& row, BatchMode mode);

// The survey of `share` (UTF-8 UNC path) turned into a plan, sorted as the survey sorts.
// Returns the error that kept the share from being listed.
[[nodiscard]] err::Win32Error PlanShare(const survey::SurveyServices& services,
                                        const std::string& share, BatchMode mode,
                                        std::vector<PlannedProfile>& plan);

// The bytes, file counts and owners of the sources of `plan` (explicit profiles), from the
// survey of each folder.
void AddSourceFacts(const survey::SurveyServices& services, std::vector<PlannedProfile>& plan);

}  // namespace tw::batch
