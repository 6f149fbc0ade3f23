#include "os/posix/samba/dos_attrib.h"

#include <cstdlib>
#include <string>

#include "os/posix/samba/ndr_writer.h"

namespace tw::posix::samba {
namespace {

constexpr std::uint32_t kValidAttributes = 0x01;
constexpr std::uint32_t kValidCreationTime = 0x10;
constexpr std::uint16_t kWrittenVersion = 5;

std::uint32_t Le32(std::span<const std::uint8_t> b, std::size_t at) {
  return static_cast<std::uint32_t>(b[at]) | (static_cast<std::uint32_t>(b[at + 1]) << 8) |
         (static_cast<std::uint32_t>(b[at + 2]) << 16) |
         (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

std::optional<std::uint32_t> ParseHex(std::span<const std::uint8_t> text) {
  const std::string value(text.begin(), text.end());
  if (value.size() < 3 || value[0] != '0' || (value[1] != 'x' && value[1] != 'X')) {
    return std::nullopt;
  }
  char* end = nullptr;
  const unsigned long parsed = std::strtoul(value.c_str() + 2, &end, 16);
  if (end == value.c_str() + 2 || *end != '\0') return std::nullopt;
  return static_cast<std::uint32_t>(parsed);
}

// Where each version keeps its fields, counted from the start of its info.
struct InfoLayout {
  bool hasFlags;
  std::size_t attributes;
  std::size_t creationTime;
  std::size_t size;  // bytes up to the end of the creation time
};

std::optional<InfoLayout> LayoutOf(std::uint16_t version) {
  switch (version) {
    case 1:
      return InfoLayout{false, 0, 24, 32};
    case 2:
      return InfoLayout{false, 4, 28, 36};
    case 3:
      return InfoLayout{true, 4, 28, 36};
    case 4:
      return InfoLayout{true, 4, 16, 24};
    case 5:
      return InfoLayout{true, 4, 8, 16};
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<DosAttrib> DecodeDosAttrib(std::span<const std::uint8_t> bytes) {
  std::size_t nul = 0;
  while (nul < bytes.size() && bytes[nul] != 0) ++nul;
  const std::span<const std::uint8_t> text = bytes.first(nul);
  std::size_t at = nul + 1;  // past the text's NUL
  at = (at + 1) & ~std::size_t{1};
  if (at + 4 > bytes.size()) {
    // The text alone (the old form), or too little after it to hold a version.
    const std::optional<std::uint32_t> value = ParseHex(text);
    if (!value) return std::nullopt;
    return DosAttrib{*value, std::nullopt};
  }
  const auto version = static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
  const auto level = static_cast<std::uint16_t>(bytes[at + 2] | (bytes[at + 3] << 8));
  if (version == 0xFFFF) {
    const std::optional<std::uint32_t> value = ParseHex(text);
    if (!value) return std::nullopt;
    return DosAttrib{*value, std::nullopt};
  }
  const std::optional<InfoLayout> layout = LayoutOf(version);
  if (!layout || level != version) return std::nullopt;
  const std::size_t info = (at + 4 + 3) & ~std::size_t{3};
  if (info + layout->size > bytes.size()) return std::nullopt;
  const std::uint32_t flags =
      layout->hasFlags ? Le32(bytes, info) : (kValidAttributes | kValidCreationTime);
  DosAttrib result;
  if ((flags & kValidAttributes) != 0) {
    result.attributes = Le32(bytes, info + layout->attributes);
  } else if (const std::optional<std::uint32_t> value = ParseHex(text)) {
    result.attributes = *value;
  }
  const std::uint64_t created = Le32(bytes, info + layout->creationTime) |
                                (std::uint64_t{Le32(bytes, info + layout->creationTime + 4)} << 32);
  if ((flags & kValidCreationTime) != 0 && created != 0) result.creationTime = created;
  return result;
}

std::vector<std::uint8_t> EncodeDosAttrib(std::uint32_t attributes, std::uint64_t creationTime) {
  NdrWriter out;
  out.bytes().push_back(0);  // the empty hex text
  out.U16(kWrittenVersion);
  out.U16(kWrittenVersion);
  out.U32(kValidAttributes | kValidCreationTime);
  out.U32(attributes);
  out.Time(creationTime);
  return std::move(out.bytes());
}

}  // namespace tw::posix::samba
