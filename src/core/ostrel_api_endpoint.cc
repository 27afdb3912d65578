#include "core/ostrel_api_endpoint.h"

#include <array>
#include <cmath>
#include <vector>

#include "platform/fatal.h"

namespace ostrel {
namespace {

struct RequiredKey {
  const char* key;
  const char* missingMessage;
};

struct EndpointRow {
  std::string_view name;
  HostGroup group;
  std::string_view path;
  std::vector<RequiredKey> keys;
};

const std::array<EndpointRow, kEndpointCount>& table() {
  // Never destroyed: a network thread may still read it while the process exits.
  static const auto& rows = *new std::array<EndpointRow, kEndpointCount>{{
      {"TrackBulk", HostGroup::ClientApi, "/events/track_bulk", {}},
      {"NativeConvert",
       HostGroup::AuthApi,
       "/login/direct/oauth",
       {{"access_token", "Missing access_token"}}},
      {"RefreshToken",
       HostGroup::AuthApi,
       "/handling/direct/refreshtoken",
       {{"user_id", "Missing autologinTokenKey (user_id)"}}},
      {"UserInfo",
       HostGroup::AuthApi,
       "/handling/direct/userinfo",
       {{"user_id", "Missing User Token (user_id)"}}},
      {"UserDelete",
       HostGroup::AuthApi,
       "/handling/direct/userdelete",
       {{"user_id", "Missing User Token (user_id)"}}},
      {"PushRegistration",
       HostGroup::ClientApi,
       "/push/registration",
       {{"user_id", "Missing User Token (user_id)"},
        {"token", "Missing device token"},
        {"os_type", "Missing os type [android|ios|windows]"}}},
      {"RichPush", HostGroup::ClientApi, "/v1/rich", {}},
      {"EmailLogin",
       HostGroup::AuthApi,
       "/login/direct/email/login",
       {{"email", "Missing email"}, {"password", "Missing password"}}},
      {"EmailForgot",
       HostGroup::AuthApi,
       "/login/direct/email/forgot",
       {{"email", "Missing email"}}},
      {"EmailResend",
       HostGroup::AuthApi,
       "/login/direct/email/resend",
       {{"email", "Missing email"}}},
      {"EmailSignup",
       HostGroup::AuthApi,
       "/login/direct/email/signup",
       {{"email", "Missing email"}, {"password", "Missing password"}}},
      {"EmailIdentify",
       HostGroup::AuthApi,
       "/handling/direct/identity/add/email/identify",
       {{"user_id", "Missing User Token (user_id)"},
        {"email", "Missing email"},
        {"password", "Missing password"}}},
      {"MSISDNLogin",
       HostGroup::AuthApi,
       "/login/direct/msisdn/PINidentify",
       {{"msisdn", "Missing msisdn"}, {"pin", "Missing pin"}}},
      {"MSISDNForgot",
       HostGroup::AuthApi,
       "/login/direct/msisdn/PINforgot",
       {{"msisdn", "Missing msisdn"}}},
      {"MSISDNUR", HostGroup::AuthApi, "/login/direct/msisdn/autorecognition", {}},
      {"MSISDNURBody",
       HostGroup::AuthApi,
       "/login/direct/msisdn/bodyrecognition",
       {{"mno_response", "Missing MNO response"}}},
      {"PaymentReceiptLogin",
       HostGroup::AuthApi,
       "/login/direct/payment_receipt",
       {{"serialized_receipt", "Missing serialized receipt"}, {"offerId", "Missing offerId"}}},
      {"PaymentGetOfferFor",
       HostGroup::ClientApi,
       "/payment/offer/get",
       {{"user_id", "Missing user token"},
        {"native_item_id", "Missing native item"},
        {"marketplace", "Missing marketplace specifier"}}},
      {"PaymentReceiptAdd",
       HostGroup::ClientApi,
       "/payment/receipt/add",
       {{"serialized_receipt", "Missing serialized receipt"}, {"offerId", "Missing offerId"}}},
      {"PaymentIsPayingForDefault",
       HostGroup::ClientApi,
       "/payment/is_paying_for",
       {{"user_id", "Missing user token"}}},
      {"GenerateTransientToken",
       HostGroup::AuthApi,
       "/handling/direct/generatetransienttoken",
       {{"user_id", "Missing User Token (user_id)"}}},
      {"UO2CredentialsTo3",
       HostGroup::AuthApi,
       "/login/direct/fromuo20/login",
       {{"brivolauser", "Missing brivolauser"}, {"info_utente", "Missing info_utente"}}},
  }};
  return rows;
}

const EndpointRow& row(OstrelAPIEndpoint endpoint) {
  return table()[static_cast<std::size_t>(endpoint)];
}

OLError validationError(std::string message, const std::optional<Json>& body) {
  return OLError::LocalError(LocalErrorCodes::ConnectionValidationError, std::move(message),
                             std::nullopt,
                             Json{{"body", body ? describeValue(*body) : std::string("nil")}});
}

bool allFinite(const Json& value, int depth) {
  if (depth > 512) return false;
  if (value.is_number_float()) return std::isfinite(value.get<double>());
  if (value.is_structured()) {
    for (const auto& item : value) {
      if (!allFinite(item, depth + 1)) return false;
    }
  }
  return !value.is_binary() && !value.is_discarded();
}

// The receipt travels as the serialised map {"offerId", "applicationId", "platform",
// "receipt"}, so the offer id may sit inside it rather than beside it.
bool receiptKeyPresent(const Json& body, std::string_view key) {
  auto receipt = body.find("serialized_receipt");
  if (key == "serialized_receipt") {
    return receipt != body.end() && (receipt->is_object() || receipt->is_string());
  }
  auto direct = body.find(key);
  if (direct != body.end() && direct->is_string()) return true;
  if (receipt == body.end() || !receipt->is_object()) return false;
  auto inner = receipt->find(key);
  return inner != receipt->end() && inner->is_string();
}

}  // namespace

std::string_view endpointName(OstrelAPIEndpoint endpoint) {
  return row(endpoint).name;
}

std::optional<OstrelAPIEndpoint> endpointFromName(std::string_view name) {
  for (int i = 0; i < kEndpointCount; ++i) {
    if (table()[static_cast<std::size_t>(i)].name == name) return static_cast<OstrelAPIEndpoint>(i);
  }
  return std::nullopt;
}

std::optional<OstrelAPIEndpoint> endpointFromPath(std::string_view path) {
  for (int i = 0; i < kEndpointCount; ++i) {
    if (table()[static_cast<std::size_t>(i)].path == path) return static_cast<OstrelAPIEndpoint>(i);
  }
  return std::nullopt;
}

std::string_view endpointPath(OstrelAPIEndpoint endpoint) {
  return row(endpoint).path;
}

HostGroup endpointHostGroup(OstrelAPIEndpoint endpoint) {
  return row(endpoint).group;
}

std::string endpointHost(HostGroup group, bool isSandbox, bool isDev,
                         const Deployment& deployment) {
  std::string host =
      group == HostGroup::ClientApi ? deployment.clientApiLabel : deployment.authApiLabel;
  if (isSandbox) host += deployment.sandboxMarker;
  if (isDev) host += deployment.devMarker;
  return host + "." + deployment.domain;
}

std::string getEndpoint(OstrelAPIEndpoint endpoint, bool /*isDebug*/, bool isSandbox, bool isDev,
                        const Deployment& deployment) {
  std::string host = endpointHost(endpointHostGroup(endpoint), isSandbox, isDev, deployment);
  // The tables are fixed; a host that cannot form a URL is a programming error.
  if (host.empty() || host.find_first_of("/ ") != std::string::npos) {
    fatal("Invalid endpoint host " + host);
  }
  return deployment.scheme + "://" + host + std::string(endpointPath(endpoint));
}

bool isValidJSONObject(const std::optional<Json>& body) {
  if (!body || !body->is_structured()) return false;
  return allFinite(*body, 0);
}

BodyTypeValidator getBodyTypeValidator(OstrelAPIEndpoint endpoint) {
  const bool wantsArray = endpoint == OstrelAPIEndpoint::TrackBulk;
  return [wantsArray](const std::optional<Json>& body) -> Result<void> {
    if (!isValidJSONObject(body)) return validationError("Invalid JSON object", body);
    if (wantsArray && !body->is_array()) return validationError("Input must be an array", body);
    if (!wantsArray && !body->is_object()) {
      return validationError("Input must be a dictionary", body);
    }
    return {};
  };
}

Result<Json> getValidatedInputBody(OstrelAPIEndpoint endpoint, const std::optional<Json>& body) {
  if (auto shape = getBodyTypeValidator(endpoint)(body); !shape) return shape.error();
  if (endpoint == OstrelAPIEndpoint::RichPush) {
    if (!body->empty()) {
      return validationError("Rich push do not support input values in body", body);
    }
    return *body;
  }
  const auto& keys = row(endpoint).keys;
  if (keys.empty()) return *body;
  if (!body->is_object()) return validationError("Body must be a dictionary", body);
  const bool receipt = endpoint == OstrelAPIEndpoint::PaymentReceiptLogin ||
                       endpoint == OstrelAPIEndpoint::PaymentReceiptAdd;
  for (const auto& required : keys) {
    auto it = body->find(required.key);
    bool ok = it != body->end() && it->is_string();
    if (receipt) ok = receiptKeyPresent(*body, required.key);
    if (!ok) {
      return OLError::LocalError(LocalErrorCodes::ConnectionValidationError,
                                 required.missingMessage);
    }
  }
  return *body;
}

ParsedReply parseUnified(int64_t status, const std::optional<Json>& body) {
  if (status >= 200 && status <= 299) return {std::nullopt, body};
  const std::string fallback = "HTTP " + std::to_string(status);
  if (!body) {
    return {OLError::LocalError(LocalErrorCodes::ConnectionValidationError,
                                "Unexpected Null body in a " + fallback + " error", std::nullopt,
                                Json{{"body", "nil"}, {"statusCode", status}}),
            std::nullopt};
  }
  std::string code = fallback;
  std::string message = "unknown";
  std::optional<Json> extra;
  if (body->is_object()) {
    auto err = body->find("error");
    if (err != body->end() && err->is_object()) {
      auto c = err->find("code");
      if (c != err->end() && c->is_string()) code = c->get<std::string>();
      auto m = err->find("message");
      if (m != err->end() && m->is_string()) message = m->get<std::string>();
      auto x = err->find("extra");
      if (x != err->end() && x->is_object() && !x->empty()) extra = *x;
    }
  }
  return {OLError::OstrelError(code, message, status, std::move(extra)), std::nullopt};
}

UnifiedParser getUnifiedParser() {
  return parseUnified;
}

}  // namespace ostrel
