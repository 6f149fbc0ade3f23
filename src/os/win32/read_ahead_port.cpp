// The read-ahead port on Windows: the tree walked with FindFirstFileExW (reparse points never
// entered or opened), each regular file read once through CreateFileW with sequential-scan
// caching, so that the system cache holds it when the run copies it.
#include <string>
#include <vector>

#include "os/native_ports.h"
#include "os/win32/windows_headers.h"
#include "ports/read_ahead.h"

namespace tw {
namespace {

// The deepest folder level below the start that the walk enters.
constexpr int kMaxDepth = 64;
constexpr DWORD kChunk = 1U << 20;

class Win32ReadAheadPort final : public ReadAheadPort {
 public:
  void ReadTreeAhead(std::wstring_view path, const std::function<bool()>& stop) override {
    std::vector<char> buffer(kChunk);
    Folder(std::wstring(path), 0, stop, buffer);
  }

 private:
  static void Folder(const std::wstring& folder, int depth, const std::function<bool()>& stop,
                     std::vector<char>& buffer) {
    WIN32_FIND_DATAW data{};
    const std::wstring pattern = folder + L"\\*";
    HANDLE search = ::FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &data,
                                       FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
      const std::wstring name = data.cFileName;
      if (name == L"." || name == L".." || stop()) continue;
      if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) continue;
      if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        if (depth < kMaxDepth) Folder(folder + L"\\" + name, depth + 1, stop, buffer);
      } else {
        File(folder + L"\\" + name, stop, buffer);
      }
    } while (!stop() && ::FindNextFileW(search, &data));
    ::FindClose(search);
  }

  static void File(const std::wstring& path, const std::function<bool()>& stop,
                   std::vector<char>& buffer) {
    HANDLE file = ::CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE) return;
    BY_HANDLE_FILE_INFORMATION info{};
    if (::GetFileInformationByHandle(file, &info) &&
        (info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0) {
      DWORD got = 0;
      while (!stop() && ::ReadFile(file, buffer.data(), kChunk, &got, nullptr) && got != 0) {
      }
    }
    ::CloseHandle(file);
  }
};

}  // namespace

ReadAheadPort& NativeReadAheadPort() {
  static Win32ReadAheadPort port;
  return port;
}

}  // namespace tw
