#pragma once
// What every login flow shares: the single running slot, the start and forgot
// prerequisites, and the reading of a successful login reply.
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "ostrel/json.h"
#include "ostrel/ol_login_flow.h"
#include "ostrel/result.h"
#include "transport/ol_connector.h"

namespace ostrel {

struct ServiceCodeMapping;
class OLStatus;
class OLUserStatus;

// (error, session token) — exactly one call ends a flow.
using InternalCompletion = std::function<void(std::optional<OLError>, std::optional<std::string>)>;

class OLLoginFlowBase : public virtual OLLoginFlow,
                        public std::enable_shared_from_this<OLLoginFlowBase> {
 public:
  OLLoginFlowBase(std::shared_ptr<OLStatus> state, OLConnector connector);

  void setInternalCompletionCallback(InternalCompletion callback) {
    _internalCompletionCallback = std::move(callback);
  }

  // Takes the running slot; fails when another flow holds it or a user is logged.
  virtual Result<void> checkStartRequirements();
  // Succeeds while nobody is logged; takes no slot.
  virtual Result<void> checkForgotRequirements();
  // Records a successful login reply, then frees the slot and ends the flow:
  // a flow racing for the slot finds the user logged, never a free slot
  // before the login is recorded.
  void parseUserStatus(const std::optional<Json>& body);

  std::string description() const override;
  virtual std::string className() const = 0;

 protected:
  OLUserStatus& user() const;
  void freeSlot();
  void finish(std::optional<OLError> error, std::optional<std::string> token);
  // Frees the slot this flow holds, then ends: a flow started from the
  // completion finds the slot free.
  void endHoldingSlot(std::optional<OLError> error, std::optional<std::string> token);
  // Ends at once after a failed prerequisite.
  void failStart(const OLError& error) { finish(error, std::nullopt); }
  // Sends one signed request; `handler` runs on the reply with the request body.
  void post(OstrelAPIEndpoint endpoint, Json body,
            std::function<void(std::optional<OLError>, int64_t, std::optional<Json>, const Json&)>
                handler);
  // Sends the flow's one request. A failed reply ends with the error mapped to
  // the flow's local codes; a good one logs the user in (`logsIn`) or ends
  // without a token. A flow that holds the slot frees it just before it ends.
  void runRequest(OstrelAPIEndpoint endpoint, Json body,
                  std::initializer_list<struct ServiceCodeMapping> known, LocalErrorCodes fallback,
                  bool logsIn, bool holdsSlot);
  // The error a failed reply ends with: an OLError unchanged, a missing one
  // built from the request and reply.
  static OLError replyError(std::optional<OLError> error, LocalErrorCodes fallback,
                            const Json& input, int64_t status, const std::optional<Json>& reply);

  std::shared_ptr<OLStatus> _ostrelState;
  OLConnector connector;
  InternalCompletion _internalCompletionCallback;
};

// The reply body's text form, as error information carries it.
std::string bodyText(const std::optional<Json>& body);

}  // namespace ostrel
