// A survey port over the fake file system: a file's first bytes are its fake content, account
// names and temporary profiles come from tables the test fills.
#pragma once

#include <algorithm>
#include <map>
#include <string>

#include "fakes/fake_file_system.h"
#include "platform/survey_port.h"

namespace tw::testing {

class FakeSurveyPort : public SurveyPort {
 public:
  explicit FakeSurveyPort(FakeFileSystem& files) : files_(files) {}

  err::Win32Error ReadFileHead(std::wstring_view path, std::size_t count,
                               std::vector<std::uint8_t>& bytes) override {
    bytes.clear();
    if (!files_.HasFile(path)) return err::kFileNotFound;
    const std::string content = files_.FileContent(path);
    bytes.assign(content.begin(), content.begin() + std::min(count, content.size()));
    return err::kSuccess;
  }
  std::wstring AccountNameOf(const security::Sid& sid) override {
    const auto found = names.find(sid.ToString());
    return found == names.end() ? std::wstring() : found->second;
  }
  std::wstring TemporaryProfileOf(const security::Sid& sid) override {
    const auto found = temporaryProfiles.find(sid.ToString());
    return found == temporaryProfiles.end() ? std::wstring() : found->second;
  }

  std::map<std::wstring, std::wstring> names;              // by SID text
  std::map<std::wstring, std::wstring> temporaryProfiles;  // by SID text

 private:
  FakeFileSystem& files_;
};

}  // namespace tw::testing
