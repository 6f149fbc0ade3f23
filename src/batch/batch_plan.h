// The list of runs of a batch: one entry per source profile, with the target its run makes and
// what is there already.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "batch/batch_mode.h"

namespace tw::batch {

enum class TargetState {
  kNone,         // no target yet: the run makes it
  kInterrupted,  // a target with the marker of an interrupted run: the run rebuilds it
  kFinished,     // a finished target: skipped, the run would refuse it
  kLocked,       // a target whose marker a live run outside the batch holds: not run
  kDuplicate,    // another profile of the list has the same target: not run
};

struct PlannedProfile {
  std::string source;  // the UNC path handed to the tool
  std::string target;  // the UNC path of the folder its run makes
  TargetState targetState = TargetState::kNone;
  std::string duplicateOf;  // kDuplicate: the source that keeps the target
  std::uint64_t bytes = 0;  // the source's size when known (progress), else 0
  std::uint64_t files = 0;  // its file count when known
  // The source folder's owner (SID string; "" when unknown). Two runs for profiles of one owner
  // never run at once: each makes a temporary profile for that owner, and the second would fail.
  std::string owner;
};

// Whether a UNC path names an existing file or folder (links are not followed).
using PathProbe = std::function<bool(const std::string& uncPath)>;

// The marker an unfinished target holds.
inline constexpr char kMarkerName[] = "_qzk_mig_marker_";

// What is at `target`, as the tool will judge it when its run starts.
TargetState ProbeTarget(const std::string& target, const PathProbe& exists);

// The plan for `sources` in that order: targets computed, their state probed, and every profile
// whose target (compared without regard to case) another earlier profile already has marked
// kDuplicate, so that no two runs work on one target.
std::vector<PlannedProfile> PlanProfiles(const std::vector<std::string>& sources, BatchMode mode,
                                         const std::string& targetRoot, const PathProbe& exists);

// Marks later entries of `plan` whose target an earlier one has as kDuplicate.
void MarkDuplicateTargets(std::vector<PlannedProfile>& plan);

// Whether a run is started for the entry.
inline bool IsRunnable(const PlannedProfile& profile) {
  return profile.targetState == TargetState::kNone ||
         profile.targetState == TargetState::kInterrupted;
}

}  // namespace tw::batch
