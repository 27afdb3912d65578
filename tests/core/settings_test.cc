#include <gtest/gtest.h>

#include <fstream>

#include "core/ol_default.h"
#include "platform/defaults.h"
#include "support/test_platform.h"

namespace ostrel {

struct Profile {
  std::string name;
  int age = 0;
  bool operator==(const Profile&) const = default;
};
void to_json(Json& j, const Profile& p) {
  j = Json{{"name", p.name}, {"age", p.age}};
}
void from_json(const Json& j, Profile& p) {
  j.at("name").get_to(p.name);
  j.at("age").get_to(p.age);
}

enum class Color { Red, Green };
namespace detail {
template <>
struct RawValueTraits<Color> {
  static constexpr bool kEnabled = true;
  using Raw = std::string;
  static std::string toRaw(Color c) { return c == Color::Red ? "red" : "green"; }
  static std::optional<Color> fromRaw(const std::string& s) {
    if (s == "red") return Color::Red;
    if (s == "green") return Color::Green;
    return std::nullopt;
  }
};
}  // namespace detail

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

TEST_F(SettingsTest, PlainValuesRoundTripAcrossReopenAndKeepTheirType) {
  {
    OLDefault d = OLDefault(platform_.platform().settings);
    d.set(std::string("text"), Key<std::string>("s"));
    d.set(true, Key<bool>("b"));
    d.set(int64_t{-42}, Key<int64_t>("i"));
    d.set(1.1f, Key<float>("f"));
    d.set(0.1 + 0.2, Key<double>("d"));
    d.set(OLDate{1700000000.5}, Key<OLDate>("date"));
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
  EXPECT_EQ(d.get(Key<bool>("b")), true);
  EXPECT_EQ(d.get(Key<int64_t>("i")), -42);
  EXPECT_EQ(d.get(Key<float>("f")), 1.1f);
  EXPECT_EQ(d.get(Key<double>("d")), 0.1 + 0.2);
  EXPECT_EQ(d.get(Key<OLDate>("date")), OLDate{1700000000.5});
  // Read through a key of another type: absent.
  EXPECT_FALSE(d.get(Key<std::string>("d")).has_value());
  EXPECT_FALSE(d.get(Key<int64_t>("d")).has_value());
  EXPECT_FALSE(d.get(Key<double>("s")).has_value());
}

TEST_F(SettingsTest, EncodableRecordsEnumsAndClear) {
  OLDefault d = OLDefault(platform_.platform().settings);
  d.set(Profile{"ann", 30}, Key<Profile>("p"));
  d.set(Color::Green, Key<Color>("c"));
  EXPECT_EQ(reopen().get(Key<Profile>("p")), (Profile{"ann", 30}));
  EXPECT_EQ(reopen().get(Key<Color>("c")), Color::Green);

  // A stored blob that no longer decodes as the type reads as absent.
  d.set(std::string("purple"), Key<std::string>("c"));
  EXPECT_FALSE(d.get(Key<Color>("c")).has_value());
  d.set(std::vector<int>{1, 2}, Key<std::vector<int>>("p"));
  EXPECT_FALSE(d.get(Key<Profile>("p")).has_value());

  EXPECT_TRUE(d.has(Key<Profile>("p")));
  d.clear(Key<Profile>("p"));
  EXPECT_FALSE(d.has(Key<Profile>("p")));
  EXPECT_FALSE(reopen().get(Key<std::vector<int>>("p")).has_value());
}

TEST_F(SettingsTest, RemoveAllNeedsABundleIdentifier) {
  OLDefault d = OLDefault(platform_.platform().settings);
  d.set(std::string("v"), Key<std::string>("k"));
  d.removeAll(std::nullopt);
  EXPECT_TRUE(d.has(Key<std::string>("k")));
  d.removeAll(std::string("com.example.app"));
  EXPECT_FALSE(d.has(Key<std::string>("k")));
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
