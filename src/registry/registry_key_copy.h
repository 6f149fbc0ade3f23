// The two recursive walks over offline hives of the registry migration, done with the bound
// offline-registry functions of the migration context:
// - CopyRegistryKey copies one named key, with its class, owner and DACL, all its values and all
//   its sub keys, from an open key of the source hive to an open key of the target hive. A key
//   that already exists in the target is merged into: its values are overwritten and its sub
//   keys copied, but its class and security stay as they are. No filter applies inside the walk.
// - SetKeyTreeSecurity puts one DACL on a whole key tree of a hive.
//
// Every offline-registry call follows registry/offreg_calls.h: an unbound function counts as
// error 1 (0x80070001), a -1 handle as error 6 (0x80070006). Per-item failures are logged and the
// walk goes on where the steps say so; see the .cpp for each rule.
#pragma once

#include <string>

#include "base/hresult.h"
#include "migration/migration_context.h"
#include "registry/offreg_wrapper.h"

namespace tw {

// Copies the key `keyName` below sourceParent to the same name below targetParent. Returns a
// failure only when the source key cannot be opened, when the buffer for the key's security
// cannot be allocated, or when the security of a newly created target key cannot be set; every
// other failure is logged and the result is S_OK.
[[nodiscard]] HResult CopyRegistryKey(MigrationContext& context, OrKey sourceParent,
                                      OrKey targetParent, const std::wstring& keyName);

// Writes the DACL of the self-relative `securityDescriptor` on `key` (isRoot: with
// DACL_SECURITY_INFORMATION) and on every key below it (with UNPROTECTED_DACL_SECURITY_INFORMATION
// | DACL_SECURITY_INFORMATION), except that a key below the root whose DACL is protected keeps it;
// its own children are still visited. Returns S_OK, or the failure of this key's own query or
// write.
[[nodiscard]] HResult SetKeyTreeSecurity(MigrationContext& context, OrKey key,
                                         void* securityDescriptor, bool isRoot);

}  // namespace tw
