#include "support/fake_service.h"

#include "login/autologin_expiry.h"
#include "platform/runtime.h"

namespace ostrel::test {
namespace {
void reply(httplib::Response& res, int status, const Json& body) {
  res.status = status;
  res.set_content(dumpJson(body), "application/json");
}
Json error(const std::string& code, const std::string& message) {
  return Json{{"error", {{"code", code}, {"message", message}, {"extra", Json::object()}}}};
}
}  // namespace

FakeService::FakeService() {
  server_.setHandler(
      [this](const httplib::Request& req, httplib::Response& res) { handle(req, res); });
}

void FakeService::failNext(const std::string& path, int status, int count,
                           const std::string& code) {
  std::lock_guard lock(mutex_);
  for (int i = 0; i < count; ++i) faults_[path].emplace_back(status, code);
}

std::vector<Json> FakeService::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

int FakeService::requestsTo(const std::string& path) const {
  std::lock_guard lock(mutex_);
  auto it = requests_.find(path);
  return it == requests_.end() ? 0 : it->second;
}

Json FakeService::tokens() {
  const int n = ++tokenCounter_;
  return Json{
      {"session_token", "O_session" + std::to_string(n)},
      {"autologin_token", "L_" + formatAutologinInstant(runtime::now() + autologinLifetime_) +
                              "tok" + std::to_string(n)},
      {"meta", {{"name", "Ann"}}}};
}

void FakeService::handle(const httplib::Request& req, httplib::Response& res) {
  std::unique_lock lock(mutex_);
  requests_[req.path]++;
  if (req.get_header_value("Host") == "operator.mno.test") {
    reply(res, 200, Json{{"operator", "page"}});
    return;
  }
  if (auto& queued = faults_[req.path]; !queued.empty()) {
    auto [status, code] = queued.front();
    queued.erase(queued.begin());
    if (status == 205) {
      // 205 accepts the events and asks for a new login.
    } else {
      reply(res, status, error(code, "injected"));
      return;
    }
    res.status = 205;
  }
  auto body = parseJson(req.body).value_or(Json());
  const std::string& p = req.path;
  if (p == "/events/track_bulk") {
    for (const auto& e : body) events_.push_back(e);
    if (res.status != 205) res.status = 200;
    res.set_content(dumpJson(Json{{"received", body.size()}}), "application/json");
  } else if (p == "/login/direct/email/login" || p == "/login/direct/email/signup") {
    if (body.value("email", "") == kEmail && body.value("password", "") == kPassword) {
      reply(res, 200, tokens());
    } else {
      reply(res, 401, error("WRONG_EMAIL_PASSWORD", "Wrong e-mail or password"));
    }
  } else if (p == "/login/direct/msisdn/PINidentify") {
    if (body.value("msisdn", "") == kMsisdn && body.value("pin", "") == kPin) {
      reply(res, 200, tokens());
    } else {
      reply(res, 401, error("WRONG_PIN", "Wrong PIN"));
    }
  } else if (p == "/handling/direct/refreshtoken") {
    const std::string token = body.value("user_id", "");
    if (token.starts_with("L_")) {
      reply(res, 200, tokens());
    } else {
      reply(res, 400, error("UNKNOWN_TOKEN", "Unknown token"));
    }
  } else if (p == "/login/direct/msisdn/autorecognition" ||
             p == "/login/direct/msisdn/bodyrecognition") {
    if (bouncesSeen_ < operatorBounces_) {
      ++bouncesSeen_;
      res.status = 302;
      res.set_header("Location", "https://operator.mno.test/recognise");
    } else {
      reply(res, 200, tokens());
    }
  } else if (p == "/handling/direct/userinfo") {
    reply(res, 200, Json{{"user", {{"name", "Ann"}}}});
  } else if (p == "/handling/direct/generatetransienttoken") {
    reply(res, 200, Json{{"transient", "T_transient"}});
  } else {
    reply(res, 200, Json::object());
  }
}

}  // namespace ostrel::test
