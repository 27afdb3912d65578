#include "queue/ol_chunked_queue.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/eventually.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

class ChunkedQueueTest : public ::testing::Test {
 protected:
  std::shared_ptr<OLBaseEvent> event(const std::string& name, std::size_t padding = 0) {
    auto data = OLSimpleObject::fromDictionary(Json{{"p", std::string(padding, 'x')}});
    auto made = *OLCustomEvent::make(name, "session", "A_user", data);
    made->creationDate = 1700000000 + 0.001 * ++made_;  // one per millisecond, in order
    return made;
  }
  std::vector<std::string> names(const std::vector<std::shared_ptr<OLBaseEvent>>& events) {
    std::vector<std::string> out;
    for (const auto& e : events) out.push_back(static_cast<OLExternalEvent&>(*e).name);
    return out;
  }
  test::TestPlatform platform_;
  int made_ = 0;
};

TEST_F(ChunkedQueueTest, ChunksCloseByBytesAndPopOldestFirst) {
  const auto size = archivedBytes(*event("e0", 200)).size();
  OLChunkedQueue queue(platform_.ref(), "EventQueue", static_cast<int64_t>(size * 3 + size / 2));
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(queue.append(*event("e" + std::to_string(i), 200)));
  // Three events fit under the limit, the fourth still goes in (the limit was
  // not reached before it), the fifth opens chunk 2.
  EXPECT_EQ(queue.chunkKeys(), (std::vector<int>{1, 2}));
  std::optional<std::string> handler;
  auto popped = queue.popChunk(handler, false);
  ASSERT_TRUE(popped);
  EXPECT_EQ(names(*popped), (std::vector<std::string>{"e0", "e1", "e2", "e3"}));
  ASSERT_TRUE(queue.removeChunk(*handler));
  EXPECT_EQ(queue.chunkKeys(), (std::vector<int>{2}));
  // Popping the push chunk moves later appends to a new chunk.
  handler.reset();
  ASSERT_TRUE(queue.popChunk(handler, false));
  ASSERT_TRUE(queue.append(*event("b")));
  EXPECT_EQ(queue.chunkKeys(), (std::vector<int>{2, 3}));
  ASSERT_TRUE(queue.removeChunk("2"));
  ASSERT_TRUE(queue.removeChunk("3"));
  // Removing the last chunk starts again at 1.
  EXPECT_EQ(queue.chunkKeys(), (std::vector<int>{1}));
  ASSERT_TRUE(queue.append(*event("c")));
  EXPECT_TRUE(std::filesystem::exists(queue.chunksFolder() + "/1"));
}

TEST_F(ChunkedQueueTest, KeysWrapAfter65535AndARestartSendsLowKeysFirst) {
  {
    OLChunkedQueue queue(platform_.ref(), "EventQueue", 10240);
    std::filesystem::create_directories(queue.chunksFolder() + "/65535");
  }
  OLChunkedQueue queue(platform_.ref(), "EventQueue", 10240);
  EXPECT_EQ(queue.chunkKeys(), (std::vector<int>{65535}));
  std::optional<std::string> handler;
  ASSERT_TRUE(queue.popChunk(handler, false));
  EXPECT_EQ(queue.chunkKeys(), (std::vector<int>{65535, 0}));
  // A chunk 0 from before the wrap, still waiting, holds a file of the same
  // name (the event replayed after a crash): the append takes another name.
  auto late = event("after-wrap");
  std::filesystem::create_directories(queue.chunksFolder() + "/0");
  std::ofstream(queue.chunksFolder() + "/0/" + late->uniqueName()) << "older";
  ASSERT_TRUE(queue.append(*late));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(queue.chunksFolder() + "/0"),
                          std::filesystem::directory_iterator()),
            2);
  OLChunkedQueue restarted(platform_.ref(), "EventQueue", 10240);
  EXPECT_EQ(restarted.chunkKeys(), (std::vector<int>{0, 65535}));
}

TEST_F(ChunkedQueueTest, RestartRebuildsFromDiskAndSkipsCorruptFiles) {
  int64_t size = 0;
  {
    OLChunkedQueue queue(platform_.ref(), "EventQueue", 10240);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(queue.append(*event("k" + std::to_string(i))));
    size = queue.pushChunkSize();
  }
  // The size record is written at most once an interval, and still ends with
  // the last size when the queue goes before the interval is over.
  EXPECT_EQ(test::readWholeFile(platform_.root() + "/chunk-size"), std::to_string(size));
  const std::string chunk = platform_.root() + "/EventQueue/Chunks/1";
  std::ofstream(chunk + "/garbage") << "not an archive";
  std::filesystem::create_directories(platform_.root() + "/EventQueue/Chunks/not-a-key");
  OLChunkedQueue queue(platform_.ref(), "EventQueue", 10240);
  EXPECT_EQ(queue.chunkKeys(), (std::vector<int>{1}));
  EXPECT_GT(queue.pushChunkSize(), 0);
  std::optional<std::string> handler;
  auto popped = queue.popChunk(handler, false);
  ASSERT_TRUE(popped);
  EXPECT_EQ(names(*popped), (std::vector<std::string>{"k0", "k1", "k2"}));
  EXPECT_TRUE(platform_.log().contains("Exceptio in unarchive garbage"));
}

TEST_F(ChunkedQueueTest, EventsOfTheSameMicrosecondAreBothKept) {
  OLChunkedQueue queue(platform_.ref(), "EventQueue", 10240);
  auto a = *OLCustomEvent::make("same", "s", "u", nullptr);
  auto b = *OLCustomEvent::make("same", "s", "u", nullptr);
  ASSERT_EQ(a->uniqueName(), b->uniqueName());
  ASSERT_TRUE(queue.append(*a));
  ASSERT_TRUE(queue.append(*b));
  EXPECT_EQ(*queue.count(), 2u);
}

// A sent chunk leaves the queue in one step and its files go off the queue's
// path; what a stop left aside is removed at the next start.
TEST_F(ChunkedQueueTest, ASentChunkIsGoneAtOnceAndItsFilesSoonAfter) {
  auto emptyOrMissing = [](const std::string& folder) {
    return !std::filesystem::exists(folder) || std::filesystem::is_empty(folder);
  };
  std::string sent;
  {
    OLChunkedQueue queue(platform_.ref(), "EventQueue", 10240);
    sent = queue.sentFolder();
    ASSERT_TRUE(queue.append(*event("e")));
    std::optional<std::string> handler;
    ASSERT_TRUE(queue.popChunk(handler, true));
    EXPECT_FALSE(std::filesystem::exists(queue.chunksFolder() + "/" + *handler));
    EXPECT_TRUE(test::eventually([&] { return emptyOrMissing(sent); }));

    // Left aside by a stop before its removal ran.
    std::filesystem::create_directories(sent + "/1-7-0");
    std::ofstream(sent + "/1-7-0/event") << "sent before the stop";
  }
  OLChunkedQueue restarted(platform_.ref(), "EventQueue", 10240);
  EXPECT_EQ(restarted.chunkKeys(), std::vector<int>{1});
  EXPECT_TRUE(test::eventually([&] { return emptyOrMissing(sent); }));
}

}  // namespace
}  // namespace ostrel
