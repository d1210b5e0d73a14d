// Inputs the fuzzers found, kept as cases of their own.
#include <string>

#include "platform/lss_client.h"
#include "support/test_support.h"

namespace {

// Every accepted picture address must still be accepted in the spelling the
// client sends: an address of sub-delimiters just under the length limit
// grows past it once percent-encoded, and is refused.
TEST(HostileInput, AStorageAddressThatEncodesPastTheLimitIsRefused) {
  const std::string origin = "http://127.0.0.2:6011";
  std::string path;
  const std::string shortOne = origin + "/pss/" + std::string(100, '=');
  ASSERT_TRUE(OxBase::LssObjectPath(origin, shortOne.c_str(), &path));
  std::string again;
  EXPECT_TRUE(OxBase::LssObjectPath(origin, (origin + path).c_str(), &again));
  EXPECT_EQ(again, path);

  const std::string longOne = origin + "/pss/" + std::string(4000, '=');
  path = "untouched";
  EXPECT_FALSE(OxBase::LssObjectPath(origin, longOne.c_str(), &path));
  EXPECT_EQ(path, "untouched");
}

}  // namespace
