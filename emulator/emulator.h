#pragma once
// ostrel-emulator: the service as far as the library can see it, over real
// HTTPS (or plain HTTP) on loopback. Usable in-process by tests and the demo:
//
//   ostrel::emulator::Emulator emu({.port = 0});
//   if (auto started = emu.start(); !started) { ... }
//   emu.info();  // address, port, scheme, domain, ca_file
//
// Every endpoint of the library's table is served under the domain, for every
// host label and environment; the operator recognition is answered through
// the host "operator.mno.test", outside the domain. The control API lives
// under /_emulator/ (loopback only, unsigned), a live page for people at "/".
//
// Call start() and stop() from one thread. The other calls may come from any
// thread once start() answered (the setters also before it). Nothing calls
// back into the host except Options::log, which runs on the server's threads.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "emulator/emulator_store.h"
#include "emulator/event_rate.h"
#include "ostrel/json.h"
#include "ostrel/result.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace ostrel::emulator {

class ControlApi;
class Service;

struct Options {
  int port = 0;  // 0 takes a free port
  bool https = true;
  std::string domain = "ostrel.test";
  std::string dataDir;  // empty: a temporary folder
  // Application ids and their secrets.
  std::vector<std::pair<std::string, std::string>> apps = {{"demo", "demo-secret"},
                                                           {"demo-sandbox", "demo_secret"}};
  int operatorBounces = 1;  // operator replies before the user is recognised
  // The operator's page, any bytes (UTF-8 or not). The library must forward it
  // back byte for byte: a forwarded reply that differs is refused.
  std::string operatorPage =
      "<html><body>operator recognition <a "
      "href=\"http://operator.mno.test/ok\">ok</a></body></html>";
  double autologinLifetime = 30 * 24 * 3600;
  double timestampTolerance = 300;
  bool mandatoryConfirm = false;  // new e-mail accounts must be confirmed first
  int maxPinReminders = 3;
  std::size_t maxBodyBytes = 1 << 20;
  bool keepEvents = true;  // off: received events are counted, not stored
  int keepAliveSecs = 5;   // how long an idle connection is kept (and stop() may wait)
  int latencyMs = 0;       // every reply of the service waits this long, as a far server would
  std::function<void(const std::string&)> log;  // a readable line per request
};

struct Info {
  std::string address, scheme, domain, caFile;
  int port = 0;
  Json toJson() const;
};

class Emulator {
 public:
  explicit Emulator(Options options);
  ~Emulator();
  Emulator(const Emulator&) = delete;
  Emulator& operator=(const Emulator&) = delete;

  Result<Info> start();
  void stop();
  const Info& info() const { return info_; }

  // What the next reply of an endpoint does instead of (or before) answering.
  struct Fault {
    int status = 0;     // refuse with it (205: answer normally with that status)
    int delayMs = 0;    // wait first
    bool drop = false;  // close the connection without an answer
    // "non_json", "non_utf8", or "outside": a redirect (307, or `status` when
    // that is a redirect status) to a host outside the domain, which answers
    // without storing anything.
    std::string body;
  };
  // The next `count` replies to an endpoint (name or path) get `status`
  // (205 answers normally but with that status).
  void injectFault(const std::string& endpoint, int status, int count = 1, int delayMs = 0);
  void injectFault(const std::string& endpoint, const Fault& fault, int count = 1);
  // Forgets every fault not served yet.
  void clearFaults();
  // Faults still waiting for a request to an endpoint (name or path).
  std::size_t queuedFaults(const std::string& endpoint);
  // Every fault served, oldest first: {"path", "status", "delay_ms", "drop",
  // "body", "request", "at"} with the body of the request it answered.
  std::vector<Json> servedFaults();
  // Requests received so far on a path, control calls included.
  int requestCount(const std::string& path);
  // Their bodies, oldest first.
  std::vector<std::string> requestBodies(const std::string& path);
  // The last 1000 requests, oldest first: {"method", "path", "headers", "body", "at"}
  // (the host is the "Host" header), for every host the emulator answers.
  std::vector<Json> requests();
  void setOperatorBounces(int bounces);
  void setOperatorPage(std::string bytes);
  void setAutologinLifetime(double secs);
  void setLatency(int ms) { latencyMs_ = ms; }
  // Forgets users, tokens, events, registrations, receipts, faults and requests.
  void reset();
  // How many times what the emulator shows has changed: once per request
  // answered on the service side, per reset and per fault queued.
  std::uint64_t changeCount();
  // Waits until the change count differs from `seen`, the emulator stops, or
  // `timeout` passes; answers the change count.
  std::uint64_t waitForChange(std::uint64_t seen, std::chrono::milliseconds timeout);
  EmulatorStore& store() { return *store_; }
  // Received events per second, kept or not.
  const EventRate& eventRate() const { return rate_; }
  static constexpr const char* kOperatorHost = "operator.mno.test";
  // Somebody else's server, reached through the "outside" fault.
  static constexpr const char* kOutsideHost = "stranger.example";

 private:
  void handle(const httplib::Request& req, httplib::Response& res);
  void record(const httplib::Request& req);
  // The service side: the operator, the outside host, faults, then the endpoint's handler.
  void answer(const httplib::Request& req, httplib::Response& res);
  // True when a fault answered instead of the service.
  bool serveFault(const httplib::Request& req, httplib::Response& res);
  bool authorize(const httplib::Request& req, httplib::Response& res);
  std::optional<Fault> takeFault(const std::string& path);
  void logRequest(const httplib::Request& req, int status);
  void noteChange();

  Options options_;
  Info info_;
  std::string tempDir_;
  EventRate rate_;
  std::unique_ptr<EmulatorStore> store_;
  std::unique_ptr<Service> service_;  // uses store_ and rate_
  std::unique_ptr<ControlApi> control_;
  std::unique_ptr<httplib::Server> server_;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable changed_;  // with mutex_
  std::uint64_t changes_ = 0;
  bool stopping_ = false;
  std::map<std::string, std::vector<Fault>> faults_;
  std::deque<Json> requests_;                 // the last 1000, oldest first
  std::map<std::string, int> requestTotals_;  // every request, by path
  std::vector<Json> servedFaults_;
  std::atomic<int> latencyMs_{0};
};

}  // namespace ostrel::emulator
