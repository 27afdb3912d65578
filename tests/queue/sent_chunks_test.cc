// A sent chunk leaves the queue in one step and its files go off the queue's
// path; what a stop left aside is removed at the next start.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "queue/ol_chunked_queue.h"
#include "support/eventually.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

bool emptyOrMissing(const std::string& folder) {
  return !std::filesystem::exists(folder) || std::filesystem::is_empty(folder);
}

TEST(SentChunksTest, ASentChunkIsGoneAtOnceAndItsFilesSoonAfter) {
  test::TestPlatform platform;
  std::string sent;
  {
    OLChunkedQueue queue(platform.ref(), "EventQueue", 10240);
    sent = queue.sentFolder();
    auto event = *OLCustomEvent::make("e", "session", "A_user", nullptr);
    ASSERT_TRUE(queue.append(*event));
    std::optional<std::string> handler;
    auto popped = queue.popChunk(handler, true);
    ASSERT_TRUE(popped);
    EXPECT_EQ(popped->size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(queue.chunksFolder() + "/" + *handler));
    EXPECT_TRUE(test::eventually([&] { return emptyOrMissing(sent); }));

    // Left aside by a stop before its removal ran.
    std::filesystem::create_directories(sent + "/1-7-0");
    std::ofstream(sent + "/1-7-0/event") << "sent before the stop";
  }
  OLChunkedQueue restarted(platform.ref(), "EventQueue", 10240);
  EXPECT_TRUE(restarted.chunkKeys() == std::vector<int>{1});
  EXPECT_TRUE(test::eventually([&] { return emptyOrMissing(sent); }));
}

}  // namespace
}  // namespace ostrel
