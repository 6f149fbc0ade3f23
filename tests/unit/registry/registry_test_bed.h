// Helpers of the registry migration's tests: hive files made from .reg text over the minimal hive
// of tests/data/hives (by the project's own engine: these tests are about the migration, not
// about reading other writers' hives, which the hive suite's oracle tests cover), read back by
// independent readers (hivexregedit --export, reglookup), and a migration context over the fake
// offline-registry table (the real hive engine with failure switches).
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"
#include "fakes/fake_file_system.h"
#include "fakes/fake_offreg.h"
#include "fakes/fake_security_port.h"
#include "fakes/log_capture.h"
#include "fakes/process_runner.h"
#include "fakes/reg_text_hive.h"
#include "fakes/temp_folder.h"
#include "migration/migration_context.h"
#include "migration/migration_settings.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"
#include "ports/security_port.h"

namespace tw::testing {

// The Windows form ("Z:\tmp\...") of a Linux path, as the migration hands paths around.
inline std::wstring WinPath(const std::filesystem::path& path) {
  return posix::ToWindowsPath(path.string());
}

// Writes a hive at `file`: the minimal hive with the keys and values of `reg` merged in by the
// project's own hive engine (fakes/reg_text_hive.h). `reg` is the body of a .reg file (without
// its header line); its keys are written "[\Software\Foo]".
inline void MakeHive(const std::filesystem::path& file, const std::string& reg) {
  ASSERT_EQ(WriteHiveFromRegText(
                std::filesystem::path(TARNWICK_TESTDATA_DIR) / "hives" / "windows-2003-minimal.hiv",
                reg, file),
            "");
}

// hivexregedit --export of the whole hive: .reg text, keys sorted by hivex.
inline std::string ExportHive(const std::filesystem::path& file, const std::string& key = "\\") {
  const ProcessResult exported =
      RunProcess("/usr/bin/hivexregedit", {"--export", "--prefix", "", file.string(), key});
  EXPECT_EQ(exported.exitStatus, 0) << exported.errors;
  return exported.output;
}

// reglookup's lines (PATH,TYPE,VALUE,MTIME,OWNER,GROUP,SACL,DACL,CLASS with -s) for one path
// prefix, or the whole hive.
inline std::vector<std::string> Reglookup(const std::filesystem::path& file,
                                          const std::string& prefix = "") {
  std::vector<std::string> args = {"-s"};
  if (!prefix.empty()) {
    args.push_back("-p");
    args.push_back(prefix);
  }
  args.push_back(file.string());
  const ProcessResult looked = RunProcess("/usr/bin/reglookup", args);
  std::vector<std::string> lines;
  std::string line;
  for (const char c : looked.output) {
    if (c == '\n') {
      if (!line.empty() && line.rfind("PATH,", 0) != 0) lines.push_back(line);
      line.clear();
    } else {
      line.push_back(c);
    }
  }
  return lines;
}

// The reglookup line of one key ("/Software/Foo"), or "" when the hive does not hold it.
inline std::string ReglookupKey(const std::filesystem::path& file, const std::string& path) {
  for (const std::string& line : Reglookup(file, path)) {
    if (line.rfind(path + ",KEY,", 0) == 0) return line;
  }
  return "";
}

// The fields of a reglookup -s key line: 0 PATH, 1 TYPE, 2 VALUE, 3 MTIME, 4 OWNER, 5 GROUP,
// 6 SACL, 7 DACL, 8 CLASS.
inline std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields(1);
  for (const char c : line) {
    if (c == ',') {
      fields.emplace_back();
    } else {
      fields.back().push_back(c);
    }
  }
  return fields;
}

inline security::Sid SidOf(const wchar_t* text) {
  security::Sid sid;
  EXPECT_EQ(security::Sid::FromString(text, &sid), 0u) << "bad SID in a test";
  return sid;
}

// A self-relative descriptor with `owner` (may be null: none) and a DACL that allows each SID of
// `allowed` full access (KEY_ALL_ACCESS), with SE_DACL_PROTECTED when `isProtected`.
inline std::vector<std::uint8_t> MakeDescriptor(const wchar_t* owner,
                                                const std::vector<const wchar_t*>& allowed,
                                                bool isProtected = false) {
  security::SecurityDescriptor sd;
  if (owner != nullptr) sd.owner = SidOf(owner);
  std::vector<security::Ace> aces;
  for (const wchar_t* sid : allowed) aces.push_back(security::Ace::Allowed(0xF003F, SidOf(sid)));
  security::Acl acl;
  EXPECT_EQ(security::Acl::FromAces(2, aces, &acl), 0u);
  sd.SetDacl(acl);
  if (isProtected) sd.control |= security::kSeDaclProtected;
  return security::MakeSelfRelative(sd);
}

// A migration context over the fake offline-registry table and fake ports, with the log
// captured.
struct RegistryTestBed {
  MigrationSettings settings;
  FakeFileSystem files;
  FakeSecurityPort security;
  FakeOffreg fake;
  MigrationContext context{&settings, files, security, fake.offreg()};
  LogCapture log;
  TempFolder folder;
};

// A migration context over the process's real file-system and security ports (temporary files
// named in Windows form) and the fake offline-registry table.
struct RealFilesTestBed {
  MigrationSettings settings;
  FakeOffreg fake;
  MigrationContext context{&settings, ProcessFileSystem(), ProcessSecurityPort(), fake.offreg()};
  LogCapture log;
  TempFolder folder;
};

// UTF-16LE text as the hex list of a .reg file ("41,00,42,00"), with a terminating zero when
// `terminated`.
inline std::string RegHex(const std::wstring& text, bool terminated = true) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  std::wstring all = text;
  if (terminated) all.push_back(L'\0');
  for (const wchar_t c : all) {
    for (const unsigned byte :
         {static_cast<unsigned>(c) & 0xFFu, (static_cast<unsigned>(c) >> 8) & 0xFFu}) {
      if (!out.empty()) out.push_back(',');
      out.push_back(digits[byte >> 4]);
      out.push_back(digits[byte & 15]);
    }
  }
  return out;
}

// The .reg lines that make the key chain down to the Explorer key of
// "Software\Microsoft\Windows\CurrentVersion", where the shell-folder keys live.
inline constexpr const char* kExplorerKeys =
    "[\\Software]\n\n[\\Software\\Microsoft]\n\n[\\Software\\Microsoft\\Windows]\n\n"
    "[\\Software\\Microsoft\\Windows\\CurrentVersion]\n\n"
    "[\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer]\n\n";

// The .reg header line of a key below Explorer ("User Shell Folders", "Shell Folders").
inline std::string ExplorerSection(const char* key) {
  return std::string("[\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\") + key + "]\n";
}

// A REG_EXPAND_SZ value line.
inline std::string ExpandValue(const char* name, const std::wstring& text) {
  return std::string("\"") + name + "\"=hex(2):" + RegHex(text) + "\n";
}

}  // namespace tw::testing
