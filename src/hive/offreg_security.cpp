// ORGetKeySecurity, ORSetKeySecurity.
#include <cstring>

#include "hive/offreg_api.h"
#include "hive/offreg_state.h"
#include "hive/security_parts.h"

namespace tw::hive {

using detail::Engine;

using detail::Locked;

extern "C" {

DWORD TW_OR_CALL tw_ORGetKeySecurity(ORHKEY Handle, SECURITY_INFORMATION SecurityInformation,
                                     PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                     PDWORD lpcbSecurityDescriptor) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (lpcbSecurityDescriptor == nullptr) return err::kInvalidParameter;
    const SecurityBytes& full =
        entry->key->security ? *entry->key->security : DefaultSecurityDescriptor();
    const SecurityBytes& selected = engine.security.Selected(full, SecurityInformation);
    const auto size = static_cast<DWORD>(selected.size());
    if (pSecurityDescriptor == nullptr || *lpcbSecurityDescriptor < size) {
      *lpcbSecurityDescriptor = size;
      return err::kInsufficientBuffer;
    }
    std::memcpy(pSecurityDescriptor, selected.data(), size);
    *lpcbSecurityDescriptor = size;
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORSetKeySecurity(ORHKEY Handle, SECURITY_INFORMATION SecurityInformation,
                                     PSECURITY_DESCRIPTOR pSecurityDescriptor) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (pSecurityDescriptor == nullptr) return err::kInvalidParameter;
    Key& key = *entry->key;
    const SecurityBytes& current = key.security ? *key.security : DefaultSecurityDescriptor();
    SharedSecurity replaced;
    if (!engine.security.Replaced(current, static_cast<const std::uint8_t*>(pSecurityDescriptor),
                                  SecurityInformation, &replaced)) {
      return err::kInvalidSecurityDescr;
    }
    if (replaced) key.security = std::move(replaced);
    return err::kSuccess;
  });
}

}  // extern "C"

}  // namespace tw::hive
