#include "log/reference_count.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

class Counted : public CReferenceCount {
 public:
  explicit Counted(bool& destroyed) : destroyed_(destroyed) {}
  ~Counted() override { destroyed_ = true; }

 private:
  bool& destroyed_;
};

TEST(CReferenceCount, StartsAtOneAndAddRefReturnsTheNewCount) {
  bool destroyed = false;
  auto* object = new Counted(destroyed);
  EXPECT_EQ(object->AddRef(), 2);
  EXPECT_EQ(object->AddRef(), 3);
  EXPECT_EQ(object->Release(), 2);
  EXPECT_EQ(object->Release(), 1);
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(object->Release(), 0);
  EXPECT_TRUE(destroyed);
}

TEST(CReferenceCount, ReleaseFromOneDeletesThroughTheVirtualDestructor) {
  bool destroyed = false;
  CReferenceCount* base = new Counted(destroyed);
  EXPECT_EQ(base->Release(), 0);
  EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace tw
