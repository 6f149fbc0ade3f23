#include "os/posix/samba/sha256.h"

#include <nettle/sha2.h>

namespace tw::posix::samba {

Sha256Digest Sha256(std::span<const std::uint8_t> bytes) {
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, bytes.size(), bytes.data());
  Sha256Digest digest{};
  sha256_digest(&context, digest.size(), digest.data());
  return digest;
}

}  // namespace tw::posix::samba
