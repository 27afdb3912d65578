#include "login/ol_login_flow_base.h"

#include <cstdio>

#include "login/ol_user_status.h"
#include "login/service_error_mapping.h"
#include "status/ol_status.h"

#include <vector>

namespace ostrel {
namespace {
OLError builderError(std::string message, std::optional<Json> extra = std::nullopt) {
  return OLError::LocalError(LocalErrorCodes::LoginBuilderError, std::move(message), std::nullopt,
                             std::move(extra));
}
}  // namespace

std::string bodyText(const std::optional<Json>& body) {
  if (!body) return "nil";
  // A reply that was no JSON dictionary: its text, or its bytes in hexadecimal.
  if (body->is_object() && body->size() == 1) {
    for (const char* key : {"__parsed_string__", "__parsed_hex__"}) {
      if (auto it = body->find(key); it != body->end() && it->is_string()) return *it;
    }
  }
  return describeValue(*body);
}

OLLoginFlowBase::OLLoginFlowBase(std::shared_ptr<OLStatus> state, OLConnector connector)
    : _ostrelState(std::move(state)), connector(std::move(connector)) {}

OLUserStatus& OLLoginFlowBase::user() const {
  return *_ostrelState->userState();
}

std::string OLLoginFlowBase::description() const {
  char id[32];
  std::snprintf(id, sizeof id, "%p", static_cast<const void*>(this));
  return className() + " id:" + id;
}

Result<void> OLLoginFlowBase::checkStartRequirements() {
  if (!_ostrelState->setCurrentRunningFlow(shared_from_this())) {
    return builderError("Another Flow is in progress", Json::object());
  }
  const std::string token = user().currentUserToken();
  if (token == user().anonymousToken()) return {};
  freeSlot();
  return builderError("User Already Logged", Json{{"userToken", token}});
}

Result<void> OLLoginFlowBase::checkForgotRequirements() {
  const std::string token = user().currentUserToken();
  if (token == user().anonymousToken()) return {};
  return builderError("User Already Logged", Json{{"userToken", token}});
}

void OLLoginFlowBase::freeSlot() {
  _ostrelState->freeCurrentRunningFlow(this);
}

void OLLoginFlowBase::finish(std::optional<OLError> error, std::optional<std::string> token) {
  if (_internalCompletionCallback) _internalCompletionCallback(std::move(error), std::move(token));
}

void OLLoginFlowBase::endHoldingSlot(std::optional<OLError> error,
                                     std::optional<std::string> token) {
  freeSlot();
  finish(std::move(error), std::move(token));
}

void OLLoginFlowBase::parseUserStatus(const std::optional<Json>& body) {
  if (!body) {
    return endHoldingSlot(
        OLError::LocalError(LocalErrorCodes::ConnectionValidationError, "Unexpected Null body"),
        std::nullopt);
  }
  auto session = body->find("session_token");
  if (!body->is_object() || session == body->end() || !session->is_string()) {
    return endHoldingSlot(
        OLError::LocalError(LocalErrorCodes::InvalidLoginFlowResponse, "Invalid Session Token (O_)",
                            std::nullopt, Json{{"body", bodyText(body)}}),
        std::nullopt);
  }
  std::optional<std::string> autologin;
  if (auto a = body->find("autologin_token"); a != body->end() && a->is_string()) {
    autologin = a->get<std::string>();
  }
  const std::string sessionToken = session->get<std::string>();
  user().loginUser(sessionToken, autologin);
  if (auto meta = body->find("meta"); meta != body->end() && meta->is_object()) {
    (void)user().setUserMetaInfo(*meta);
  }
  // Only now may another flow start: it finds the user logged and is refused.
  endHoldingSlot(std::nullopt, sessionToken);
}

void OLLoginFlowBase::post(
    OstrelAPIEndpoint endpoint, Json body,
    std::function<void(std::optional<OLError>, int64_t, std::optional<Json>, const Json&)>
        handler) {
  auto self = shared_from_this();
  connector.send(endpoint, body,
                 [self, body, handler = std::move(handler)](
                     std::optional<OLError> error, int64_t status, std::optional<Json> reply) {
                   handler(std::move(error), status, std::move(reply), body);
                 });
}

void OLLoginFlowBase::runRequest(OstrelAPIEndpoint endpoint, Json body,
                                 std::initializer_list<ServiceCodeMapping> known,
                                 LocalErrorCodes fallback, bool logsIn, bool holdsSlot) {
  std::vector<ServiceCodeMapping> mapping(known);
  auto self = shared_from_this();
  post(endpoint, std::move(body),
       [self, mapping, fallback, logsIn, holdsSlot](std::optional<OLError> error, int64_t status,
                                                    std::optional<Json> reply, const Json& input) {
         if (!error && (status < 200 || status > 299)) {
           error = replyError(std::nullopt, fallback, input, status, reply);
         }
         if (!error && logsIn) return self->parseUserStatus(reply);
         if (error) error = mapServiceError(*error, mapping, fallback, reply);
         if (holdsSlot) return self->endHoldingSlot(std::move(error), std::nullopt);
         self->finish(std::move(error), std::nullopt);
       });
}

OLError OLLoginFlowBase::replyError(std::optional<OLError> error, LocalErrorCodes fallback,
                                    const Json& input, int64_t status,
                                    const std::optional<Json>& reply) {
  if (error) return *error;
  // The request's secrets stay out of errors, which hosts log and show.
  Json shown = input;
  if (shown.is_object()) {
    for (const char* secret : {"password", "pin"}) shown.erase(secret);
  }
  return OLError::LocalError(
      fallback, "Unexpected reply", std::nullopt,
      Json{{"input", describeValue(shown)}, {"statusCode", status}, {"body", bodyText(reply)}},
      status);
}

}  // namespace ostrel
