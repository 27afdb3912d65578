#include "emulator/emulator.h"

#include <httplib.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "core/ostrel_api_endpoint.h"
#include "emulator/certificates.h"
#include "emulator/emulator_page.h"
#include "login/autologin_expiry.h"
#include "platform/runtime.h"
#include "transport/ol_connector.h"

namespace ostrel::emulator {
namespace {

double nowSecs() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// "YYYY-MM-DDTHH:MM:SSZ"
std::string isoDate(int64_t secs) {
  const std::time_t t = secs;
  std::tm tm{};
  gmtime_r(&t, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

std::string randomText(int n) {
  static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  std::string bytes(static_cast<std::size_t>(n), '\0');
  RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), n);
  for (auto& c : bytes) c = alphabet[static_cast<unsigned char>(c) % 62];
  return bytes;
}

void reply(httplib::Response& res, int status, const Json& body) {
  res.status = status;
  res.set_content(dumpJson(body), "application/json");
}

void refuse(httplib::Response& res, int status, const std::string& code, const std::string& message,
            Json extra = Json::object()) {
  reply(res, status, Json{{"error", {{"code", code}, {"message", message}, {"extra", extra}}}});
}

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
  server_->stop();
  if (thread_.joinable()) thread_.join();
  server_.reset();
}

void Emulator::injectFault(const std::string& endpoint, int status, int count, int delayMs) {
  std::string target = endpoint;
  if (auto e = endpointFromName(target)) target = std::string(endpointPath(*e));
  std::lock_guard lock(mutex_);
  for (int i = 0; i < count; ++i) faults_[target].push_back(Fault{status, delayMs, false, ""});
}

void Emulator::injectFault(const std::string& endpoint, const Fault& fault, int count) {
  std::string target = endpoint;
  if (auto e = endpointFromName(target)) target = std::string(endpointPath(*e));
  std::lock_guard lock(mutex_);
  for (int i = 0; i < count; ++i) faults_[target].push_back(fault);
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
  std::lock_guard lock(mutex_);
  options_.operatorBounces = bounces;
}

void Emulator::setOperatorPage(std::string bytes) {
  std::lock_guard lock(mutex_);
  options_.operatorPage = std::move(bytes);
}

void Emulator::setAutologinLifetime(double secs) {
  std::lock_guard lock(mutex_);
  options_.autologinLifetime = secs;
}

void Emulator::logRequest(const httplib::Request& req, int status) {
  if (!options_.log) return;
  options_.log(std::to_string(status) + " " + req.method + " " + req.get_header_value("Host") +
               req.path + " (" + std::to_string(req.body.size()) + " bytes)");
}

void Emulator::clearFaults() {
  std::lock_guard lock(mutex_);
  faults_.clear();
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
  // Control calls are not recorded: reading the requests back must not show itself.
  if (req.path.starts_with("/_emulator/") || (req.method == "GET" && req.path == "/")) {
    handleControl(req, res);
    return;
  }
  {
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
  if (auto fault = takeFault(req.path)) {
    {
      std::lock_guard lock(mutex_);
      servedFaults_.push_back(Json{{"path", req.path},
                                   {"status", fault->status},
                                   {"delay_ms", fault->delayMs},
                                   {"drop", fault->drop},
                                   {"body", fault->body},
                                   {"request", req.body}});
    }
    if (fault->delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(fault->delayMs));
    if (fault->drop) {
      // A dropped connection: the body promised is never sent and the socket closes.
      res.set_content_provider(64, "application/json",
                               [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
      return;
    }
    if (fault->body == "outside") {
      const bool redirect = fault->status >= 301 && fault->status <= 308 && fault->status != 304;
      res.status = redirect ? fault->status : 307;
      res.set_header("Location", std::string("https://") + kOutsideHost + req.path);
      logRequest(req, res.status);
      return;
    }
    if (fault->body == "non_json") {
      res.status = fault->status ? fault->status : 200;
      res.set_content("plain text, not JSON", "text/plain");
      return;
    }
    if (fault->body == "non_utf8") {
      res.status = fault->status ? fault->status : 200;
      res.set_content(std::string("\xff\xfe\x00\x01", 4), "application/octet-stream");
      return;
    }
    if (fault->status && fault->status != 205) {
      refuse(res, fault->status, "INJECTED_FAULT", "Injected fault");
      logRequest(req, fault->status);
      return;
    }
    if (fault->status == 205) res.status = 205;
  }
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
  serve(req.path, *body, res);
  if (asked205 && res.status == 200) res.status = 205;
  logRequest(req, res.status);
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
  auto signatureWith = [&](const std::string& secret) {
    return OLConnector::getImeldStr(secret, host + req.path, "POST", signedBody, "",
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

Json Emulator::issueTokens(const std::string& userId) {
  const int n = ++counter_;
  const std::string session = "O_" + randomText(24) + std::to_string(n);
  const double expires = nowSecs() + options_.autologinLifetime;
  const std::string autologin = "L_" + formatAutologinInstant(expires) + randomText(24);
  store_->saveToken(session, "session", userId, nowSecs() + 24 * 3600);
  store_->saveToken(autologin, "autologin", userId, expires);
  Json meta = {{"user_id", userId}};
  if (auto u = store_->userById(userId)) {
    if (!u->email.empty()) meta["email"] = u->email;
    if (!u->msisdn.empty()) meta["msisdn"] = u->msisdn;
  }
  return Json{{"session_token", session}, {"autologin_token", autologin}, {"meta", meta}};
}

std::optional<std::string> Emulator::userOfToken(const std::string& token) {
  auto row = store_->token(token);
  if (!row) return std::nullopt;
  return row->userId;
}

void Emulator::serve(const std::string& path, const Json& body, httplib::Response& res) {
  auto text = [&](const char* key) {
    return body.is_object() ? body.value(key, std::string()) : std::string();
  };
  if (path == "/events/track_bulk") {
    for (const auto& e : body) {
      for (const char* key : {"event_type", "session_id", "creation_date", "user_id"}) {
        if (!e.is_object() || !e.contains(key) || !e[key].is_string()) {
          refuse(res, 400, "BAD_REQUEST", std::string("Event without ") + key);
          return;
        }
      }
    }
    store_->addEvents(body, nowSecs());
    reply(res, 200, Json{{"received", body.size()}});
  } else if (path == "/login/direct/email/signup") {
    if (store_->userByEmail(text("email"))) {
      refuse(res, 409, "IDENTITY_ALREADY_USED", "E-mail already used");
      return;
    }
    EmulatorStore::User u{"U_" + randomText(16),     text("email"), text("password"), "", "",
                          !options_.mandatoryConfirm};
    store_->saveUser(u);
    if (!u.confirmed) {
      refuse(res, 403, "MANDATORY_CONFIRM", "Account must be confirmed");
      return;
    }
    reply(res, 200, issueTokens(u.id));
  } else if (path == "/login/direct/email/login") {
    auto u = store_->userByEmail(text("email"));
    if (!u || u->password != text("password")) {
      refuse(res, 401, "WRONG_EMAIL_PASSWORD", "Wrong e-mail or password");
    } else if (!u->confirmed) {
      refuse(res, 403, "MANDATORY_CONFIRM", "Account must be confirmed");
    } else {
      reply(res, 200, issueTokens(u->id));
    }
  } else if (path == "/login/direct/email/forgot" || path == "/login/direct/email/resend") {
    if (!store_->userByEmail(text("email"))) {
      refuse(res, 404, "WRONG_IDENTITY", "Unknown e-mail");
      return;
    }
    reply(res, 200, Json{{"sent", true}});
  } else if (path == "/login/direct/msisdn/PINidentify") {
    auto u = store_->userByMsisdn(text("msisdn"));
    const std::string pin = text("pin");
    if (!u) {
      // First PIN login of a number: the number is registered with that PIN.
      EmulatorStore::User fresh{"U_" + randomText(16), "", "", text("msisdn"), pin, true};
      store_->saveUser(fresh);
      reply(res, 200, issueTokens(fresh.id));
    } else if (u->pin != pin) {
      refuse(res, 401, "WRONG_PIN", "Wrong PIN");
    } else {
      reply(res, 200, issueTokens(u->id));
    }
  } else if (path == "/login/direct/msisdn/PINforgot") {
    std::lock_guard lock(mutex_);
    if (++pinReminders_[text("msisdn")] > options_.maxPinReminders) {
      refuse(res, 429, "MAX_PIN_LIMIT_REACHED", "Too many PIN reminders");
      return;
    }
    reply(res, 200, Json{{"sent", true}});
  } else if (path == "/login/direct/msisdn/autorecognition" ||
             path == "/login/direct/msisdn/bodyrecognition") {
    int seen;
    std::string page;
    {
      std::lock_guard lock(mutex_);
      if (path == "/login/direct/msisdn/autorecognition") bounces_ = 0;
      seen = bounces_++;
      page = options_.operatorPage;
    }
    if (path == "/login/direct/msisdn/bodyrecognition" &&
        runtime::crypto().base64Decode(text("mno_response")) != page) {
      refuse(res, 400, "WRONG_MNO_RESPONSE", "The operator's reply was not forwarded as it came");
      return;
    }
    if (seen < options_.operatorBounces) {
      res.status = 302;
      res.set_header("Location", std::string(info_.scheme) + "://" + kOperatorHost + "/recognise");
      return;
    }
    EmulatorStore::User u{
        "U_" + randomText(16), "", "", "39333" + std::to_string(++counter_), "", true};
    store_->saveUser(u);
    reply(res, 200, issueTokens(u.id));
  } else if (path == "/handling/direct/refreshtoken") {
    auto row = store_->token(text("user_id"));
    if (!row || row->kind != "autologin") {
      refuse(res, 400, "UNKNOWN_TOKEN", "Unknown token");
    } else if (row->expiresAt < nowSecs()) {
      refuse(res, 401, "EXPIRED_TOKEN", "Expired token");
    } else {
      reply(res, 200, issueTokens(row->userId));
    }
  } else if (path == "/handling/direct/userinfo") {
    auto user = userOfToken(text("user_id"));
    if (!user) {
      refuse(res, 401, "UNKNOWN_TOKEN", "Unknown token");
      return;
    }
    reply(res, 200, Json{{"user_id", *user}, {"meta", {{"created", nowSecs()}}}});
  } else if (path == "/handling/direct/userdelete") {
    auto user = userOfToken(text("user_id"));
    if (!user) {
      refuse(res, 401, "UNKNOWN_TOKEN", "Unknown token");
      return;
    }
    store_->deleteUser(*user);
    reply(res, 200, Json{{"deleted", true}});
  } else if (path == "/handling/direct/generatetransienttoken") {
    if (!userOfToken(text("user_id")) && !text("user_id").starts_with("A_")) {
      refuse(res, 401, "UNKNOWN_TOKEN", "Unknown token");
      return;
    }
    reply(res, 200, Json{{"transient", "T_" + randomText(24)}});
  } else if (path == "/handling/direct/identity/add/email/identify") {
    auto user = userOfToken(text("user_id"));
    if (!user) {
      refuse(res, 401, "WRONG_IDENTITY", "Unknown user");
    } else if (store_->userByEmail(text("email"))) {
      refuse(res, 409, "IDENTITY_ALREADY_USED", "E-mail already used");
    } else if (auto u = store_->userById(*user)) {
      u->email = text("email");
      u->password = text("password");
      store_->saveUser(*u);
      reply(res, 200, Json{{"added", true}});
    }
  } else if (path == "/push/registration") {
    store_->savePush(body);
    reply(res, 200, Json{{"registered", true}});
  } else if (path == "/payment/offer/get") {
    reply(res, 200,
          Json{{"offer",
                {{"offer_id", std::string(32, 'a')},
                 {"native_item_id", text("native_item_id")},
                 {"marketplace", text("marketplace")}}}});
  } else if (path == "/payment/receipt/add") {
    const Json& receipt = body["serialized_receipt"];
    const std::string offer = receipt.is_object() ? receipt.value("offerId", "") : text("offerId");
    // Receipts belong to the user behind the token, whichever token it uses today.
    const std::string payer = userOfToken(text("user_id")).value_or(text("user_id"));
    auto owner = store_->receiptOwner(offer);
    if (owner && *owner == payer) {
      refuse(res, 409, "ITEM_ALREADY_PAID", "Item already paid");
    } else if (owner) {
      refuse(res, 409, "OFFER_PAYMENT_USER_MISMATCH", "Offer paid by another user");
    } else {
      store_->saveReceipt(payer, offer, receipt);
      reply(res, 200, Json{{"added", true}});
    }
  } else if (path == "/payment/is_paying_for") {
    const std::string payer = userOfToken(text("user_id")).value_or(text("user_id"));
    auto offer = store_->offerPaidBy(payer);
    if (!offer) {
      reply(res, 200, Json{{"is_paying", false}});
      return;
    }
    const auto now = static_cast<int64_t>(nowSecs());
    reply(res, 200,
          Json{{"is_paying", true},
               {"payment",
                {{"product", "premium"},
                 {"item", *offer},
                 {"provider", "store"},
                 {"state", "active"},
                 {"type", "recurrent"},
                 {"type_recurrent_extra",
                  {{"start_billing_date", isoDate(now)},
                   {"last_billing_date", isoDate(now)},
                   {"next_billing_date", isoDate(now + 30 * 24 * 3600)}}},
                 {"provider_carrier_extra",
                  {{"mno_country", "IT"}, {"mno_operator", "Ostrel Mobile"}}}}}});
  } else if (path == "/v1/rich") {
    reply(res, 200, Json{{"rich", Json::array()}});
  } else {
    // The remaining logins (OAuth convert, payment receipt, partner credentials) log a new user in.
    EmulatorStore::User u{"U_" + randomText(16), "", "", "", "", true};
    store_->saveUser(u);
    reply(res, 200, issueTokens(u.id));
  }
}

void Emulator::handleControl(const httplib::Request& req, httplib::Response& res) {
  if (req.remote_addr != "127.0.0.1" && req.remote_addr != "::1") {
    refuse(res, 403, "FORBIDDEN", "The control API answers on loopback only");
    return;
  }
  const std::string& p = req.path;
  if (p == "/") {
    res.set_content(emulatorPage(store_->events(200)), "text/html");
  } else if (p == "/_emulator/events") {
    reply(res, 200, Json{{"count", store_->eventCount()}, {"events", store_->events(1000)}});
  } else if (p == "/_emulator/users") {
    reply(res, 200, Json{{"users", store_->users()}});
  } else if (p == "/_emulator/push") {
    reply(res, 200, Json{{"registrations", store_->pushRegistrations()}});
  } else if (p == "/_emulator/requests") {
    // Newest first, as many as asked (all that are kept by default).
    std::size_t limit = SIZE_MAX;
    if (req.has_param("limit")) {
      const std::string text = req.get_param_value("limit");
      if (!text.empty() && text.size() < 7 &&
          std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        limit = static_cast<std::size_t>(std::stoul(text));
    }
    std::lock_guard lock(mutex_);
    Json list = Json::array();
    for (auto it = requests_.rbegin(); it != requests_.rend() && list.size() < limit; ++it)
      list.push_back(*it);
    reply(res, 200, Json{{"requests", std::move(list)}});
  } else if (p == "/_emulator/reset" && req.method == "POST") {
    store_->reset();
    std::lock_guard lock(mutex_);
    faults_.clear();
    servedFaults_.clear();
    requests_.clear();
    pinReminders_.clear();
    reply(res, 200, Json{{"reset", true}});
  } else if (p == "/_emulator/faults" && req.method == "POST") {
    auto body = parseJson(req.body);
    if (!body || !body->is_object() || !body->contains("endpoint")) {
      refuse(res, 400, "BAD_REQUEST", "A fault needs an endpoint");
      return;
    }
    std::string target = body->value("endpoint", "");
    if (auto e = endpointFromName(target)) target = std::string(endpointPath(*e));
    Fault f{body->value("status", 0), body->value("delay_ms", 0), body->value("drop", false),
            (*body).contains("body") && (*body)["body"].is_string()
                ? (*body)["body"].get<std::string>()
                : ""};
    std::lock_guard lock(mutex_);
    for (int i = 0; i < body->value("count", 1); ++i) faults_[target].push_back(f);
    reply(res, 200, Json{{"path", target}, {"queued", faults_[target].size()}});
  } else {
    refuse(res, 404, "NOT_FOUND", "Unknown control path");
  }
}

}  // namespace ostrel::emulator
