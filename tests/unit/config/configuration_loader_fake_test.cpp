// The configuration loader's failure paths, through the fake XML document.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/hresult_error.h"
#include "config/configuration_loader.h"
#include "fakes/fake_xml_document.h"
#include "fakes/log_capture.h"

namespace tw {
namespace {

using ::tw::testing::FakeText;
using ::tw::testing::FakeXmlDocument;
using ::tw::testing::FakeXmlNode;
using ::tw::testing::LogCapture;

constexpr HResult kClassNotRegistered = HResult::FromBits(0x80040154u);  // REGDB_E_CLASSNOTREG

class ConfigurationLoaderFakeTest : public ::testing::Test {
 protected:
  ConfigurationLoaderFakeTest() {
    settings_.sourcePath = L"kept source";
    settings_.registryMask = 0x3u;
  }
  void ExpectUntouched() const {
    EXPECT_EQ(settings_.sourcePath, L"kept source");
    EXPECT_EQ(settings_.registryMask, 0x3u);
    EXPECT_FALSE(settings_.takeOwnership);
  }
  // A root that would change every field it reaches.
  void FillRoot() {
    document_.root.attributes[L"takeownership"] = 1;
    FakeXmlNode& source = document_.root.Add({L"source", {}, {}, {}});
    source.Add(FakeText(L"profilepath", L"from file"));
    FakeXmlNode& registry =
        document_.root.Add({L"migration", {}, {}, {}}).Add({L"registry", {}, {}, {}});
    registry.Add(FakeText(L"includekeys", L"Console"));
  }

  FakeXmlDocument document_;
  MigrationSettings settings_;
  LogCapture log_;
};

TEST_F(ConfigurationLoaderFakeTest, ComCreationFailureIsReturned) {
  FillRoot();
  document_.createResult = kClassNotRegistered;
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), kClassNotRegistered);
  EXPECT_TRUE(document_.loadedPaths.empty());
  ExpectUntouched();
  EXPECT_TRUE(log_.messages().empty());
}

TEST_F(ConfigurationLoaderFakeTest, LoadFailureIsReturned) {
  FillRoot();
  document_.loadResult = HResult::FromBits(0x800C0005u);
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_),
            HResult::FromBits(0x800C0005u));
  EXPECT_EQ(document_.createCalls, 1);
  EXPECT_EQ(document_.loadedPaths, std::vector<std::wstring>{L"C:\\cfg.xml"});
  ExpectUntouched();
}

TEST_F(ConfigurationLoaderFakeTest, LoadSuccessCodesAreNotExamined) {
  FillRoot();
  document_.loadResult = hr::kFalse;
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), hr::kOk);
  EXPECT_EQ(settings_.sourcePath, L"from file");
}

TEST_F(ConfigurationLoaderFakeTest, DocumentElementResultOtherThanOkIsReturnedAsItIs) {
  FillRoot();
  document_.documentElementResult = hr::kFalse;
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), hr::kFalse);
  ExpectUntouched();
  document_.documentElementResult = hr::kFail;
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), hr::kFail);
  ExpectUntouched();
  EXPECT_TRUE(log_.messages().empty());
}

TEST_F(ConfigurationLoaderFakeTest, FailingAttributeReadLeavesTakeOwnershipAlone) {
  settings_.takeOwnership = true;
  document_.root.attributeResult = hr::kFail;
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), hr::kOk);
  EXPECT_TRUE(settings_.takeOwnership);
}

TEST_F(ConfigurationLoaderFakeTest, UnconvertibleAttributeCountsAsZero) {
  settings_.takeOwnership = true;
  document_.root.attributes[L"takeownership"] = std::nullopt;
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), hr::kOk);
  EXPECT_FALSE(settings_.takeOwnership);
}

TEST_F(ConfigurationLoaderFakeTest, FailingDisabledReadLeavesRegistryMask) {
  FakeXmlNode& registry =
      document_.root.Add({L"migration", {}, {}, {}}).Add({L"registry", {}, {}, {}});
  registry.attributeResult = hr::kFail;
  registry.Add(FakeText(L"excludekeys", L"Console"));
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), hr::kOk);
  EXPECT_EQ(settings_.registryMask, 0x2u);
}

TEST_F(ConfigurationLoaderFakeTest, FailingChildLookupSkipsTheItem) {
  FillRoot();
  document_.root.children[0].selectResult = hr::kFail;  // "source"
  EXPECT_EQ(LoadConfiguration(settings_, L"C:\\cfg.xml", document_), hr::kOk);
  EXPECT_EQ(settings_.sourcePath, L"kept source");
  EXPECT_EQ(settings_.registryMask, 0x1u);
  EXPECT_TRUE(settings_.takeOwnership);
}

TEST_F(ConfigurationLoaderFakeTest, FailingTextReadIsRaised) {
  FillRoot();
  document_.root.children[0].children[0].textResult = kClassNotRegistered;
  try {
    // The call throws.
    static_cast<void>(LoadConfiguration(settings_, L"C:\\cfg.xml", document_));
    FAIL() << "no exception";
  } catch (const HResultError& error) {
    EXPECT_EQ(error.code(), kClassNotRegistered);
  }
}

}  // namespace
}  // namespace tw
