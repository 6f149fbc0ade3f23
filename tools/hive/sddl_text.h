// SDDL-like text of the parts of a security descriptor that the hive tool shows.
//
// Owner and group: the SID in "S-1-..." form (never a two-letter alias, so that the text does
// not depend on an alias table). DACL: "D:" then the control flags "P" (SE_DACL_PROTECTED),
// "AR" (auto-inherit required), "AI" (auto-inherited), then one "(...)" per entry:
// - allowed and denied entries: "(A;flags;0xMASK;;;SID)" / "(D;flags;0xMASK;;;SID)", the mask
//   as eight upper-case hexadecimal digits; flags are the SDDL letters in this order: OI, CI,
//   NP, IO, ID, SA, FA; any other flag bits follow as "0xNN";
// - other entry types: "(0xTT;flags;;;;hex-of-body)", the body after the entry header as
//   lower-case hexadecimal;
// - "D:NO_ACCESS_CONTROL" for a NULL DACL, "D:-" for a descriptor without a DACL, "D:" and its
//   flags alone for an empty one.
#pragma once

#include <string>

#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"

namespace tw::hive_tool {

std::wstring DaclText(const security::SecurityDescriptor& sd);
std::wstring AceText(const security::Ace& ace);

}  // namespace tw::hive_tool
