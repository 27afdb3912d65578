#include "status/session_id.h"

#include <gtest/gtest.h>

#include <set>

#include "core/ol_utils.h"
#include "support/test_platform.h"
#include "transport/hash.h"

namespace ostrel {
namespace {

TEST(OLUtilsTest, RandomStringsDrawFromThePrintableCharset) {
  test::TestPlatform platform;
  EXPECT_EQ(OLUtils::generateRandomString(*platform.platform().crypto, 0), "");
  std::set<char> seen;
  for (int i = 0; i < 100; ++i) {
    std::string s = OLUtils::generateRandomString(*platform.platform().crypto, 40);
    ASSERT_EQ(s.size(), 40u);
    for (char c : s) {
      ASSERT_GE(c, 33);
      ASSERT_LE(c, 126);
      seen.insert(c);
    }
  }
  EXPECT_EQ(seen.size(), 94u);
}

TEST(SessionIdTest, FormatIsRandomPrefixAndItsDigestWithTheDevice) {
  test::TestPlatform platform;
  SessionId id(platform.platform(), 1800, "device-1");
  std::string v = id.value();
  ASSERT_EQ(v.size(), 52u);
  std::string prefix = v.substr(0, 12), digest = v.substr(12);
  EXPECT_EQ(digest, sha1Hex(*platform.platform().crypto, prefix + "device-1"));
  EXPECT_EQ(digest.find_first_not_of("0123456789abcdef"), std::string::npos);
  id.reset(platform.platform());
  EXPECT_NE(id.value(), v);
}

}  // namespace
}  // namespace ostrel
