// tarnwick-hive: dump, save and check registry hive files through the hive engine.
//
//   tarnwick-hive dump FILE
//   tarnwick-hive save FILE OUT --os 6.1|6.2|6.3|10.0
//   tarnwick-hive check FILE
//
// Exit values: 0 success; 1 the hive cannot be read, saved, or has structural faults (notes of
// harmless habits do not count); 2 a usage error. Messages go to standard error, the dump and
// the check's notes to standard output, all in UTF-8.
#include <cstdio>
#include <string>
#include <vector>

#include "base/format.h"
#include "base/text_encoding.h"
#include "dump_text.h"
#include "hive/hive_file.h"
#include "hive/hive_lint.h"
#include "hive/hive_log_recovery.h"
#include "hive/hive_reader.h"
#include "hive/offreg_api.h"

namespace tw::hive_tool {

namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

void Write(std::FILE* stream, const std::wstring& text) {
  const std::string bytes = WideToUtf8(text);
  std::fwrite(bytes.data(), 1, bytes.size(), stream);
}

int Usage() {
  Write(stderr,
        L"usage: tarnwick-hive dump FILE\n"
        L"       tarnwick-hive save FILE OUT --os 6.1|6.2|6.3|10.0\n"
        L"       tarnwick-hive check FILE\n");
  return kUsage;
}

int Fail(const std::wstring& message) {
  Write(stderr, L"tarnwick-hive: " + message + L"\n");
  return kFailed;
}

// A hive that was not cleanly closed is read as the engine's OROpenHive reads it: recovered from
// the transaction logs beside it when they can be applied. Every command says on standard error
// what was done to it.
void NoteRecovery(const std::wstring& path, hive::RecoveryState state, const std::wstring& detail) {
  const std::wstring why = detail.empty() ? std::wstring() : L" (" + detail + L")";
  if (state == hive::RecoveryState::kRecovered) {
    Write(stderr, L"tarnwick-hive: note: " + path +
                      L" was not cleanly closed; recovered from its transaction logs" + why +
                      L"\n");
  } else if (state == hive::RecoveryState::kNotRecovered) {
    Write(stderr, L"tarnwick-hive: note: " + path +
                      L" was not cleanly closed and its transaction logs could not be applied" +
                      why + L"; read as it stands\n");
  }
}

// Reads the hive file as OROpenHive does (recovering it from its logs when it is dirty); on
// failure prints why. Notes a recovery.
bool Read(const std::wstring& path, hive::HiveFile* file) {
  const err::Win32Error read = hive::ReadHiveFile(path, file);
  if (read != err::kSuccess) {
    Fail(Format(L"cannot read %s (error %u)", path, read));
    return false;
  }
  NoteRecovery(path, file->state, file->detail);
  return true;
}

// Reads and parses the hive; on failure prints why and returns nothing.
std::unique_ptr<hive::Hive> Load(const std::wstring& path, hive::HiveFile* file) {
  if (!Read(path, file)) return nullptr;
  hive::ReadResult result = hive::ParseHive(file->View());
  if (result.error != err::kSuccess) {
    Fail(Format(L"%s is not a valid hive (error %u): %s", path, result.error, result.reason));
    return nullptr;
  }
  return std::move(result.hive);
}

int Dump(const std::wstring& path) {
  hive::HiveFile file;
  const auto hive = Load(path, &file);
  if (!hive) return kFailed;
  std::string buffer;
  DumpHive(*hive->root, [&buffer](const std::wstring& line) {
    buffer += WideToUtf8(line);
    buffer += '\n';
    if (buffer.size() > (1u << 16)) {
      std::fwrite(buffer.data(), 1, buffer.size(), stdout);
      buffer.clear();
    }
  });
  std::fwrite(buffer.data(), 1, buffer.size(), stdout);
  return std::fflush(stdout) == 0 ? kOk : kFailed;
}

int Save(const std::wstring& in, const std::wstring& out, const std::wstring& os) {
  hive::DWORD major = 0;
  hive::DWORD minor = 0;
  if (os == L"6.1" || os == L"6.2" || os == L"6.3") {
    major = 6;
    minor = static_cast<hive::DWORD>(os[2] - L'0');
  } else if (os == L"10.0") {
    major = 10;
  } else {
    Write(stderr, L"tarnwick-hive: --os takes 6.1, 6.2, 6.3 or 10.0\n");
    return kUsage;
  }
  hive::ORHKEY root = nullptr;
  const hive::DWORD opened = hive::tw_OROpenHive(in.c_str(), &root);
  if (opened != err::kSuccess) return Fail(Format(L"cannot open %s (error %u)", in, opened));
  hive::DWORD state = 0;
  if (hive::tw_QueryHiveRecovery(root, &state) == err::kSuccess) {
    NoteRecovery(in, static_cast<hive::RecoveryState>(state), L"");
  }
  const hive::DWORD saved = hive::tw_ORSaveHive(root, out.c_str(), major, minor);
  hive::tw_ORCloseHive(root);
  if (saved != err::kSuccess) return Fail(Format(L"cannot save %s (error %u)", out, saved));
  return kOk;
}

int Check(const std::wstring& path) {
  hive::HiveFile file;
  if (!Read(path, &file)) return kFailed;
  const hive::LintReport report = hive::LintHive(file.View());
  for (const std::wstring& note : report.notes) Write(stdout, path + L": note: " + note + L"\n");
  if (report.problems.empty()) {
    Write(stdout,
          Format(L"%s: sound (%u free cells, %u free bytes)\n", path,
                 static_cast<unsigned>(report.freeCells), static_cast<unsigned>(report.freeBytes)));
    return kOk;
  }
  for (const std::wstring& problem : report.problems) Write(stderr, path + L": " + problem + L"\n");
  return Fail(Format(L"%s is not a sound hive (%u problems)", path,
                     static_cast<unsigned>(report.problems.size())));
}

}  // namespace

int Run(const std::vector<std::wstring>& args) {
  if (args.size() == 2 && args[0] == L"dump") return Dump(args[1]);
  if (args.size() == 2 && args[0] == L"check") return Check(args[1]);
  if (args.size() == 5 && args[0] == L"save" && args[3] == L"--os") {
    return Save(args[1], args[2], args[4]);
  }
  return Usage();
}

}  // namespace tw::hive_tool

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
  std::vector<std::wstring> args(argv + 1, argv + argc);
  return tw::hive_tool::Run(args);
}
#else
int main(int argc, char** argv) {
  std::vector<std::wstring> args;
  for (int i = 1; i < argc; ++i) args.push_back(tw::Utf8ToWide(argv[i]));
  return tw::hive_tool::Run(args);
}
#endif
