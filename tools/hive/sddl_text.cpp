#include "sddl_text.h"

#include "base/format.h"
#include "descriptor/ace.h"

namespace tw::hive_tool {

namespace {

std::wstring FlagsText(std::uint8_t flags) {
  struct Named {
    std::uint8_t bit;
    const wchar_t* text;
  };
  static constexpr Named kNames[] = {
      {security::kObjectInheritAce, L"OI"},      {security::kContainerInheritAce, L"CI"},
      {security::kNoPropagateInheritAce, L"NP"}, {security::kInheritOnlyAce, L"IO"},
      {security::kInheritedAce, L"ID"},          {security::kSuccessfulAccessAceFlag, L"SA"},
      {security::kFailedAccessAceFlag, L"FA"}};
  std::wstring out;
  std::uint8_t rest = flags;
  for (const Named& named : kNames) {
    if ((flags & named.bit) != 0) {
      out += named.text;
      rest = static_cast<std::uint8_t>(rest & ~named.bit);
    }
  }
  if (rest != 0) out += Format(L"0x%02X", static_cast<unsigned>(rest));
  return out;
}

std::wstring HexText(const std::vector<std::uint8_t>& bytes) {
  std::wstring out;
  static constexpr wchar_t kDigits[] = L"0123456789abcdef";
  for (const std::uint8_t b : bytes) {
    out += kDigits[b >> 4];
    out += kDigits[b & 15];
  }
  return out;
}

}  // namespace

std::wstring AceText(const security::Ace& ace) {
  if (ace.HasSid()) {
    const wchar_t* type = ace.type == security::kAccessAllowedAceType ? L"A" : L"D";
    return Format(L"(%s;%s;0x%08X;;;%s)", type, FlagsText(ace.flags), ace.mask, ace.sid.ToString());
  }
  return Format(L"(0x%02X;%s;;;;%s)", static_cast<unsigned>(ace.type), FlagsText(ace.flags),
                HexText(ace.body));
}

std::wstring DaclText(const security::SecurityDescriptor& sd) {
  if (!sd.HasDacl()) return L"D:-";
  if (sd.IsNullDacl()) return L"D:NO_ACCESS_CONTROL";
  std::wstring out = L"D:";
  if ((sd.control & security::kSeDaclProtected) != 0) out += L"P";
  if ((sd.control & 0x0100) != 0) out += L"AR";
  if ((sd.control & security::kSeDaclAutoInherited) != 0) out += L"AI";
  for (const security::Ace& ace : sd.dacl->aces()) out += AceText(ace);
  return out;
}

}  // namespace tw::hive_tool
