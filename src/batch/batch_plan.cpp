#include "batch/batch_plan.h"

#include <cctype>
#include <map>

namespace tw::batch {
namespace {

std::string Folded(const std::string& path) {
  std::string folded = path;
  for (char& c : folded) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  while (folded.size() > 1 && folded.back() == '\\') folded.pop_back();
  return folded;
}

}  // namespace

TargetState ProbeTarget(const std::string& target, const PathProbe& exists) {
  if (!exists(target)) return TargetState::kNone;
  return exists(target + "\\" + kMarkerName) ? TargetState::kInterrupted : TargetState::kFinished;
}

void MarkDuplicateTargets(std::vector<PlannedProfile>& plan) {
  std::map<std::string, std::string> owners;  // folded target -> the source that has it
  for (PlannedProfile& profile : plan) {
    const auto [at, added] = owners.emplace(Folded(profile.target), profile.source);
    if (!added) {
      profile.targetState = TargetState::kDuplicate;
      profile.duplicateOf = at->second;
    }
  }
}

std::vector<PlannedProfile> PlanProfiles(const std::vector<std::string>& sources, BatchMode mode,
                                         const std::string& targetRoot, const PathProbe& exists) {
  std::vector<PlannedProfile> plan;
  plan.reserve(sources.size());
  for (const std::string& source : sources) {
    PlannedProfile profile;
    profile.source = source;
    profile.target = TargetPathFor(source, mode, targetRoot);
    profile.targetState = ProbeTarget(profile.target, exists);
    plan.push_back(std::move(profile));
  }
  MarkDuplicateTargets(plan);
  return plan;
}

}  // namespace tw::batch
