// The plan of a whole share (--share): every profile of the kind the mode migrates, as the
// survey finds them, with the targets and target states it reports.
#pragma once

#include <string>
#include <vector>

#include "base/win32_error.h"
#include "batch/batch_plan.h"
#include "survey/survey_scan.h"

namespace tw::batch {

// The plan entry of a surveyed source folder of `mode`.
PlannedProfile FromSurveyRow(const survey::SurveyRow& row, BatchMode mode);

// The survey of `share` (UTF-8 UNC path) turned into a plan, sorted as the survey sorts.
// Returns the error that kept the share from being listed.
err::Win32Error PlanShare(const survey::SurveyServices& services, const std::string& share,
                          BatchMode mode, std::vector<PlannedProfile>& plan);

// The bytes, file counts and owners of the sources of `plan` (explicit profiles), from the
// survey of each folder.
void AddSourceFacts(const survey::SurveyServices& services, std::vector<PlannedProfile>& plan);

}  // namespace tw::batch
