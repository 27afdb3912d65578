#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "status/flag.h"
#include "store/ol_disk_storage.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

class DiskStorageTest : public ::testing::Test {
 protected:
  test::TestPlatform platform_;
};

TEST_F(DiskStorageTest, MapAddGetRemoveClearAndAVanishedFolder) {
  OLMap<Flag> flags(platform_.ref(), "ApplicationFlags");
  ASSERT_TRUE(flags.add(Flag("a", false)));
  ASSERT_TRUE(flags.add(Flag("b", true)));
  auto read = flags.get(std::string("a"), false);
  ASSERT_TRUE(read && *read);
  EXPECT_FALSE((*read)->value);
  EXPECT_EQ(*flags.get(std::string("missing"), false), nullptr);
  ASSERT_TRUE(flags.remove("a"));
  EXPECT_EQ(*flags.count(), 1u);
  // A write a crash interrupted leaves a temporary file that no listing shows.
  ASSERT_TRUE(platform_.platform().files->writeNewFile(flags.storageUrl() + "/.tmp-1-2", "half"));
  ASSERT_TRUE(flags.clear());
  EXPECT_EQ(*flags.count(), 0u);
  EXPECT_FALSE(platform_.platform().files->exists(flags.storageUrl() + "/.tmp-1-2"));
  // A host that deleted the folder under a running store: the next add makes it again.
  std::filesystem::remove_all(flags.storageUrl());
  ASSERT_TRUE(flags.add(Flag("b", true)));
  EXPECT_TRUE((*flags.get(std::string("b"), false))->value);
}

TEST_F(DiskStorageTest, UndecodableItemIsAnError) {
  OLMap<Flag> flags(platform_.ref(), "Corrupt");
  for (const std::string& content : {std::string("junk"), std::string(), std::string("\xa1\xa1")}) {
    std::ofstream(flags.storageUrl() + "/bad", std::ios::trunc) << content;
    auto read = flags.get(std::string("bad"), false);
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error().message(), "Unable to unarchive bad");
  }
}

TEST_F(DiskStorageTest, TypedStackReadsTheLastItemWithoutAHandler) {
  OLTypedStack<Flag> stack(platform_.ref(), "Stack");
  EXPECT_EQ(*stack.get(std::nullopt, false), nullptr);
  ASSERT_TRUE(stack.add(Flag("1-first", false)));
  ASSERT_TRUE(stack.add(Flag("2-second", true)));
  auto top = stack.get(std::nullopt, false);
  ASSERT_TRUE(top && *top);
  EXPECT_EQ((*top)->name, "2-second");
}

}  // namespace
}  // namespace ostrel
