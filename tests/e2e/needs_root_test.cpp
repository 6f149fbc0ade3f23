// The built binary keeps Windows security where the Linux file server keeps it, in the
// "security.NTACL" extended attribute, which only root may write: without root every end-to-end
// test is skipped, and says so.
#include <gtest/gtest.h>
#include <unistd.h>

namespace tw {
namespace {

class NeedsRoot : public ::testing::Environment {
 public:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "skipped: the tool writes security.NTACL (root only)";
  }
};

[[maybe_unused]] ::testing::Environment* const kNeedsRoot =
    ::testing::AddGlobalTestEnvironment(new NeedsRoot);

}  // namespace
}  // namespace tw
