#include "emulator/service.h"

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstdint>
#include <ctime>
#include <iterator>

#include "emulator/emulator.h"
#include "emulator/reply.h"
#include "login/autologin_expiry.h"
#include "platform/defaults.h"

namespace ostrel::emulator {
namespace {

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

// Nothing when `text` is not base64.
std::optional<std::string> base64Decode(const std::string& text) {
  std::string out(text.size() / 4 * 3 + 3, '\0');
  auto* ctx = EVP_ENCODE_CTX_new();
  EVP_DecodeInit(ctx);
  int n = 0, last = 0;
  auto* to = reinterpret_cast<unsigned char*>(out.data());
  const bool ok = EVP_DecodeUpdate(ctx, to, &n, reinterpret_cast<const unsigned char*>(text.data()),
                                   static_cast<int>(text.size())) >= 0 &&
                  EVP_DecodeFinal(ctx, to + n, &last) == 1;
  EVP_ENCODE_CTX_free(ctx);
  if (!ok) return std::nullopt;
  out.resize(static_cast<std::size_t>(n + last));
  return out;
}

// A string field of the body, "" when absent.
std::string text(const Json& body, const char* key) {
  return body.is_object() ? body.value(key, std::string()) : std::string();
}

EmulatorStore::User newUser(std::string msisdn = "") {
  return EmulatorStore::User{"U_" + randomText(16), "", "", std::move(msisdn), "", true};
}

}  // namespace

Service::Service(EmulatorStore& store, EventRate& rate, Settings settings, std::string scheme)
    : store_(store), rate_(rate), scheme_(std::move(scheme)), settings_(std::move(settings)) {}

const Service::Route& Service::route(OstrelAPIEndpoint endpoint) {
  // In the order of the endpoint table, one row each: the compiler checks both.
  static constexpr Route kRoutes[] = {
      {OstrelAPIEndpoint::TrackBulk, &Service::trackBulk},
      {OstrelAPIEndpoint::NativeConvert, &Service::newUserLogin},
      {OstrelAPIEndpoint::RefreshToken, &Service::refreshToken},
      {OstrelAPIEndpoint::UserInfo, &Service::userInfo},
      {OstrelAPIEndpoint::UserDelete, &Service::userDelete},
      {OstrelAPIEndpoint::PushRegistration, &Service::pushRegistration},
      {OstrelAPIEndpoint::RichPush, &Service::richPush},
      {OstrelAPIEndpoint::EmailLogin, &Service::emailLogin},
      {OstrelAPIEndpoint::EmailForgot, &Service::emailReminder},
      {OstrelAPIEndpoint::EmailResend, &Service::emailReminder},
      {OstrelAPIEndpoint::EmailSignup, &Service::emailSignup},
      {OstrelAPIEndpoint::EmailIdentify, &Service::addEmailIdentity},
      {OstrelAPIEndpoint::MSISDNLogin, &Service::pinLogin},
      {OstrelAPIEndpoint::MSISDNForgot, &Service::pinReminder},
      {OstrelAPIEndpoint::MSISDNUR, &Service::operatorRecognition},
      {OstrelAPIEndpoint::MSISDNURBody, &Service::forwardedRecognition},
      {OstrelAPIEndpoint::PaymentReceiptLogin, &Service::newUserLogin},
      {OstrelAPIEndpoint::PaymentGetOfferFor, &Service::offer},
      {OstrelAPIEndpoint::PaymentReceiptAdd, &Service::addReceipt},
      {OstrelAPIEndpoint::PaymentIsPayingForDefault, &Service::payingState},
      {OstrelAPIEndpoint::GenerateTransientToken, &Service::transientToken},
      {OstrelAPIEndpoint::UO2CredentialsTo3, &Service::newUserLogin},
  };
  static_assert(std::size(kRoutes) == kEndpointCount);
  static_assert([] {
    for (std::size_t i = 0; i < std::size(kRoutes); ++i) {
      if (static_cast<std::size_t>(kRoutes[i].endpoint) != i) return false;
    }
    return true;
  }());
  return kRoutes[static_cast<std::size_t>(endpoint)];
}

void Service::answer(OstrelAPIEndpoint endpoint, const Json& body, httplib::Response& res) {
  (this->*route(endpoint).handle)(body, res);
}

void Service::setOperatorBounces(int bounces) {
  std::lock_guard lock(mutex_);
  settings_.operatorBounces = bounces;
}

void Service::setOperatorPage(std::string bytes) {
  std::lock_guard lock(mutex_);
  settings_.operatorPage = std::move(bytes);
}

void Service::setAutologinLifetime(double secs) {
  std::lock_guard lock(mutex_);
  settings_.autologinLifetime = secs;
}

void Service::reset() {
  std::lock_guard lock(mutex_);
  pinReminders_.clear();
}

void Service::trackBulk(const Json& body, httplib::Response& res) {
  for (const auto& e : body) {
    for (const char* key : {"event_type", "session_id", "creation_date", "user_id"}) {
      if (!e.is_object() || !e.contains(key) || !e[key].is_string()) {
        refuse(res, 400, "BAD_REQUEST", std::string("Event without ") + key);
        return;
      }
    }
  }
  const double now = nowSecs();
  store_.addEvents(body, now);
  rate_.add(now, body.size());
  reply(res, 200, Json{{"received", body.size()}});
}

void Service::emailSignup(const Json& body, httplib::Response& res) {
  if (store_.userByEmail(text(body, "email"))) {
    refuse(res, 409, "IDENTITY_ALREADY_USED", "E-mail already used");
    return;
  }
  bool confirmed;
  {
    std::lock_guard lock(mutex_);
    confirmed = !settings_.mandatoryConfirm;
  }
  EmulatorStore::User u{
      "U_" + randomText(16), text(body, "email"), text(body, "password"), "", "", confirmed};
  store_.saveUser(u);
  if (!u.confirmed) {
    refuse(res, 403, "MANDATORY_CONFIRM", "Account must be confirmed");
    return;
  }
  reply(res, 200, issueTokens(u.id));
}

void Service::emailLogin(const Json& body, httplib::Response& res) {
  auto u = store_.userByEmail(text(body, "email"));
  if (!u || u->password != text(body, "password")) {
    refuse(res, 401, "WRONG_EMAIL_PASSWORD", "Wrong e-mail or password");
  } else if (!u->confirmed) {
    refuse(res, 403, "MANDATORY_CONFIRM", "Account must be confirmed");
  } else {
    reply(res, 200, issueTokens(u->id));
  }
}

// A forgotten password or a new confirmation mail: both need a known address.
void Service::emailReminder(const Json& body, httplib::Response& res) {
  if (!store_.userByEmail(text(body, "email"))) {
    refuse(res, 404, "WRONG_IDENTITY", "Unknown e-mail");
    return;
  }
  reply(res, 200, Json{{"sent", true}});
}

void Service::pinLogin(const Json& body, httplib::Response& res) {
  auto u = store_.userByMsisdn(text(body, "msisdn"));
  const std::string pin = text(body, "pin");
  if (!u) {
    // First PIN login of a number: the number is registered with that PIN.
    EmulatorStore::User fresh = newUser(text(body, "msisdn"));
    fresh.pin = pin;
    store_.saveUser(fresh);
    reply(res, 200, issueTokens(fresh.id));
  } else if (u->pin != pin) {
    refuse(res, 401, "WRONG_PIN", "Wrong PIN");
  } else {
    reply(res, 200, issueTokens(u->id));
  }
}

void Service::pinReminder(const Json& body, httplib::Response& res) {
  bool tooMany;
  {
    std::lock_guard lock(mutex_);
    tooMany = ++pinReminders_[text(body, "msisdn")] > settings_.maxPinReminders;
  }
  if (tooMany) {
    refuse(res, 429, "MAX_PIN_LIMIT_REACHED", "Too many PIN reminders");
    return;
  }
  reply(res, 200, Json{{"sent", true}});
}

// The recognition starts over: the operator is asked again from the first page.
void Service::operatorRecognition(const Json&, httplib::Response& res) {
  int seen, bounces;
  {
    std::lock_guard lock(mutex_);
    bounces_ = 0;
    seen = bounces_++;
    bounces = settings_.operatorBounces;
  }
  recognitionStep(seen, bounces, res);
}

// The library forwards the operator's page; only the page as it was served is accepted.
void Service::forwardedRecognition(const Json& body, httplib::Response& res) {
  int seen, bounces;
  std::string page;
  {
    std::lock_guard lock(mutex_);
    seen = bounces_++;
    bounces = settings_.operatorBounces;
    page = settings_.operatorPage;
  }
  if (base64Decode(text(body, "mno_response")) != page) {
    refuse(res, 400, "WRONG_MNO_RESPONSE", "The operator's reply was not forwarded as it came");
    return;
  }
  recognitionStep(seen, bounces, res);
}

void Service::recognitionStep(int seen, int bounces, httplib::Response& res) {
  if (seen < bounces) {
    res.status = 302;
    res.set_header("Location", scheme_ + "://" + Emulator::kOperatorHost + "/recognise");
    return;
  }
  EmulatorStore::User u = newUser("39333" + std::to_string(++counter_));
  store_.saveUser(u);
  reply(res, 200, issueTokens(u.id));
}

void Service::refreshToken(const Json& body, httplib::Response& res) {
  auto row = store_.token(text(body, "user_id"));
  if (!row || row->kind != "autologin") {
    refuse(res, 400, "UNKNOWN_TOKEN", "Unknown token");
  } else if (row->expiresAt < nowSecs()) {
    refuse(res, 401, "EXPIRED_TOKEN", "Expired token");
  } else {
    reply(res, 200, issueTokens(row->userId));
  }
}

void Service::userInfo(const Json& body, httplib::Response& res) {
  auto user = userOfToken(text(body, "user_id"));
  if (!user) {
    refuse(res, 401, "UNKNOWN_TOKEN", "Unknown token");
    return;
  }
  reply(res, 200, Json{{"user_id", *user}, {"meta", {{"created", nowSecs()}}}});
}

void Service::userDelete(const Json& body, httplib::Response& res) {
  auto user = userOfToken(text(body, "user_id"));
  if (!user) {
    refuse(res, 401, "UNKNOWN_TOKEN", "Unknown token");
    return;
  }
  store_.deleteUser(*user);
  reply(res, 200, Json{{"deleted", true}});
}

// Anonymous users ("A_…") have no token here but may ask too.
void Service::transientToken(const Json& body, httplib::Response& res) {
  const std::string token = text(body, "user_id");
  if (!userOfToken(token) && !token.starts_with("A_")) {
    refuse(res, 401, "UNKNOWN_TOKEN", "Unknown token");
    return;
  }
  reply(res, 200, Json{{"transient", "T_" + randomText(24)}});
}

void Service::addEmailIdentity(const Json& body, httplib::Response& res) {
  auto user = userOfToken(text(body, "user_id"));
  if (!user) {
    refuse(res, 401, "WRONG_IDENTITY", "Unknown user");
  } else if (store_.userByEmail(text(body, "email"))) {
    refuse(res, 409, "IDENTITY_ALREADY_USED", "E-mail already used");
  } else if (auto u = store_.userById(*user)) {
    u->email = text(body, "email");
    u->password = text(body, "password");
    store_.saveUser(*u);
    reply(res, 200, Json{{"added", true}});
  }
}

void Service::pushRegistration(const Json& body, httplib::Response& res) {
  store_.savePush(body);
  reply(res, 200, Json{{"registered", true}});
}

void Service::richPush(const Json&, httplib::Response& res) {
  reply(res, 200, Json{{"rich", Json::array()}});
}

void Service::offer(const Json& body, httplib::Response& res) {
  reply(res, 200,
        Json{{"offer",
              {{"offer_id", std::string(32, 'a')},
               {"native_item_id", text(body, "native_item_id")},
               {"marketplace", text(body, "marketplace")}}}});
}

void Service::addReceipt(const Json& body, httplib::Response& res) {
  const Json& receipt = body["serialized_receipt"];
  const std::string offer =
      receipt.is_object() ? receipt.value("offerId", "") : text(body, "offerId");
  // Receipts belong to the user behind the token, whichever token it uses today.
  const std::string payer = userOfToken(text(body, "user_id")).value_or(text(body, "user_id"));
  auto owner = store_.receiptOwner(offer);
  if (owner && *owner == payer) {
    refuse(res, 409, "ITEM_ALREADY_PAID", "Item already paid");
  } else if (owner) {
    refuse(res, 409, "OFFER_PAYMENT_USER_MISMATCH", "Offer paid by another user");
  } else {
    store_.saveReceipt(payer, offer, receipt);
    reply(res, 200, Json{{"added", true}});
  }
}

void Service::payingState(const Json& body, httplib::Response& res) {
  const std::string payer = userOfToken(text(body, "user_id")).value_or(text(body, "user_id"));
  auto offer = store_.offerPaidBy(payer);
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
}

// The logins this emulator does not model (OAuth convert, payment receipt,
// partner credentials) log a new user in.
void Service::newUserLogin(const Json&, httplib::Response& res) {
  EmulatorStore::User u = newUser();
  store_.saveUser(u);
  reply(res, 200, issueTokens(u.id));
}

Json Service::issueTokens(const std::string& userId) {
  double lifetime;
  {
    std::lock_guard lock(mutex_);
    lifetime = settings_.autologinLifetime;
  }
  const int n = ++counter_;
  const std::string session = "O_" + randomText(24) + std::to_string(n);
  const double expires = nowSecs() + lifetime;
  // The client reads the expiry in its own local time: on loopback, this machine's.
  static const auto localZone = platform::makeSystemClock();
  const std::string autologin = "L_" + formatAutologinInstant(expires, *localZone) + randomText(24);
  store_.saveToken(session, "session", userId, nowSecs() + 24 * 3600);
  store_.saveToken(autologin, "autologin", userId, expires);
  Json meta = {{"user_id", userId}};
  if (auto u = store_.userById(userId)) {
    if (!u->email.empty()) meta["email"] = u->email;
    if (!u->msisdn.empty()) meta["msisdn"] = u->msisdn;
  }
  return Json{{"session_token", session}, {"autologin_token", autologin}, {"meta", meta}};
}

std::optional<std::string> Service::userOfToken(const std::string& token) const {
  auto row = store_.token(token);
  if (!row) return std::nullopt;
  return row->userId;
}

}  // namespace ostrel::emulator
