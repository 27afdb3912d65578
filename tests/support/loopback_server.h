#pragma once
// A small HTTPS (or HTTP) server on 127.0.0.1 for tests: a free port, a
// certificate for the chosen host names, per-test handlers, and a record of
// what it received.
#include <httplib.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "emulator/certificates.h"
#include "support/test_platform.h"

namespace ostrel::test {

struct ReceivedRequest {
  std::string method, host, path, body;
  httplib::Headers headers;
  std::string header(const std::string& name) const;
};

class LoopbackServer {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  // `hosts`: the names the certificate covers (HTTPS only).
  explicit LoopbackServer(bool https = true,
                          std::vector<std::string> hosts = {"*.ostrel.test", "ostrel.test",
                                                            "operator.mno.test"});
  ~LoopbackServer();

  // Every POST or GET goes to the handler (default: 200 {"ok": true}).
  void setHandler(Handler handler);
  const std::string& caFile() const { return certs_.caFile; }
  std::string connectTo() const { return "127.0.0.1:" + std::to_string(port_); }
  std::vector<ReceivedRequest> received() const;

  // A platform whose HTTP client reaches this server for every host under
  // "ostrel.test" (and any other name), trusting its CA.
  Platform platformFor(const TestPlatform& base) const;

 private:
  TempDir dir_;
  emulator::Certificates certs_;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  int port_ = 0;
  mutable std::mutex mutex_;
  Handler handler_;
  std::vector<ReceivedRequest> received_;
};

}  // namespace ostrel::test
