// The process ports of the suites (tests/fakes/wiring) and the adapters' diagnostics.
#include "ports/process_ports.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/log_capture.h"
#include "log/log.h"
#include "os/native_ports.h"
#include "ports/diagnostics.h"
#include "ports/last_error.h"

namespace tw {
namespace {

TEST(ProcessPortsTest, TheSuitesRunWithTheSystemsAdapters) {
  EXPECT_EQ(&ProcessConsole(), &NativeConsole());
  EXPECT_EQ(&ProcessComRuntime(), &NativeComRuntime());
  EXPECT_EQ(&ProcessFileSystem(), &NativeFileSystem());
  EXPECT_EQ(&ProcessSecurityPort(), &NativeSecurityPort());
  EXPECT_EQ(&ProcessNetworkPort(), &NativeNetworkPort());
  EXPECT_EQ(&ProcessModuleLoader(), &NativeModuleLoader());
  EXPECT_EQ(&ProcessSystemServices(), &NativeSystemServices());
  EXPECT_NE(NewXmlDocument(), nullptr);
}

TEST(ProcessPortsTest, TheLastErrorIsTheThreadsOwn) {
  SetThreadLastError(err::Win32Error{1234});
  EXPECT_EQ(NativeThreadLastError(), err::Win32Error{1234});
  SetNativeThreadLastError(err::kAccessDenied);
  EXPECT_EQ(ThreadLastError(), err::kAccessDenied);
  SetThreadLastError(err::kSuccess);
}

TEST(ProcessPortsTest, ADiagnosticIsTheLineLogWouldWrite) {
  testing::LogCapture capture;
  ReportDiagnostic(L"The record of %s is %s.", std::wstring(L"a\r\nb"), std::wstring(L"100%"));
  Log(L"The record of %s is %s.", std::wstring(L"a\r\nb"), std::wstring(L"100%"));
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_EQ(capture.messages()[0], capture.messages()[1]);
  ReportDiagnosticText(L"as it stands: %s");
  ASSERT_EQ(capture.messages().size(), 3u);
  EXPECT_EQ(capture.messages()[2], L"as it stands: %s");
}

}  // namespace
}  // namespace tw
