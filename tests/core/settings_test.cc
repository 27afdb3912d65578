#include <gtest/gtest.h>

#include <fstream>

#include "core/ol_default.h"
#include "platform/defaults.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

class SettingsTest : public ::testing::Test {
 protected:
  test::TestPlatform platform_;
  std::string path() const { return platform_.root() + "/settings.json"; }
  OLDefault reopen() {
    auto files = platform::makePosixFileSystem(platform_.root());
    return OLDefault(platform::makeFileSettingsStore(files, path()));
  }
};

// The library stores texts only (its one caller keeps the distribution group);
// a double shows that the file keeps a value's type and precision.
TEST_F(SettingsTest, PlainValuesRoundTripAcrossReopenAndKeepTheirType) {
  {
    OLDefault d = OLDefault(platform_.platform().settings);
    d.set(std::string("text"), Key<std::string>("s"));
    d.set(0.1 + 0.2, Key<double>("d"));
    d.set(std::string("gone"), Key<std::string>("cleared"));
    d.clear(Key<std::string>("cleared"));
  }
  // Texts come back byte for byte, also when they are not UTF-8.
  const std::string texts[] = {"", "caf\xC3\xA9 \xE2\x80\xA8", std::string("\xff\xfe\x00\x80x", 5),
                               "\xC3", "\xED\xA0\x80"};
  for (std::size_t i = 0; i < std::size(texts); ++i)
    OLDefault(platform_.platform().settings)
        .set(texts[i], Key<std::string>("t" + std::to_string(i)));
  OLDefault d = reopen();
  for (std::size_t i = 0; i < std::size(texts); ++i)
    EXPECT_EQ(d.get(Key<std::string>("t" + std::to_string(i))), texts[i]) << i;
  EXPECT_EQ(d.get(Key<std::string>("s")), "text");
  EXPECT_EQ(d.get(Key<double>("d")), 0.1 + 0.2);
  EXPECT_FALSE(d.has(Key<std::string>("cleared")));
  // Read through a key of another type: absent.
  EXPECT_FALSE(d.get(Key<double>("s")).has_value());
}

TEST_F(SettingsTest, CorruptOrMissingFileReadsAsEmpty) {
  OLDefault(platform_.platform().settings).set(std::string("v"), Key<std::string>("k"));
  for (const std::string content : {"", "{not json", "[1,2]", "{\"k\": 5}", "\xff\xfe",
                                    "{\"k\": {\"type\": \"string\", \"value\": 3}}"}) {
    std::ofstream(path(), std::ios::trunc) << content;
    EXPECT_FALSE(reopen().get(Key<std::string>("k")).has_value()) << content;
  }
  std::remove(path().c_str());
  EXPECT_FALSE(reopen().has(Key<std::string>("k")));
}

}  // namespace
}  // namespace ostrel
