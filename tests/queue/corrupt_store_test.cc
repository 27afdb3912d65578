// The corrupt-store campaign: between runs, random files of the storage root
// are truncated, garbled or deleted (a short run here; set
// OSTREL_CORRUPT_CYCLES for the long one). Start-up always succeeds, what can
// no longer be read is skipped, every event whose file survived is delivered,
// and a token that cannot be read leaves an anonymous user. A damaged autologin
// token or meta info refuses the start with an error until the file goes.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include "events/event_archive.h"
#include "login/ol_user_meta_info.h"
#include "login/tokens.h"
#include "support/emulator_service.h"
#include "testing/ostrel_testing.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

// Removes the files of a store that no longer decode; answers how many.
template <class Decode>
int removeUnreadable(const fs::path& folder, Decode decode) {
  int removed = 0;
  if (!fs::is_directory(folder)) return 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file() && !decode(test::readWholeFile(entry.path()))) {
      fs::remove(entry.path());
      ++removed;
    }
  }
  return removed;
}

std::optional<std::string> eventName(const std::string& bytes) {
  auto event = decodeEvent(bytes);
  if (!event || !*event) return std::nullopt;
  auto external = std::dynamic_pointer_cast<OLExternalEvent>(*event);
  return external ? external->name : "";
}

TEST(CorruptStoreCampaign, StartUpSurvivesAndWhatSurvivedIsDelivered) {
  test::TestPlatform base;
  test::EmulatorService service;
  const char* env = std::getenv("OSTREL_CORRUPT_CYCLES");
  const int cycles = env ? std::atoi(env) : 15;
  std::mt19937 rng(11);
  std::set<std::string> recorded, damaged;
  int damagedFiles = 0, unreadableTokens = 0, refusedStarts = 0;
  bool tokenUnreadable = false;

  for (int cycle = 0; cycle <= cycles; ++cycle) {
    auto start = [&] {
      return Ostrel::makeUnshared("demo-secret", nullptr, std::nullopt, service.platformFor(base));
    };
    auto started = start();
    if (!started) {
      // The stored autologin token and meta info are read while the facade is
      // built: one that cannot be read refuses the start, with an error the
      // host sees, until the file goes.
      EXPECT_NE(started.error().description().find("OstrelNotInitialized"), std::string::npos)
          << started.error().description();
      ASSERT_GT(removeUnreadable(base.root() + "/UserTokens", decodeToken) +
                    removeUnreadable(base.root() + "/UserMetaInfo", OLUserMetaInfo::decode),
                0)
          << "start-up refused with nothing damaged to blame: " << started.error().description();
      ++refusedStarts;
      started = start();
      ASSERT_TRUE(started) << started.error().description();
    }
    // The only owner: the files are damaged once the facade is gone, never
    // under a running one (whose mapped log a truncation would fault).
    auto facade = std::move(*started);
    if (tokenUnreadable) {
      EXPECT_FALSE(*facade->isUserLogged()) << "an unreadable token still logs the user in";
    }
    if (cycle == cycles) {
      for (int i = 0; i < 5; ++i) test::EmulatorService::flush(*facade);
      break;
    }
    if (!*facade->isUserLogged() && rng() % 2 == 0) {
      ASSERT_FALSE(test::EmulatorService::logIn(*facade));
    }
    const int events = 5 + static_cast<int>(rng() % 30);
    for (int i = 0; i < events; ++i) {
      const std::string name = "k" + std::to_string(cycle) + "-" + std::to_string(i);
      ASSERT_TRUE(facade->sendEvent(name));
      recorded.insert(name);
    }
    testing::waitUntilIdle(*facade);
    facade.reset();

    // Damage one to four files of whatever the library left on disk; once,
    // every token file.
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(base.root())) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
    auto readableTokens = [&] {
      int n = 0;
      for (const auto& f : files) n += fs::exists(f) && decodeToken(test::readWholeFile(f)) ? 1 : 0;
      return n;
    };
    const int tokensBefore = readableTokens();
    std::vector<fs::path> victims;
    for (int v = 1 + static_cast<int>(rng() % 4); v > 0; --v)
      victims.push_back(files[rng() % files.size()]);
    if (cycle == 2) {
      for (const auto& f : files) {
        if (decodeToken(test::readWholeFile(f))) victims.push_back(f);
      }
    }
    for (const auto& file : victims) {
      if (!fs::exists(file)) continue;
      const std::string before = test::readWholeFile(file);
      std::string after = before;
      const auto how = rng() % 3;  // deleted, truncated or garbled
      if (how == 0) {
        fs::remove(file);
        after.clear();
      } else if (how == 1) {
        after.resize(before.empty() ? 0 : rng() % before.size());
      } else {
        const std::size_t at = after.empty() ? 0 : rng() % after.size();
        const std::size_t end = std::min(after.size(), at + 1 + rng() % 16);
        for (std::size_t i = at; i < end; ++i) after[i] = static_cast<char>(rng());
      }
      if (how != 0) std::ofstream(file, std::ios::binary | std::ios::trunc) << after;
      ++damagedFiles;
      if (auto name = eventName(before); name && eventName(after) != name) damaged.insert(*name);
    }
    tokenUnreadable = tokensBefore > 0 && readableTokens() == 0;
    if (tokenUnreadable) ++unreadableTokens;
  }

  std::set<std::string> delivered;
  for (const auto& e : service.events()) {
    const std::string name = e.value("name", "");
    if (recorded.count(name)) delivered.insert(name);
  }
  std::size_t lost = 0;
  for (const auto& name : recorded) {
    if (!damaged.count(name) && !delivered.count(name)) ++lost;
  }
  std::printf(
      "corrupt-store campaign: %d restarts, %d files damaged, %zu events recorded, %zu in damaged "
      "files, %zu delivered, %zu intact events lost, %d times every token unreadable, %d starts "
      "refused for a damaged autologin token or meta info\n",
      cycles, damagedFiles, recorded.size(), damaged.size(), delivered.size(), lost,
      unreadableTokens, refusedStarts);
  EXPECT_EQ(lost, 0u);
}

}  // namespace
}  // namespace ostrel
