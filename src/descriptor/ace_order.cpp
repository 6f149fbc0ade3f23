#include "descriptor/ace_order.h"

#include <algorithm>

namespace tw::security {

namespace {

// 0 explicit denied, 1 explicit other, 2 inherited denied, 3 inherited other.
int Rank(const Ace& ace) { return (ace.IsInherited() ? 2 : 0) + (ace.IsDenyType() ? 0 : 1); }

}  // namespace

std::vector<Ace> CanonicalOrder(std::vector<Ace> aces) {
  // Most lists are in order already; the sort would still set up a buffer and merge.
  if (IsCanonical(aces)) return aces;
  std::stable_sort(aces.begin(), aces.end(),
                   [](const Ace& a, const Ace& b) { return Rank(a) < Rank(b); });
  return aces;
}

bool IsCanonical(std::span<const Ace> aces) {
  return std::is_sorted(aces.begin(), aces.end(),
                        [](const Ace& a, const Ace& b) { return Rank(a) < Rank(b); });
}

bool IsCanonical(const Acl& acl) { return IsCanonical(std::span<const Ace>(acl.aces())); }

}  // namespace tw::security
