// How a folder's new DACL reaches what is already inside it, as SetNamedSecurityInfoW passes a
// folder's inheritable entries on to its existing children (the automatic propagation of
// inheritable entries).
#pragma once

#include <string>

#include "base/win32_error.h"
#include "descriptor/security_descriptor.h"

namespace tw::posix {

// Re-computes the inherited part of every object below `folder`, whose descriptor is now
// `folderSd`:
// - each child keeps its entries not marked INHERITED_ACE and receives, after them, what the
//   new DACL of its folder passes on (security::ReinheritedAcl, file rights, CREATOR OWNER and
//   CREATOR GROUP standing for the child's own owner and group); it gets SE_DACL_AUTO_INHERITED;
// - a child whose DACL is protected (an object without a stored descriptor reads as one) is left
//   as it is and not descended into: its own children inherit from it, not from above;
// - symbolic links, and anything neither a folder nor a regular file, are skipped; no link is
//   ever followed or entered;
// - a child whose DACL comes out as it was is neither written nor descended into: every write
//   and every creation keeps an object's inherited entries in step with its folder, so what is
//   below it already holds what it passes on. (Windows walks the whole tree; the two differ
//   only below an object whose inherited entries were changed by hand.)
// An error on one child (its descriptor unreadable, the store refused, a folder that cannot be
// listed) does not stop the others: every child is tried, and the first error met is returned
// (kSuccess when there was none).
[[nodiscard]] err::Win32Error PropagateInheritance(const std::string& folder,
                                                   const security::SecurityDescriptor& folderSd);

}  // namespace tw::posix
