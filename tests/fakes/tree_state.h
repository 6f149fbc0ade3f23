// A record of everything a folder tree holds, to show that a run changed nothing in it: for each
// entry below the folder (the folder itself included, links never followed) its type, mode,
// owner, group, size, modification time, the bytes of a file, the target of a
// symbolic link and every extended attribute with its value. Reading a file leaves its access
// time as it was.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace tw::testing {

// One entry's record, as text, so that a difference prints readably.
struct EntryState {
  std::string meta;     // type, mode, uid, gid, size, mtime (ns)
  std::string content;  // a file's bytes, a link's target, empty for a folder
  std::string xattrs;   // "name=hex;" for each extended attribute, sorted by name
  bool operator==(const EntryState&) const = default;
};

// The state of every entry, keyed by its path relative to folder ("." for the folder itself).
using TreeState = std::map<std::string, EntryState>;

TreeState CaptureTreeState(const std::filesystem::path& folder);

// "" when before and after are equal, else one line per entry that appeared, vanished or changed
// (for use as EXPECT_EQ(DescribeTreeChanges(before, after), "")).
std::string DescribeTreeChanges(const TreeState& before, const TreeState& after);

}  // namespace tw::testing
