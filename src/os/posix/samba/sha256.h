// SHA-256, the digest the file server's security attributes carry (from nettle).
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace tw::posix::samba {

using Sha256Digest = std::array<std::uint8_t, 32>;

Sha256Digest Sha256(std::span<const std::uint8_t> bytes);

}  // namespace tw::posix::samba
