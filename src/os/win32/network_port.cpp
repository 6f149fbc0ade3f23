// The network port over sensapi's IsNetworkAlive, ntdll's native file functions (looked up at
// run time on each test, as the system's documentation asks for these functions) and the thread
// impersonation calls of advapi32. Deliberate deviation: both libraries come from the system
// folder only (system_library.h), never by bare name; sensapi.dll is bound at run time rather
// than imported, as an imported library that is not one of the system's known libraries is
// searched for in the program's folder first.
#include "ports/network_port.h"

#include <string>

#include "os/native_ports.h"
#include "os/win32/system_library.h"
#include "os/win32/windows_headers.h"
// After the Windows setup header: the SDK's native-API header.
#include <winternl.h>

namespace tw {
namespace {

// NtCreateFile's disposition and options, as the native API defines them.
constexpr ULONG kFileOpen = 1;           // FILE_OPEN
constexpr ULONG kFileDirectoryFile = 1;  // FILE_DIRECTORY_FILE

#ifdef _WIN64
static_assert(sizeof(OBJECT_ATTRIBUTES) == 48, "object attributes of length 48");
#endif

using NtCreateFileFunction = LONG(NTAPI*)(PHANDLE fileHandle, ACCESS_MASK desiredAccess,
                                          POBJECT_ATTRIBUTES objectAttributes,
                                          PIO_STATUS_BLOCK ioStatusBlock,
                                          PLARGE_INTEGER allocationSize, ULONG fileAttributes,
                                          ULONG shareAccess, ULONG createDisposition,
                                          ULONG createOptions, PVOID eaBuffer, ULONG eaLength);
using NtCloseFunction = LONG(NTAPI*)(HANDLE handle);
using RtlInitUnicodeStringFunction = VOID(NTAPI*)(PUNICODE_STRING destination, PCWSTR source);
using IsNetworkAliveFunction = BOOL(WINAPI*)(LPDWORD flags);

template <class Function>
Function Lookup(HMODULE module, const char* name) {
  // Through a function without arguments, which GetProcAddress's type converts to silently.
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(::GetProcAddress(module, name)));
}

class Win32NetworkPort final : public NetworkPort {
 public:
  // sensapi.dll is loaded once and kept for the life of the process; without it (or its
  // function) the call fails as IsNetworkAlive failing does.
  bool QueryNetworkAlive(std::uint32_t& flags) override {
    static const IsNetworkAliveFunction isNetworkAlive = [] {
      const HMODULE sensapi = win32::LoadSystemLibrary(L"sensapi.dll");
      return sensapi == nullptr ? nullptr
                                : Lookup<IsNetworkAliveFunction>(sensapi, "IsNetworkAlive");
    }();
    if (isNetworkAlive == nullptr) return false;
    DWORD alive = 0;
    if (!isNetworkAlive(&alive)) return false;
    flags = alive;
    return true;
  }

  bool LoadNativeFileApi() override {
    ntdll_ = win32::LoadSystemLibrary(L"NTDLL.dll");
    if (ntdll_ == nullptr) return false;
    ntCreateFile_ = Lookup<NtCreateFileFunction>(ntdll_, "NtCreateFile");
    ntClose_ = Lookup<NtCloseFunction>(ntdll_, "NtClose");
    rtlInitUnicodeString_ = Lookup<RtlInitUnicodeStringFunction>(ntdll_, "RtlInitUnicodeString");
    if (ntCreateFile_ == nullptr || ntClose_ == nullptr || rtlInitUnicodeString_ == nullptr) {
      UnloadNativeFileApi();
      return false;
    }
    return true;
  }

  void UnloadNativeFileApi() override {
    if (ntdll_ != nullptr) ::FreeLibrary(ntdll_);
    ntdll_ = nullptr;
    ntCreateFile_ = nullptr;
    ntClose_ = nullptr;
    rtlInitUnicodeString_ = nullptr;
  }

  NtStatus OpenFolderForAttributes(std::wstring_view nativePath) override {
    const std::wstring path(nativePath);
    UNICODE_STRING name;
    rtlInitUnicodeString_(&name, path.c_str());
    OBJECT_ATTRIBUTES attributes;
    attributes.Length = sizeof(OBJECT_ATTRIBUTES);
    attributes.RootDirectory = nullptr;
    attributes.ObjectName = &name;
    attributes.Attributes = 0;
    attributes.SecurityDescriptor = nullptr;
    attributes.SecurityQualityOfService = nullptr;
    IO_STATUS_BLOCK ioStatus;
    HANDLE handle = nullptr;
    const LONG status =
        ntCreateFile_(&handle, FILE_READ_ATTRIBUTES, &attributes, &ioStatus, nullptr,
                      FILE_ATTRIBUTE_NORMAL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      kFileOpen, kFileDirectoryFile, nullptr, 0);
    if (status == 0) ntClose_(handle);
    return static_cast<NtStatus>(status);
  }

  bool ImpersonateToken(TokenHandle token) override {
    return ::ImpersonateLoggedOnUser(reinterpret_cast<HANDLE>(token)) != FALSE;
  }

  void RevertImpersonation() override { ::RevertToSelf(); }

 private:
  HMODULE ntdll_ = nullptr;
  NtCreateFileFunction ntCreateFile_ = nullptr;
  NtCloseFunction ntClose_ = nullptr;
  RtlInitUnicodeStringFunction rtlInitUnicodeString_ = nullptr;
};

}  // namespace

NetworkPort& NativeNetworkPort() {
  static Win32NetworkPort port;
  return port;
}

}  // namespace tw
