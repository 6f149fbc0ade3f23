// Stores a security descriptor on a file or folder as the POSIX adapter stores one it writes:
// the owner's account becomes the POSIX owner, then the descriptor is stored with the POSIX ACLs
// the file server would set for it (tests/samba/posix_acl_test.py compares them with its own).
//
//     tarnwick-store-security <path> <self-relative descriptor in hex>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "descriptor/security_descriptor.h"
#include "log/log_diagnostics.h"
#include "os/native_ports.h"
#include "os/posix/samba/account_map.h"
#include "os/posix/security/descriptor_store.h"
#include "ports/process_ports.h"

// The tool runs with the system's adapters, as tarnwick does; what they cannot return in a result
// goes to the log.
const tw::ProcessPorts& tw::InstalledProcessPorts() {
  static const ProcessPorts ports = NativeProcessPorts(LogDiagnosticSink());
  return ports;
}

namespace {

bool FromHex(const std::string& text, std::vector<std::uint8_t>& bytes) {
  if (text.size() % 2 != 0) return false;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    unsigned value = 0;
    if (std::sscanf(text.c_str() + i, "%2x", &value) != 1) return false;
    bytes.push_back(static_cast<std::uint8_t>(value));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: tarnwick-store-security <path> <descriptor hex>\n", stderr);
    return 2;
  }
  std::vector<std::uint8_t> bytes;
  tw::security::SecurityDescriptor sd;
  if (!FromHex(argv[2], bytes) ||
      tw::security::ParseSelfRelative(bytes, &sd) != tw::err::kSuccess) {
    std::fputs("not a self-relative descriptor\n", stderr);
    return 2;
  }
  const std::string path = argv[1];
  if (sd.owner) {
    if (const auto uid = tw::posix::samba::Accounts().UidOf(*sd.owner)) {
      if (::lchown(path.c_str(), static_cast<uid_t>(*uid), static_cast<gid_t>(-1)) != 0) {
        std::perror("lchown");
        return 1;
      }
    }
  }
  const tw::err::Win32Error error = tw::posix::StoreDescriptor(path, sd);
  if (error != tw::err::kSuccess) {
    std::fprintf(stderr, "storing failed: %u\n", static_cast<unsigned>(error));
    return 1;
  }
  return 0;
}
