#include "os/posix/paths/computer_name.h"

#include <unistd.h>

#include <array>

#include "base/text_encoding.h"
#include "base/wide_string.h"

namespace tw::posix {
namespace {

constexpr std::size_t kMaxNetBiosName = 15;

}  // namespace

std::wstring ComputerNameFromHostName(std::string_view hostName) {
  const std::size_t dot = hostName.find('.');
  std::wstring name = Utf8ToWide(hostName.substr(0, dot));
  if (name.size() > kMaxNetBiosName) name.resize(kMaxNetBiosName);
  for (wchar_t& c : name) c = ToUpperWindows(c);
  if (name.empty()) name = L"LOCALHOST";
  return name;
}

std::string HostName() {
  std::array<char, 256> buffer{};
  if (::gethostname(buffer.data(), buffer.size() - 1) != 0) return "";
  return buffer.data();
}

std::wstring ComputerName() { return ComputerNameFromHostName(HostName()); }

}  // namespace tw::posix
