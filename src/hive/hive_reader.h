// Parses the bytes of a regf file into the in-memory model.
//
// The file is never trusted: every offset must name the start of an allocated cell inside the
// hive bins data, every length and count must fit the cell that holds it, every cell but a
// security cell may be used once only (so a cycle, a key listed twice or data shared between
// values is an error, and the model never grows beyond a small multiple of the file), and the
// tree is walked with an explicit stack, at most kMaxDepth levels deep.
//
// Result codes (the platform's OROpenHive gives the same two):
// - ERROR_BADDB (1009): the file is empty, or larger than 4 GB;
// - ERROR_NOT_REGISTRY_FILE (1017): anything else that is not a valid hive: a wrong signature,
//   a base block shorter than 4096 bytes, a bad checksum, an unknown version (regf 1.3 to 1.6
//   are read), hive bins data running past the end of the file, a malformed bin or cell, or a
//   record that does not hold together.
// A primary file whose two sequence numbers differ (not cleanly written) is read as it stands:
// the parser sees only the bytes it is given. OROpenHive replays the transaction logs beside such
// a file first (hive_log_recovery.h) and hands the parser the recovered bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "base/win32_error.h"
#include "hive/hive_model.h"

namespace tw::hive {

constexpr std::size_t kMaxDepth = 1024;

struct ReadResult {
  err::Win32Error error = err::kSuccess;
  std::wstring reason;  // what was wrong, for diagnostics and tests
  std::unique_ptr<Hive> hive;
};

ReadResult ParseHive(std::span<const std::uint8_t> file);

// The checks of a file's base block that ParseHive makes first, on its first bytes (`head`, at
// least the 4096 of the base block for a valid one) and the file's size: empty or over 4 GB
// (ERROR_BADDB), then truncated base block, signature, checksum, version 1.3 to 1.6, primary file
// type, hive bins data size (ERROR_NOT_REGISTRY_FILE), each with ParseHive's reason.
struct BaseBlockCheck {
  err::Win32Error error = err::kSuccess;
  std::wstring reason;
  std::uint32_t minorVersion = 0;
  std::uint32_t dataSize = 0;
};
BaseBlockCheck CheckBaseBlock(std::span<const std::uint8_t> head, std::uint64_t fileSize);

}  // namespace tw::hive
