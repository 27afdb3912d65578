// What the library leaves behind after a full session against the service:
// the application secret and the user's password appear in no file and on no
// console line, and every file and folder it made is private to the user.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "ostrel/ol_payment_manager.h"
#include "ostrel/ol_push_manager.h"
#include "support/emulator_service.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

TEST(SecretsTest, NothingSecretIsStoredOrLoggedAndEverythingIsPrivate) {
  test::TestPlatform base;
  test::EmulatorService service;
  {
    auto facade = service.startFacade(base);
    ASSERT_TRUE(facade);
    ASSERT_FALSE(test::EmulatorService::logIn(*facade));
    ASSERT_TRUE(facade->sendEvent("secret-scan"));
    auto push = *facade->getPushManager();
    ASSERT_TRUE(push->setDeviceToken("\x01\x02\x03"));
    test::await<std::optional<OLError>, std::optional<std::string>>([&](auto done) {
      (*facade->getPaymentManager())->getOfferFor("item", MarketPlace::GooglePlay, done);
    });
    test::EmulatorService::flush(*facade);
  }
  ASSERT_FALSE(service.events().empty());

  // The password as a JSON value: the bare word would match the secret's own name.
  const std::vector<std::string> secrets = {
      "demo-secret", "\"" + std::string(test::EmulatorService::kPassword) + "\""};
  std::size_t files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(base.root())) {
    struct stat st {};
    ASSERT_EQ(::lstat(entry.path().c_str(), &st), 0);
    const auto mode = st.st_mode & 0777;
    if (entry.is_directory()) {
      EXPECT_EQ(mode, 0700u) << entry.path();
      continue;
    }
    ++files;
    EXPECT_EQ(mode, 0600u) << entry.path();
    const std::string bytes = test::readWholeFile(entry.path());
    for (const auto& secret : secrets) {
      EXPECT_EQ(bytes.find(secret), std::string::npos) << secret << " in " << entry.path();
    }
  }
  EXPECT_GT(files, 2u);
  for (const auto& line : base.log().lines()) {
    for (const auto& secret : secrets) {
      EXPECT_EQ(line.find(secret), std::string::npos) << secret << " logged: " << line;
    }
  }
}

}  // namespace
}  // namespace ostrel
