#include "archive/keyed_archive.h"

#include <gtest/gtest.h>

#include <random>

namespace ostrel {
namespace {

struct Point : Archivable {
  int64_t x = 0;
  std::string label;
  std::string archiveClassName() const override { return "Test.Point"; }
  void encode(ArchiveWriter& w) const override {
    w.encodeInt("x", x);
    w.encodeString("label", label);
  }
};

struct Shape : Archivable {
  Point origin;
  std::string archiveClassName() const override { return "Test.Shape"; }
  void encode(ArchiveWriter& w) const override {
    w.encodeObject("origin", origin);
    w.encodeBool("closed", true);
    w.encodeDouble("area", 0.1 + 0.2);
    w.encodeFloat("scale", 1.1f);
    w.encodeDate("made", 1700000000.123456);
    w.encodeStrings("tags", {"a", "b"});
    w.encodeJson("meta", Json{{"k", {1, 2}}, {"z", nullptr}});
  }
};

TEST(KeyedArchiveTest, RoundTripOfEveryKind) {
  Shape shape;
  shape.origin.x = -7;
  shape.origin.label = "\xc3\xa9t\xc3\xa9";
  auto reader = ArchiveReader::open(archivedBytes(shape));
  ASSERT_TRUE(reader) << reader.error().description();
  EXPECT_EQ(reader->className(), "Test.Shape");
  EXPECT_EQ(*reader->decodeBool("closed"), true);
  EXPECT_EQ(*reader->decodeDouble("area"), 0.1 + 0.2);
  EXPECT_EQ(*reader->decodeFloat("scale"), 1.1f);
  EXPECT_EQ(*reader->decodeDate("made"), 1700000000.123456);
  EXPECT_EQ(*reader->decodeStrings("tags"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(*reader->decodeJson("meta"), (Json{{"k", {1, 2}}, {"z", nullptr}}));
  auto origin = reader->decodeObject("origin");
  ASSERT_TRUE(origin);
  EXPECT_EQ(origin->className(), "Test.Point");
  EXPECT_EQ(*origin->decodeInt("x"), -7);
  EXPECT_EQ(*origin->decodeString("label"), "\xc3\xa9t\xc3\xa9");
  EXPECT_FALSE(reader->decodeString("missing"));
  EXPECT_FALSE(reader->decodeString("closed")) << "a boolean is not a text";
  EXPECT_FALSE(reader->decodeInt("area")) << "a double is not an integer";
  EXPECT_EQ(archivedBytes(shape), archivedBytes(shape)) << "deterministic";
}

TEST(KeyedArchiveTest, GarbageTruncationAndDepthAreErrors) {
  Shape shape;
  const std::string good = archivedBytes(shape);
  std::vector<std::string> inputs = {"", std::string(1, '\0'), good.substr(0, good.size() / 2),
                                     good + "trailing"};
  inputs.push_back(std::string(200000, '\x81'));  // a list inside a list inside ...
  inputs.push_back(std::string(200000, '\xa1'));  // a map inside a map ...
  std::vector<std::uint8_t> notOurs = Json::to_cbor(Json{{"$archive", "other"}, {"$version", 1}});
  inputs.emplace_back(notOurs.begin(), notOurs.end());
  std::vector<std::uint8_t> newer =
      Json::to_cbor(Json{{"$archive", "ostrel"}, {"$version", 2}, {"$root", {{"$class", "X"}}}});
  inputs.emplace_back(newer.begin(), newer.end());
  std::vector<std::uint8_t> classless =
      Json::to_cbor(Json{{"$archive", "ostrel"}, {"$version", 1}, {"$root", {{"a", 1}}}});
  inputs.emplace_back(classless.begin(), classless.end());
  for (const auto& input : inputs) {
    auto reader = ArchiveReader::open(input);
    EXPECT_FALSE(reader) << "accepted " << input.size() << " bytes";
    if (!reader) {
      EXPECT_TRUE(reader.error().is(LocalErrorCodes::StorageError));
    }
  }
  // Every cut and every single-byte change of a good archive is refused or read, never a crash.
  std::mt19937 rng(7);
  for (std::size_t i = 0; i < good.size(); ++i) {
    (void)ArchiveReader::open(good.substr(0, i));
    std::string flipped = good;
    flipped[i] = static_cast<char>(rng());
    if (auto r = ArchiveReader::open(flipped)) (void)r->decodeObject("origin");
  }
}

}  // namespace
}  // namespace ostrel
