#include "hive/security_memo.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "hive/security_parts.h"

namespace tw::hive {

// Each entry is marked empty before it is refilled, so that an allocation failure on the way
// leaves nothing half remembered.

SharedSecurity SecurityMemo::Inherited(const SecurityBytes& parent) {
  if (inherited_.child && inherited_.parent == parent) return inherited_.child;
  auto child = std::make_shared<const SecurityBytes>(InheritedSecurity(parent));
  const SharedSecurity previous = std::move(inherited_.child);  // `parent` may be its bytes
  inherited_.parent = parent;
  inherited_.child = child;
  return child;
}

const SecurityBytes& SecurityMemo::Selected(const SecurityBytes& descriptor,
                                            std::uint32_t information) {
  SelectedEntry& entry = selected_;
  if (entry.valid && entry.information == information && entry.descriptor == descriptor) {
    return entry.selected;
  }
  entry.valid = false;
  entry.selected = SelectParts(descriptor, information);
  entry.descriptor = descriptor;
  entry.information = information;
  entry.valid = true;
  return entry.selected;
}

bool SecurityMemo::Replaced(const SecurityBytes& current, const std::uint8_t* incoming,
                            std::uint32_t information, SharedSecurity* result) {
  ReplacedEntry& entry = replaced_;
  // The remembered `incoming` was valid; the same bytes over the same extent are valid again.
  const std::size_t extent = SelfRelativeExtent(incoming);
  if (entry.valid && extent != 0 && entry.information == information &&
      entry.incoming.size() == extent &&
      std::equal(entry.incoming.begin(), entry.incoming.end(), incoming) &&
      entry.current == current) {
    *result = entry.result;
    return true;
  }
  SecurityBytes replaced;
  if (!ReplaceParts(current, incoming, information, &replaced)) return false;
  SharedSecurity changed;
  if (replaced != current) changed = std::make_shared<const SecurityBytes>(std::move(replaced));
  entry.valid = false;
  entry.current = current;
  entry.incoming.assign(incoming, incoming + extent);
  entry.information = information;
  entry.result = changed;
  entry.valid = true;
  *result = std::move(changed);
  return true;
}

}  // namespace tw::hive
