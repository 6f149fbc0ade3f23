#include "survey/survey_scan.h"

namespace tw::survey {

std::vector<const SurveyRow*> SourcesOf(const SurveyResult& result, Mode mode) {
  std::vector<const SurveyRow*> sources;
  for (const SurveyRow& row : result.rows)
    if (row.kind == SourceKindOf(mode)) sources.push_back(&row);
  return sources;
}

}  // namespace tw::survey
