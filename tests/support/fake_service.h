#pragma once
// A small stand-in for the service on a loopback HTTPS server: it records the
// events it receives, answers the login endpoints with fixed accounts, and can
// be told to fail the next replies of an endpoint.
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "ostrel/json.h"
#include "support/loopback_server.h"

namespace ostrel::test {

class FakeService {
 public:
  FakeService();

  // The next `count` replies to `path` get `status` (with an error object).
  void failNext(const std::string& path, int status, int count = 1,
                const std::string& code = "FAULT");
  std::vector<Json> events() const;
  int requestsTo(const std::string& path) const;
  Platform platformFor(const TestPlatform& base) const { return server_.platformFor(base); }
  // Accounts: e-mail "user@ostrel.test" / "secret"; MSISDN "393331234567" / PIN "1234".
  static constexpr const char* kEmail = "user@ostrel.test";
  static constexpr const char* kPassword = "secret";
  static constexpr const char* kMsisdn = "393331234567";
  static constexpr const char* kPin = "1234";
  // How many times the operator answers before the service recognises the user.
  void setOperatorBounces(int bounces) { operatorBounces_ = bounces; }
  // Lifetime of the autologin tokens it hands out.
  void setAutologinLifetime(double secs) { autologinLifetime_ = secs; }

 private:
  void handle(const httplib::Request& req, httplib::Response& res);
  Json tokens();

  LoopbackServer server_;
  mutable std::mutex mutex_;
  std::vector<Json> events_;
  std::map<std::string, int> requests_;
  std::map<std::string, std::vector<std::pair<int, std::string>>> faults_;
  int operatorBounces_ = 1;
  int bouncesSeen_ = 0;
  double autologinLifetime_ = 3600;
  int tokenCounter_ = 0;
};

}  // namespace ostrel::test
