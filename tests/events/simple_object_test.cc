#include "ostrel/ol_simple_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "archive/keyed_archive.h"
#include "events/grapheme.h"
#include "events/simple_object_archive.h"

namespace ostrel {
namespace {

std::string repeat(const std::string& unit, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += unit;
  return out;
}

std::shared_ptr<OLSimpleObject> empty() {
  return OLSimpleObject::fromDictionary(Json::object());
}

// One character of 18 bytes: man, woman and girl joined.
const std::string kFamily =
    "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";

TEST(GraphemeTest, CountsUserPerceivedCharacters) {
  const std::string flag = "\xF0\x9F\x87\xAE\xF0\x9F\x87\xB9";  // two regional indicators
  const std::string eAcute = "e\xCC\x81";                       // e + combining accent
  struct Case {
    std::string text;
    std::size_t clusters;
  };
  const Case cases[] = {{"", 0},           {"abc", 3},  {kFamily, 1},   {flag + flag, 2},
                        {eAcute + "x", 2}, {"\r\n", 1}, {"\xff\xfe", 2}};
  for (const auto& c : cases) EXPECT_EQ(graphemeCount(c.text), c.clusters) << c.text;
}

TEST(SimpleObjectTest, TextsAreCutSilentlyTo2048Characters) {
  auto bag = empty();
  ASSERT_TRUE(bag->setString("k", std::string(2049, 'a')));
  EXPECT_EQ(std::get<std::string>(*bag->get("k")), std::string(2048, 'a'));
  // Characters, not code points: 2048 families are cut whole (checked before
  // the size rule, which a bag of them would break).
  auto clusters = OLSimpleObject::getCheckedProperty("k", Json(repeat(kFamily, 2049)));
  ASSERT_TRUE(clusters);
  EXPECT_EQ(std::get<std::string>(*clusters), repeat(kFamily, 2048));
}

TEST(SimpleObjectTest, SizeRuleCountsTheOldValueOfAReplacedKey) {
  auto bag = empty();
  for (const char* key : {"a", "b", "c", "d"})
    ASSERT_TRUE(bag->setString(key, std::string(2045, 'x')));
  // The final bag would be small, but the old "a" still counts while measuring.
  auto replaced = bag->setString("a", std::string(2045, 'y'));
  ASSERT_FALSE(replaced);
  EXPECT_TRUE(
      replaced.error().is(LocalErrorCodes::SimpleObjectCreationError, "Size Exceeded Maximum"));
  EXPECT_EQ(std::get<std::string>(*bag->get("a")), std::string(2045, 'x')) << "left unchanged";
}

TEST(SimpleObjectTest, CreationFromMapsAndText) {
  struct Case {
    std::string json;
    bool accepted;
  };
  const Case cases[] = {
      {R"({"a": 1, "b": null, "c": "t", "d": 1.5, "e": true})", true},
      {R"({"a": [1, 2]})", false},
      {"[1]", false},
      {"{\"a\": 1", false},
      {"{\"a\": \"\xff\"}", false},
      {std::string(100000, '[') + std::string(100000, ']'), false},
      {"{\"k\": \"" + std::string(12000, 'z') + "\"}", true},  // cut to 2048 first
  };
  for (const auto& c : cases) {
    EXPECT_EQ(OLSimpleObject::fromJSONString(c.json) != nullptr, c.accepted)
        << c.json.substr(0, 40);
  }
  // What no JSON text holds, and a map over the size limit.
  Json many = Json::object();
  for (int i = 0; i < 3000; ++i) many["key" + std::to_string(i)] = i;
  for (const Json& refused : {Json{{"n", std::numeric_limits<double>::infinity()}}, many}) {
    EXPECT_FALSE(OLSimpleObject::fromDictionary(refused)) << refused.dump().substr(0, 40);
  }
}

TEST(SimpleObjectTest, RefusedSettersLeaveTheBagUnchanged) {
  auto bag = empty();
  ASSERT_TRUE(bag->setInt("i", 1));
  for (auto result : {bag->setDouble("i", std::nan("")), bag->setString("i", "\xc3"),
                      bag->setFloat("i", std::numeric_limits<float>::infinity())}) {
    ASSERT_FALSE(result);
    EXPECT_TRUE(result.error().is(LocalErrorCodes::SimpleObjectCreationError));
  }
  EXPECT_EQ(*bag->get("i"), SimpleValue(int64_t{1}));
  auto notSimple = OLSimpleObject::getCheckedProperty("k", Json::array({1}));
  ASSERT_FALSE(notSimple);
  EXPECT_EQ(notSimple.error().message(),
            "Value is not simple! [String|Int|Float/Double|Bool|null]");
}

TEST(SimpleObjectTest, ArchiveKeepsFloatAndDoubleApartAndValidatesAgain) {
  auto bag = empty();
  ASSERT_TRUE(bag->setFloat("f", 1.1f));
  ASSERT_TRUE(bag->setDouble("d", 1.1));
  ASSERT_TRUE(bag->setString("s", "x"));
  ASSERT_TRUE(bag->setNull("n"));
  ASSERT_TRUE(bag->setBool("b", false));
  ASSERT_TRUE(bag->setInt("i", -3));
  EXPECT_EQ(*bag->toJSONString(), R"({"f":1.1,"d":1.1,"s":"x","n":null,"b":false,"i":-3})");
  auto reader = ArchiveReader::open(archivedBytes(SimpleObjectArchive(*bag)));
  ASSERT_TRUE(reader);
  auto back = OLSimpleObject::decode(*reader);
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, *bag);
  EXPECT_TRUE(std::holds_alternative<float>(*back->get("f")));
  EXPECT_TRUE(std::holds_alternative<double>(*back->get("d")));

  // A stored bag that breaks the rules today is not restored.
  ArchiveWriter oversize(OLSimpleObject::kArchiveClassName);
  Json big = Json::object();
  for (int i = 0; i < 8; ++i) big["k" + std::to_string(i)] = std::string(2000, 'q');
  oversize.encodeJson("simple_object", big);
  EXPECT_FALSE(OLSimpleObject::decode(*ArchiveReader::open(oversize.bytes())));
  ArchiveWriter nested(OLSimpleObject::kArchiveClassName);
  nested.encodeJson("simple_object", Json{{"a", {1, 2}}});
  EXPECT_FALSE(OLSimpleObject::decode(*ArchiveReader::open(nested.bytes())));
}

}  // namespace
}  // namespace ostrel
