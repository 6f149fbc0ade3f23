// libFuzzer target for the descriptor codec: any input that parses as a self-relative
// descriptor must build again, and what was built must parse to the same descriptor and build
// to the same bytes. SIDs and ACLs read from the start of the input must round-trip the same way
// (the SID also through its text form). Nothing may read outside the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "base/hresult_error.h"
#include "base/win32_error.h"
#include "descriptor/ace_order.h"
#include "descriptor/acl.h"
#include "descriptor/inheritance.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"
#include "descriptor/well_known_sids.h"

namespace {

using tw::err::kSuccess;
namespace sec = tw::security;

void Require(bool condition) {
  if (!condition) std::abort();
}

void CheckDescriptor(std::span<const std::uint8_t> input) {
  sec::SecurityDescriptor first;
  if (sec::ParseSelfRelative(input, &first) != kSuccess) return;
  const std::vector<std::uint8_t> built = sec::MakeSelfRelative(first);
  sec::SecurityDescriptor second;
  Require(sec::ParseSelfRelative(built, &second) == kSuccess);
  Require(second == first);
  Require(sec::MakeSelfRelative(second) == built);

  if (first.dacl) {
    Require(sec::IsCanonical(sec::CanonicalOrder(first.dacl->aces())));
    try {
      const sec::SecurityDescriptor child = sec::InheritFromParent(
          first, true, sec::LocalSystemSid(), sec::LocalSystemSid(), sec::kRegistryKeyMapping);
      sec::SecurityDescriptor reread;
      Require(sec::ParseSelfRelative(sec::MakeSelfRelative(child), &reread) == kSuccess);
      Require(reread == child);
    } catch (const tw::HResultError&) {
      // Only a child list over 64 KiB can fail; it is refused, never written.
    }
  }
}

void CheckAcl(std::span<const std::uint8_t> input) {
  sec::Acl acl;
  if (sec::Acl::Parse(input, &acl) != kSuccess) return;
  const std::vector<std::uint8_t> built = acl.ToBytes();
  Require(built.size() == acl.size());
  sec::Acl again;
  Require(sec::Acl::Parse(built, &again) == kSuccess);
  Require(again == acl);
}

void CheckSid(std::span<const std::uint8_t> input) {
  sec::Sid sid;
  std::size_t used = 0;
  if (sec::Sid::Parse(input, &sid, &used) != kSuccess) return;
  Require(sid.ToBytes() == std::vector<std::uint8_t>(input.begin(), input.begin() + used));
  sec::Sid fromText;
  Require(sec::Sid::FromString(sid.ToString(), &fromText) == kSuccess);
  Require(fromText == sid);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> input(data, size);
  CheckDescriptor(input);
  CheckAcl(input);
  CheckSid(input);
  return 0;
}
