// The child process port on Windows: CreateProcessW with CREATE_NEW_PROCESS_GROUP and
// DETACHED_PROCESS (a console's Ctrl-C and Ctrl-Break then reach only the parent), one anonymous
// pipe for standard output and standard error, the NUL device as standard input. The process handle
// stays open until the object is destroyed, so the child's ids are not reused before.
#include "ports/child_process.h"

#include <atomic>
#include <mutex>

#include "base/text_encoding.h"
#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

namespace tw {
namespace {

// One argument quoted as the C run-time's command-line parser reads it back.
std::wstring QuoteArgument(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    return argument;
  }
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    if (c == L'"') {
      quoted.append(backslashes * 2 + 1, L'\\');
    } else {
      quoted.append(backslashes, L'\\');
    }
    backslashes = 0;
    quoted += c;
  }
  quoted.append(backslashes * 2, L'\\');
  quoted += L'"';
  return quoted;
}

std::string LastErrorText(const char* what) {
  return std::string(what) + " failed (error " + std::to_string(::GetLastError()) + ")";
}

class Win32Child : public ChildProcess {
 public:
  Win32Child(const PROCESS_INFORMATION& information, HANDLE output)
      : process_(information.hProcess), threadId_(information.dwThreadId), output_(output) {
    ::CloseHandle(information.hThread);
  }
  ~Win32Child() override {
    if (output_ != nullptr) ::CloseHandle(output_);
    ::WaitForSingleObject(process_, INFINITE);
    ::CloseHandle(process_);
  }

  // Takes what the pipe holds, and once the child has exited what is left; the end of the pipe
  // is not waited for, since a process the child started may have inherited its write end.
  bool ReadOutput(std::string& output) override {
    if (output_ == nullptr) return false;
    for (;;) {
      const bool exited = ::WaitForSingleObject(process_, 0) == WAIT_OBJECT_0;
      DWORD available = 0;
      if (!::PeekNamedPipe(output_, nullptr, 0, nullptr, &available, nullptr)) available = 0;
      if (available > 0) {
        char buffer[16384];
        DWORD count = 0;
        const DWORD wanted = available < sizeof buffer ? available : DWORD{sizeof buffer};
        if (::ReadFile(output_, buffer, wanted, &count, nullptr) && count > 0) {
          output.append(buffer, count);
          return true;
        }
      }
      if (exited) break;
      ::WaitForSingleObject(process_, 50);
    }
    ::CloseHandle(output_);
    output_ = nullptr;
    return false;
  }

  int WaitForExit() override {
    ::WaitForSingleObject(process_, INFINITE);
    DWORD code = 0;
    if (!::GetExitCodeProcess(process_, &code)) return -1;
    return static_cast<int>(code);
  }

  std::uint32_t LogThreadId() const override { return threadId_; }

 private:
  HANDLE process_;
  std::uint32_t threadId_;
  HANDLE output_;
};

// Inheritable handles exist only while one CreateProcessW runs, so that no child inherits the
// pipe of another.
std::mutex g_startLock;

class Win32Launcher : public ChildProcessLauncher {
 public:
  std::unique_ptr<ChildProcess> Start(const std::filesystem::path& program,
                                      const std::vector<std::string>& arguments,
                                      std::string& error) override {
    const std::wstring file = program.wstring();
    std::wstring commandLine = QuoteArgument(file);
    for (const std::string& argument : arguments) {
      commandLine += L' ';
      commandLine += QuoteArgument(Utf8ToWide(argument));
    }
    const std::lock_guard<std::mutex> hold(g_startLock);
    SECURITY_ATTRIBUTES inherit{};
    inherit.nLength = sizeof inherit;
    inherit.bInheritHandle = TRUE;
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!::CreatePipe(&readEnd, &writeEnd, &inherit, 0)) {
      error = LastErrorText("CreatePipe");
      return nullptr;
    }
    ::SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    HANDLE input = ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                                 OPEN_EXISTING, 0, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    PROCESS_INFORMATION information{};
    // A group of its own and no console at all (its output goes to the pipe), so that neither
    // Ctrl-C nor Ctrl-Break typed in the batch's console reaches the run.
    const BOOL started = ::CreateProcessW(file.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                          CREATE_NEW_PROCESS_GROUP | DETACHED_PROCESS, nullptr,
                                          nullptr, &startup, &information);
    if (!started) error = LastErrorText("CreateProcessW");
    ::CloseHandle(writeEnd);
    if (input != INVALID_HANDLE_VALUE) ::CloseHandle(input);
    if (!started) {
      ::CloseHandle(readEnd);
      return nullptr;
    }
    return std::make_unique<Win32Child>(information, readEnd);
  }
};

std::atomic<int> g_interrupts{0};

BOOL WINAPI CountInterrupt(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  g_interrupts.fetch_add(1);
  return TRUE;
}

}  // namespace

ChildProcessLauncher& NativeChildLauncher() {
  static Win32Launcher launcher;
  return launcher;
}

std::filesystem::path OwnProgramFile() {
  std::wstring buffer(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length =
        ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return {};
    if (length < buffer.size()) {
      buffer.resize(length);
      return std::filesystem::path(buffer);
    }
    buffer.resize(buffer.size() * 2);
  }
}

std::filesystem::path ProgramLogFile(const std::filesystem::path& program, bool previous) {
  std::wstring name = program.stem().wstring() + (previous ? L" (previous).log" : L".log");
  return program.parent_path() / name;
}

bool StandardOutputIsTerminal() {
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
}

void WatchInterrupts() { ::SetConsoleCtrlHandler(CountInterrupt, TRUE); }

int InterruptCount() { return g_interrupts.load(); }

}  // namespace tw
