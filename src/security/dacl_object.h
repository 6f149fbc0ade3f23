// A DACL under construction: a list of access entries and a flag for the NULL DACL, turned into
// the ACL that is handed to the system by the rules the migration relies on:
// - the size is 8 bytes (the ACL header) plus the size of each entry, and the list is made with
//   InitializeAcl(size, ACL_REVISION);
// - the entries are put into canonical order (explicit before inherited; within each group
//   access-denied before access-allowed) and appended in that order with
//   AddAce(acl, ACL_REVISION, MAXDWORD, ...), which gives the same list and errors whether it is
//   called once per entry or once for all of them;
// - a failure of either call raises HResultError with HRESULT_FROM_WIN32 of its error;
// - a NULL DACL is handed over as no list at all.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"

namespace tw {

class DaclObject {
 public:
  // An empty DACL (not NULL).
  DaclObject() = default;

  // The DACL of `sd` as GetSecurityDescriptorDacl gives it: a present list gives its entries,
  // a present NULL DACL gives the NULL DACL, an absent DACL gives an empty DACL.
  static DaclObject FromDescriptor(const security::SecurityDescriptor& sd);
  // The same, taking the entries over from a descriptor that is not needed any more.
  static DaclObject FromDescriptor(security::SecurityDescriptor&& sd);

  bool IsNull() const { return isNull_; }
  const std::vector<security::Ace>& entries() const { return entries_; }

  // Appends an access-allowed entry. A NULL DACL first becomes an empty one, so the result
  // holds only the new entry.
  void AddAllowed(const security::Sid& sid, std::uint32_t mask, std::uint8_t flags);

  // The list to write: nothing for the NULL DACL.
  std::optional<security::Acl> ToAcl() const;

 private:
  bool isNull_ = false;
  std::vector<security::Ace> entries_;
};

}  // namespace tw
