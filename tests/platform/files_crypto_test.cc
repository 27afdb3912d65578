#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/defaults.h"
#include "support/test_platform.h"

namespace ostrel::platform {
namespace {

mode_t modeOf(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return 0;
  return st.st_mode & 0777;
}

// Reading, writing and removing are exercised by every test that queues events
// on this file system; what those cannot see is checked here.
TEST(PosixFileSystemTest, PrivateFoldersAtomicWritesAndListing) {
  test::TempDir dir;
  auto files = makePosixFileSystem(dir.path() + "/Ostrel");
  const std::string store = files->storageRoot() + "/Store/Sub";
  ASSERT_TRUE(files->createDirectories(store));
  EXPECT_EQ(modeOf(store), 0700u);
  ASSERT_TRUE(files->writeFileAtomic(store + "/a", std::string("\0bytes\xff", 7)));
  EXPECT_EQ(modeOf(store + "/a"), 0600u);
  // A new file is written in place, private, and never over an existing one.
  ASSERT_TRUE(files->writeNewFile(store + "/n", "new"));
  EXPECT_EQ(modeOf(store + "/n"), 0600u);
  EXPECT_FALSE(files->writeNewFile(store + "/n", "again"));
  EXPECT_EQ(*files->readFile(store + "/n"), "new");
  EXPECT_TRUE(files->remove(store + "/n"));

  // A leftover of an interrupted write is not an entry.
  ASSERT_TRUE(files->writeFileAtomic(store + "/.tmp-1-1", "half"));
  EXPECT_EQ(*files->listDirectory(store), std::vector<std::string>{"a"});

  EXPECT_TRUE(files->remove(store + "/a"));
  EXPECT_TRUE(files->remove(store + "/a")) << "missing is no error";
  EXPECT_TRUE(files->removeAll(files->storageRoot() + "/Store"));
  auto missing = files->listDirectory(store);
  ASSERT_FALSE(missing);
  EXPECT_TRUE(missing.error().is(LocalErrorCodes::StorageError));
}

TEST(PosixFileSystemTest, ConcurrentWritersNeverLeaveAPartialFile) {
  test::TempDir dir;
  auto files = makePosixFileSystem(dir.path());
  const std::string path = dir.path() + "/shared";
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&, t] {
      for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(files->writeFileAtomic(path, std::string(4096, 'a' + t)));
    });
  }
  for (auto& w : writers) w.join();
  auto content = *files->readFile(path);
  ASSERT_EQ(content.size(), 4096u);
  EXPECT_EQ(std::count(content.begin(), content.end(), content[0]), 4096);
  EXPECT_EQ(files->listDirectory(dir.path())->size(), 1u);
}

TEST(StorageRootTest, EnvironmentRules) {
  ::setenv("OSTREL_STORAGE_DIR", "/x/custom", 1);
  EXPECT_EQ(defaultStorageRoot(), "/x/custom");
  ::unsetenv("OSTREL_STORAGE_DIR");
  ::setenv("XDG_DATA_HOME", "/x/data", 1);
  EXPECT_EQ(defaultStorageRoot(), "/x/data/Ostrel");
  ::unsetenv("XDG_DATA_HOME");
  ::setenv("HOME", "/home/u", 1);
  EXPECT_EQ(defaultStorageRoot(), "/home/u/.local/share/Ostrel");
}

// Any certificate: the deployment check only counts what the file holds.
constexpr char kCertificate[] = R"(-----BEGIN CERTIFICATE-----
MIIBezCCASGgAwIBAgIUb4nX8PY6pV/UgSDat1aCVznUu2cwCgYIKoZIzj0EAwIw
EjEQMA4GA1UEAwwHZml4dHVyZTAgFw0yNjExMjUwMTEwMjRaGA8yMTI2MTEwMTAx
MTAyNFowEjEQMA4GA1UEAwwHZml4dHVyZTBZMBMGByqGSM49AgEGCCqGSM49AwEH
A0IABNa3+1PpCDAJAYp5Gy372yTl8cVd0/TnOoJ/xlCeLSmZaiwzESWoqG5oqJF7
PmvLL1cNlCkVVziznvw5a3WMQkWjUzBRMB0GA1UdDgQWBBQewo0py+4/OKgdCBj4
eaj1wu17HzAfBgNVHSMEGDAWgBQewo0py+4/OKgdCBj4eaj1wu17HzAPBgNVHRMB
Af8EBTADAQH/MAoGCCqGSM49BAMCA0gAMEUCIE/VizGceE4gxPEVcgR4VOwso5e9
j6je92YRQXO3hHxeAiEAykDAUTinIsqCxRH57TIdzy1KSps5wiF7yT0MsVYN//s=
-----END CERTIFICATE-----
)";

// A host returns from main while a library thread signs a request. OpenSSL's
// own exit handler frees its state under that thread ("HMAC computation
// failed", an abort) when OpenSSL was first used without the library's
// initialisation: here by the HTTP server library this program links, as a
// host using libcurl would; elsewhere by the check of an extra CA file.
[[noreturn]] void exitWhileSigning(const std::string& caFile) {
  NetworkOverrides overrides;
  overrides.caFile = caFile;
  if (!overrides.validate()) std::exit(3);
  // This child made the folder when it ran the test's first lines; nothing
  // else removes it.
  std::filesystem::remove_all(std::filesystem::path(caFile).parent_path());
  auto crypto = makeOpenSslCrypto();
  std::atomic<bool> signing{false};
  std::thread([crypto, &signing] {
    for (;;) {
      (void)crypto->hmac(CryptoAlgorithm::SHA1, "key", "message");
      signing = true;
    }
  }).detach();
  while (!signing) std::this_thread::yield();
  std::exit(0);
}

TEST(CryptoDeathTest, AnExitWhileALibraryThreadSignsEndsCleanly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  test::TempDir dir;
  const std::string caFile = dir.path() + "/ca.pem";
  std::ofstream(caFile) << kCertificate;
  for (int i = 0; i < 5; ++i) {
    EXPECT_EXIT(exitWhileSigning(caFile), ::testing::ExitedWithCode(0), "");
  }
}

TEST(CryptoTest, Base64) {
  auto crypto = makeOpenSslCrypto();
  struct Case {
    std::string raw, encoded;
  };
  const Case cases[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {std::string("\0\xff", 2), "AP8="}};
  for (const auto& c : cases) {
    EXPECT_EQ(crypto->base64Encode(c.raw), c.encoded);
    EXPECT_EQ(crypto->base64Decode(c.encoded), c.raw);
  }
  EXPECT_FALSE(crypto->base64Decode("Zm9"));
  EXPECT_FALSE(crypto->base64Decode("Z!9v"));
}

}  // namespace
}  // namespace ostrel::platform
