#include "emulator/emulator.h"

#include <httplib.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "core/ostrel_api_endpoint.h"
#include "emulator/certificates.h"
#include "emulator/control_api.h"
#include "emulator/reply.h"
#include "emulator/service.h"
#include "platform/defaults.h"
#include "transport/ol_connector.h"

namespace ostrel::emulator {
namespace {

// The named parameters of an iMeld Authorization header.
std::map<std::string, std::string> authParameters(const std::string& header) {
  std::map<std::string, std::string> out;
  if (!header.starts_with("iMeld ")) return out;
  std::size_t pos = 6;
  while (pos < header.size()) {
    auto eq = header.find("=\"", pos);
    if (eq == std::string::npos) break;
    auto close = header.find('"', eq + 2);
    if (close == std::string::npos) break;
    std::string name = header.substr(pos, eq - pos);
    while (!name.empty() && (name.front() == ' ' || name.front() == ',')) name.erase(0, 1);
    out[name] = header.substr(eq + 2, close - eq - 2);
    pos = close + 1;
  }
  return out;
}

}  // namespace

Json Info::toJson() const {
  return Json{{"address", address},
              {"port", port},
              {"scheme", scheme},
              {"domain", domain},
              {"ca_file", caFile}};
}

Emulator::Emulator(Options options)
    : options_(std::move(options)), latencyMs_(options_.latencyMs) {}

Emulator::~Emulator() {
  stop();
  if (!tempDir_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(tempDir_, ec);
  }
}

Result<Info> Emulator::start() {
  std::string dir = options_.dataDir;
  if (dir.empty()) {
    char pattern[] = "/tmp/ostrel-emulator-XXXXXX";
    if (::mkdtemp(pattern) == nullptr) {
      return OLError::LocalError(LocalErrorCodes::StorageError, "Cannot make a data folder");
    }
    dir = tempDir_ = pattern;
  }
  std::filesystem::create_directories(dir);
  store_ = EmulatorStore::open(dir);
  if (!store_)
    return OLError::LocalError(LocalErrorCodes::StorageError, "Cannot open the database");
  store_->setKeepEvents(options_.keepEvents);
  Service::Settings settings;
  {
    std::lock_guard lock(mutex_);
    settings = {options_.operatorBounces, options_.operatorPage, options_.autologinLifetime,
                options_.mandatoryConfirm, options_.maxPinReminders};
  }
  service_ = std::make_unique<Service>(*store_, rate_, std::move(settings),
                                       options_.https ? "https" : "http");
  control_ = std::make_unique<ControlApi>(*this);
  if (options_.https) {
    Certificates certs;
    try {
      certs = makeCertificates(
          dir, {"*." + options_.domain, options_.domain, kOperatorHost, kOutsideHost});
    } catch (const std::exception& e) {
      return OLError::LocalError(LocalErrorCodes::ConnectionInitError, e.what());
    }
    info_.caFile = certs.caFile;
    server_ = std::make_unique<httplib::SSLServer>(certs.certFile.c_str(), certs.keyFile.c_str());
  } else {
    server_ = std::make_unique<httplib::Server>();
  }
  server_->set_payload_max_length(options_.maxBodyBytes);
  // Replies are written in pieces; without this each waits on the client's delayed ACK.
  server_->set_tcp_nodelay(true);
  server_->set_keep_alive_max_count(100000);
  server_->set_keep_alive_timeout(options_.keepAliveSecs);
  auto handler = [this](const httplib::Request& req, httplib::Response& res) { handle(req, res); };
  server_->Post(".*", handler);
  server_->Get(".*", handler);
  server_->set_error_handler([](const httplib::Request&, httplib::Response& res) {
    if (res.status == 413) refuse(res, 413, "TOO_LARGE", "Body too large");
  });
  info_.address = "127.0.0.1";
  info_.scheme = options_.https ? "https" : "http";
  info_.domain = options_.domain;
  info_.port = options_.port == 0
                   ? server_->bind_to_any_port("127.0.0.1")
                   : (server_->bind_to_port("127.0.0.1", options_.port) ? options_.port : -1);
  if (info_.port <= 0) {
    return OLError::LocalError(LocalErrorCodes::ConnectionInitError, "Cannot bind the port");
  }
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  while (!server_->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return info_;
}

void Emulator::stop() {
  if (!server_) return;
  {
    // The page's waiting requests end now rather than at their timeout.
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  server_->stop();
  if (thread_.joinable()) thread_.join();
  server_.reset();
}

void Emulator::injectFault(const std::string& endpoint, int status, int count, int delayMs) {
  injectFault(endpoint, Fault{status, delayMs, false, ""}, count);
}

void Emulator::injectFault(const std::string& endpoint, const Fault& fault, int count) {
  std::string target = endpoint;
  if (auto e = endpointFromName(target)) target = std::string(endpointPath(*e));
  {
    std::lock_guard lock(mutex_);
    for (int i = 0; i < count; ++i) faults_[target].push_back(fault);
  }
  noteChange();
}

std::size_t Emulator::queuedFaults(const std::string& endpoint) {
  std::string target = endpoint;
  if (auto e = endpointFromName(target)) target = std::string(endpointPath(*e));
  std::lock_guard lock(mutex_);
  auto it = faults_.find(target);
  return it == faults_.end() ? 0 : it->second.size();
}

std::vector<Json> Emulator::servedFaults() {
  std::lock_guard lock(mutex_);
  return servedFaults_;
}

int Emulator::requestCount(const std::string& path) {
  std::lock_guard lock(mutex_);
  auto it = requestTotals_.find(path);
  return it == requestTotals_.end() ? 0 : it->second;
}

std::vector<std::string> Emulator::requestBodies(const std::string& path) {
  std::lock_guard lock(mutex_);
  std::vector<std::string> bodies;
  for (const auto& r : requests_) {
    if (r["path"] == path) bodies.push_back(r["body"]);
  }
  return bodies;
}

std::vector<Json> Emulator::requests() {
  std::lock_guard lock(mutex_);
  return {requests_.begin(), requests_.end()};
}

void Emulator::setOperatorBounces(int bounces) {
  {
    std::lock_guard lock(mutex_);
    options_.operatorBounces = bounces;
  }
  if (service_) service_->setOperatorBounces(bounces);
}

void Emulator::setOperatorPage(std::string bytes) {
  {
    std::lock_guard lock(mutex_);
    options_.operatorPage = bytes;
  }
  if (service_) service_->setOperatorPage(std::move(bytes));
}

void Emulator::setAutologinLifetime(double secs) {
  {
    std::lock_guard lock(mutex_);
    options_.autologinLifetime = secs;
  }
  if (service_) service_->setAutologinLifetime(secs);
}

void Emulator::clearFaults() {
  {
    std::lock_guard lock(mutex_);
    faults_.clear();
  }
  noteChange();
}

void Emulator::reset() {
  if (store_) store_->reset();
  if (service_) service_->reset();
  rate_.clear();
  {
    std::lock_guard lock(mutex_);
    faults_.clear();
    servedFaults_.clear();
    requests_.clear();
  }
  noteChange();
}

std::uint64_t Emulator::changeCount() {
  std::lock_guard lock(mutex_);
  return changes_;
}

std::uint64_t Emulator::waitForChange(std::uint64_t seen, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, [&] { return changes_ != seen || stopping_; });
  return changes_;
}

void Emulator::noteChange() {
  {
    std::lock_guard lock(mutex_);
    ++changes_;
  }
  changed_.notify_all();
}

void Emulator::logRequest(const httplib::Request& req, int status) {
  if (!options_.log) return;
  options_.log(std::to_string(status) + " " + req.method + " " + req.get_header_value("Host") +
               req.path + " (" + std::to_string(req.body.size()) + " bytes)");
}

std::optional<Emulator::Fault> Emulator::takeFault(const std::string& path) {
  std::lock_guard lock(mutex_);
  auto it = faults_.find(path);
  if (it == faults_.end() || it->second.empty()) return std::nullopt;
  Fault f = it->second.front();
  it->second.erase(it->second.begin());
  return f;
}

void Emulator::handle(const httplib::Request& req, httplib::Response& res) {
  // Control calls are counted but not recorded: reading the requests back must not show itself.
  if (req.path.starts_with("/_emulator/") || (req.method == "GET" && req.path == "/")) {
    {
      std::lock_guard lock(mutex_);
      ++requestTotals_[req.path];
    }
    control_->answer(req, res);
    return;
  }
  record(req);
  answer(req, res);
  noteChange();
}

void Emulator::record(const httplib::Request& req) {
  std::lock_guard lock(mutex_);
  Json headers = Json::object();
  for (const auto& [k, v] : req.headers) headers[k] = v;
  requests_.push_back(Json{{"method", req.method},
                           {"path", req.path},
                           {"headers", headers},
                           {"body", req.body},
                           {"at", nowSecs()}});
  if (requests_.size() > 1000) requests_.pop_front();
  ++requestTotals_[req.path];
}

void Emulator::answer(const httplib::Request& req, httplib::Response& res) {
  const std::string host =
      req.get_header_value("Host").substr(0, req.get_header_value("Host").find(':'));
  if (host == kOperatorHost) {
    // The mobile operator's page: the library forwards it back to the service.
    std::string page;
    {
      std::lock_guard lock(mutex_);
      page = options_.operatorPage;
    }
    res.set_content(page, "text/html");
    logRequest(req, 200);
    return;
  }
  if (host == kOutsideHost) {
    // Not the service: it answers, but keeps nothing.
    reply(res, 200, Json{{"status", "somebody else"}});
    logRequest(req, 200);
    return;
  }
  if (int latency = latencyMs_.load(); latency > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(latency));
  }
  if (serveFault(req, res)) return;
  auto endpoint = endpointFromPath(req.path);
  if (!endpoint || req.method != "POST") {
    refuse(res, 404, "NOT_FOUND", "Unknown endpoint " + req.path);
    logRequest(req, 404);
    return;
  }
  if (!authorize(req, res)) {
    logRequest(req, res.status);
    return;
  }
  std::optional<Json> body;
  if (!req.body.empty()) body = parseJson(req.body);
  if (!req.body.empty() && !body) {
    refuse(res, 400, "BAD_REQUEST", "Body is not JSON");
    logRequest(req, 400);
    return;
  }
  if (auto valid = getValidatedInputBody(*endpoint, body); !valid) {
    refuse(res, 400, "BAD_REQUEST", valid.error().message());
    logRequest(req, 400);
    return;
  }
  const bool asked205 = res.status == 205;
  service_->answer(*endpoint, *body, res);
  if (asked205 && res.status == 200) res.status = 205;
  logRequest(req, res.status);
}

bool Emulator::serveFault(const httplib::Request& req, httplib::Response& res) {
  auto fault = takeFault(req.path);
  if (!fault) return false;
  {
    std::lock_guard lock(mutex_);
    servedFaults_.push_back(Json{{"path", req.path},
                                 {"status", fault->status},
                                 {"delay_ms", fault->delayMs},
                                 {"drop", fault->drop},
                                 {"body", fault->body},
                                 {"request", req.body},
                                 {"at", nowSecs()}});
  }
  if (fault->delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(fault->delayMs));
  if (fault->drop) {
    // A dropped connection: the body promised is never sent and the socket closes.
    res.set_content_provider(64, "application/json",
                             [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
    return true;
  }
  if (fault->body == "outside") {
    const bool redirect = fault->status >= 301 && fault->status <= 308 && fault->status != 304;
    res.status = redirect ? fault->status : 307;
    res.set_header("Location", std::string("https://") + kOutsideHost + req.path);
    logRequest(req, res.status);
    return true;
  }
  if (fault->body == "non_json") {
    res.status = fault->status ? fault->status : 200;
    res.set_content("plain text, not JSON", "text/plain");
    return true;
  }
  if (fault->body == "non_utf8") {
    res.status = fault->status ? fault->status : 200;
    res.set_content(std::string("\xff\xfe\x00\x01", 4), "application/octet-stream");
    return true;
  }
  if (fault->status && fault->status != 205) {
    refuse(res, fault->status, "INJECTED_FAULT", "Injected fault");
    logRequest(req, fault->status);
    return true;
  }
  if (fault->status == 205) res.status = 205;
  return false;
}

bool Emulator::authorize(const httplib::Request& req, httplib::Response& res) {
  auto p = authParameters(req.get_header_value("Authorization"));
  if (p.empty() || !p.count("signature") || !p.count("timestamp") || !p.count("application_id")) {
    refuse(res, 401, "UNAUTHORIZED", "Missing or malformed Authorization");
    return false;
  }
  if (p["version"] != "2.1") {
    refuse(res, 401, "UNAUTHORIZED", "Unsupported signature version");
    return false;
  }
  char* end = nullptr;
  const double ts = std::strtod(p["timestamp"].c_str(), &end);
  if (end == p["timestamp"].c_str() || std::fabs(ts - nowSecs()) > options_.timestampTolerance) {
    refuse(res, 401, "UNAUTHORIZED", "Timestamp outside the tolerance window");
    return false;
  }
  const std::string host =
      req.get_header_value("Host").substr(0, req.get_header_value("Host").find(':'));
  const std::string signedBody = isValidUtf8(req.body) ? req.body : "";
  const auto crypto = platform::makeOpenSslCrypto();
  auto signatureWith = [&](const std::string& secret) {
    return OLConnector::getImeldStr(*crypto, secret, host + req.path, "POST", signedBody, "",
                                    p["timestamp"]);
  };
  for (const auto& [id, secret] : options_.apps) {
    if (id == p["application_id"]) {
      if (signatureWith(secret) == p["signature"]) return true;
      refuse(res, 401, "UNAUTHORIZED", "Bad signature");
      return false;
    }
  }
  // The library signs with its installation's identifier: any registered secret may have made it.
  for (const auto& [id, secret] : options_.apps) {
    if (signatureWith(secret) == p["signature"]) return true;
  }
  refuse(res, 401, "UNAUTHORIZED", "Unknown application");
  return false;
}

}  // namespace ostrel::emulator
