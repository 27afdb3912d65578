// What the environment and the host hand the library at start-up is input:
// only Platform::fromEnvironment() reads the deployment overrides, each one is
// checked there, and nothing a host or its environment hands can stop the process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>

#include "core/ol_default.h"
#include "emulator/certificates.h"
#include "ostrel/ostrel.h"
#include "support/test_platform.h"

namespace ostrel {
namespace {

constexpr const char* kVariables[] = {"OSTREL_SERVICE_DOMAIN", "OSTREL_SERVICE_SCHEME",
                                      "OSTREL_CONNECT_TO", "OSTREL_CA_FILE"};

// Sets the deployment variables for one test and clears them after it.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(const std::map<std::string, std::string>& values) {
    for (const char* name : kVariables) ::unsetenv(name);
    for (const auto& [name, value] : values) ::setenv(name.c_str(), value.c_str(), 1);
  }
  ~ScopedEnvironment() {
    for (const char* name : kVariables) ::unsetenv(name);
  }
};

class DeploymentOverrideTest : public ::testing::Test {
 protected:
  test::TestPlatform platform_;
  test::TempDir dir_;
  std::string ca_ = emulator::makeCertificates(dir_.path(), {"ostrel.test"}).caFile;
};

TEST_F(DeploymentOverrideTest, APlatformMadeInCodeReadsNoDeploymentVariable) {
  ScopedEnvironment env({{"OSTREL_SERVICE_DOMAIN", "attacker.example"},
                         {"OSTREL_SERVICE_SCHEME", "http"},
                         {"OSTREL_CONNECT_TO", "10.0.0.1:80"},
                         {"OSTREL_CA_FILE", ca_}});
  for (const Platform& p : {Platform{}, Platform::defaults()}) {
    EXPECT_EQ(p.deployment.domain, "ostrel.io");
    EXPECT_EQ(p.deployment.scheme, "https");
    EXPECT_FALSE(p.network.connectTo);
    EXPECT_FALSE(p.network.caFile);
  }
  auto opted = Platform::fromEnvironment();
  ASSERT_TRUE(opted) << opted.error().description();
  EXPECT_EQ(opted->deployment.domain, "attacker.example");
  EXPECT_EQ(opted->deployment.scheme, "http");
  EXPECT_EQ(opted->network.connectTo, "10.0.0.1:80");
  EXPECT_EQ(opted->network.caFile, ca_);
}

TEST_F(DeploymentOverrideTest, EachOverrideIsCheckedOnce) {
  const std::string notPem = dir_.path() + "/not.pem";
  std::ofstream(notPem) << "not a certificate";
  struct Case {
    std::map<std::string, std::string> values;
    const char* refused;  // the variable named by the error, nullptr when all are taken
  };
  // One value per branch of the checks: a character outside a host name, an
  // empty or over-long label, a port out of range, a second target for curl.
  // That a value taken is applied is the test above.
  const Case cases[] = {
      {{}, nullptr},
      {{{"OSTREL_SERVICE_DOMAIN", ""}, {"OSTREL_SERVICE_SCHEME", ""}}, nullptr},  // unset
      {{{"OSTREL_SERVICE_DOMAIN", "staging.Ostrel-1.test"}, {"OSTREL_SERVICE_SCHEME", "https"}},
       nullptr},
      {{{"OSTREL_CONNECT_TO", "[::1]:443"}}, nullptr},
      {{{"OSTREL_CONNECT_TO", "localhost:8443"}}, nullptr},
      {{{"OSTREL_SERVICE_DOMAIN", "ostrel.io\r\nX-Injected: yes"}}, "OSTREL_SERVICE_DOMAIN"},
      {{{"OSTREL_SERVICE_DOMAIN", "ostrel.io."}}, "OSTREL_SERVICE_DOMAIN"},
      {{{"OSTREL_SERVICE_DOMAIN", "-ostrel.io"}}, "OSTREL_SERVICE_DOMAIN"},
      {{{"OSTREL_SERVICE_DOMAIN", std::string(64, 'a') + ".io"}}, "OSTREL_SERVICE_DOMAIN"},
      {{{"OSTREL_SERVICE_SCHEME", "HTTP"}}, "OSTREL_SERVICE_SCHEME"},
      {{{"OSTREL_CONNECT_TO", "127.0.0.1"}}, "OSTREL_CONNECT_TO"},
      {{{"OSTREL_CONNECT_TO", "127.0.0.1:65536"}}, "OSTREL_CONNECT_TO"},
      {{{"OSTREL_CONNECT_TO", "127.0.0.1:80,evil:1"}}, "OSTREL_CONNECT_TO"},
      {{{"OSTREL_CA_FILE", dir_.path() + "/missing.pem"}}, "OSTREL_CA_FILE"},
      {{{"OSTREL_CA_FILE", notPem}}, "OSTREL_CA_FILE"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.values.empty() ? "nothing set" : c.values.begin()->second);
    ScopedEnvironment env(c.values);
    auto p = Platform::fromEnvironment();
    ASSERT_EQ(p.has_value(), c.refused == nullptr);
    if (p) continue;
    EXPECT_TRUE(p.error().is(LocalErrorCodes::OstrelInitializationError));
    EXPECT_EQ((*p.error().extra())["variable"], c.refused);
  }
}

TEST_F(DeploymentOverrideTest, BadStartUpInputIsAClearErrorNeverAStop) {
  auto changed = [&](const std::function<void(Platform&)>& change) {
    Platform p = platform_.platform();
    change(p);
    return p;
  };
  struct Case {
    const char* name;
    Platform platform;
  };
  // The deployment's own checks are the table above; here the start-up runs
  // them. A refused distribution group is the singleton test's.
  const Case cases[] = {
      {"host label", changed([](Platform& p) { p.deployment.sandboxMarker = "/sandbox"; })},
      // Without a client of its own, the default one would use the overrides.
      {"network", changed([](Platform& p) {
         p.http = nullptr;
         p.network.connectTo = "nowhere";
       })},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto made = Ostrel::makeUnshared("secret", nullptr, std::nullopt, c.platform);
    ASSERT_FALSE(made);
    EXPECT_TRUE(made.error().is(LocalErrorCodes::OstrelInitializationError))
        << made.error().description();
  }

  auto facade = Ostrel::makeUnshared(
      "secret", nullptr, ExternalParameters{{OLExternalParameterKey::DistributionGroup(), "beta"}},
      platform_.platform());
  // A group refused later leaves this one: tests/transport (connector_https_test).
  ASSERT_TRUE(facade) << facade.error().description();
  EXPECT_EQ(OLDefault(platform_.platform().settings).get(Key<std::string>("DistributionGroup")),
            "beta");
}

}  // namespace
}  // namespace ostrel
