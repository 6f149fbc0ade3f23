// The canonical order of access entries: explicit entries before inherited ones (those with
// INHERITED_ACE), and within each of the two groups the access-denied family before every other
// type. Entries of the same rank keep their relative order (the sort is stable). This is the
// order in which a DACL is written when it is rebuilt from a list of entries.
#pragma once

#include <span>
#include <vector>

#include "descriptor/ace.h"
#include "descriptor/acl.h"

namespace tw::security {

std::vector<Ace> CanonicalOrder(std::vector<Ace> aces);
bool IsCanonical(std::span<const Ace> aces);
bool IsCanonical(const Acl& acl);

}  // namespace tw::security
