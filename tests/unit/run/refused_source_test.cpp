// RefusedSourceSuffixForV1Mode: the default mode's refusal of a source named like a later version.
#include <gtest/gtest.h>

#include <string>

#include "run/run_flow.h"

namespace tw {
namespace {

TEST(RefusedSourceSuffixForV1Mode, LastTwoCharactersWithoutRegardToCase) {
  EXPECT_EQ(RefusedSourceSuffixForV1Mode(L"\\\\srv\\p\\anna"), nullptr);
  EXPECT_EQ(std::wstring(RefusedSourceSuffixForV1Mode(L"\\\\srv\\p\\annav2")->suffix), L"V2");
  EXPECT_EQ(std::wstring(RefusedSourceSuffixForV1Mode(L"\\\\srv\\p\\*.v5")->advice), L"/V5toV6");
  EXPECT_EQ(std::wstring(RefusedSourceSuffixForV1Mode(L"V6")->advice), L"/V6toV6");
  EXPECT_EQ(RefusedSourceSuffixForV1Mode(L"2"), nullptr);
  EXPECT_EQ(RefusedSourceSuffixForV1Mode(L""), nullptr);
}

}  // namespace
}  // namespace tw
