#pragma once
// The closed table of the service's endpoints: URL, body rules and the one
// parser that turns every HTTP answer into a result or an OLError.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ostrel/json.h"
#include "ostrel/platform/deployment.h"
#include "ostrel/result.h"

namespace ostrel {

enum class OstrelAPIEndpoint {
  TrackBulk,
  NativeConvert,
  RefreshToken,
  UserInfo,
  UserDelete,
  PushRegistration,
  RichPush,
  EmailLogin,
  EmailForgot,
  EmailResend,
  EmailSignup,
  EmailIdentify,
  MSISDNLogin,
  MSISDNForgot,
  MSISDNUR,
  MSISDNURBody,
  PaymentReceiptLogin,
  PaymentGetOfferFor,
  PaymentReceiptAdd,
  PaymentIsPayingForDefault,
  GenerateTransientToken,
  UO2CredentialsTo3,
};
inline constexpr int kEndpointCount = 22;

enum class HostGroup { ClientApi, AuthApi };

std::string_view endpointName(OstrelAPIEndpoint endpoint);
std::optional<OstrelAPIEndpoint> endpointFromName(std::string_view name);
// The endpoint whose path this is (the service side routes by it).
std::optional<OstrelAPIEndpoint> endpointFromPath(std::string_view path);
std::string_view endpointPath(OstrelAPIEndpoint endpoint);
HostGroup endpointHostGroup(OstrelAPIEndpoint endpoint);

// The host of a group in an environment: label + sandbox marker + dev marker + "." + domain.
std::string endpointHost(HostGroup group, bool isSandbox, bool isDev, const Deployment& deployment);

// Absolute URL of the endpoint. isDebug is accepted and ignored: debug and
// release builds reach the same hosts.
std::string getEndpoint(OstrelAPIEndpoint endpoint, bool isDebug, bool isSandbox, bool isDev,
                        const Deployment& deployment = Deployment::production());

using BodyTypeValidator = std::function<Result<void>(const std::optional<Json>& body)>;
BodyTypeValidator getBodyTypeValidator(OstrelAPIEndpoint endpoint);

// Checks the body's shape and required keys for this endpoint; answers it unchanged.
Result<Json> getValidatedInputBody(OstrelAPIEndpoint endpoint, const std::optional<Json>& body);

// (status, decoded body) -> (error, result). The same parser serves every endpoint.
using ParsedReply = std::pair<std::optional<OLError>, std::optional<Json>>;
using UnifiedParser = std::function<ParsedReply(int64_t status, const std::optional<Json>& body)>;
UnifiedParser getUnifiedParser();
ParsedReply parseUnified(int64_t status, const std::optional<Json>& body);

// The platform's JSON-validity test: an array or object at top level whose
// numbers are all finite.
bool isValidJSONObject(const std::optional<Json>& body);

}  // namespace ostrel
