// Serialises a key tree into the bytes of a new regf file.
//
// The file is written anew and compact: one base block, then hive bins filled cell after cell
// with no free space carried over (only the tail of a bin that the next cell does not fit in is
// left as one free cell). Keys are laid out depth first: a key node, its class, its values with
// their data, then its sub keys' trees, then its sub key list, so that one key's cells lie close
// together.
//
// Format versions: every OS version pair the offline-registry library documents or our callers
// pass (5.1, 5.2, 6.0, 6.1, 6.2, 6.3, 10.0) gives regf 1.5, the format the platform library
// writes for all of them: hash leaves ("lh") with index roots ("ri") above 1012 entries, big
// data records ("db") for value data over 16,344 bytes. The base block carries the marker the
// current platform library writes ("OfRg" at 176, flags 1 at 180, the save time at 512). Other
// pairs are refused (ERROR_INVALID_PARAMETER in ORSaveHive).
//
// Security: one security cell per distinct descriptor (equal bytes share a cell), with the
// number of keys that use it as its reference count, all cells in one circular doubly-linked
// list in the order they were written. A key without a descriptor gets the default one.
// Maximum-length fields are computed from the tree (bytes, names counted as UTF-16).
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "hive/hive_model.h"

namespace tw::hive {

// The regf minor version written for an OS version pair, or 0 when the pair is not supported.
std::uint32_t FormatMinorForOsVersion(std::uint32_t major, std::uint32_t minor);

// `root` becomes the root of the new hive, with all its sub keys; `fileName` goes into the
// base block's file name field (its last 31 characters); `now` is the save time (FILETIME).
std::vector<std::uint8_t> SerializeHive(const Key& root, std::uint32_t formatMinor,
                                        std::wstring_view fileName, std::uint64_t now);

}  // namespace tw::hive
