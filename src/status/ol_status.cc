#include "status/ol_status.h"

#include <cstdio>

#include "core/device_information.h"
#include "ostrel/ol_login_flow.h"
#include "status/flag.h"

namespace ostrel {

OLStatus::OLStatus() = default;
OLStatus::~OLStatus() = default;

std::shared_ptr<OLStatus> OLStatus::make(PlatformRef platform,
                                         const OstrelConfiguration& configuration,
                                         std::shared_ptr<DeviceInformation> devInfo,
                                         std::shared_ptr<OLUserStatus> userState,
                                         CurrentUserToken currentUserToken,
                                         std::shared_ptr<OLSimpleObject> customData) {
  auto status = std::shared_ptr<OLStatus>(new OLStatus());
  status->platform_ = std::move(platform);
  status->queue_ =
      status->platform_->scheduler->makeSerialQueue("com.kestavello.ostrel.runningLoginFlow");
  status->_deviceInfo = std::move(devInfo);
  status->customData_ = std::move(customData);
  status->_sessionId = std::make_unique<SessionId>(
      *status->platform_, configuration.sessionExpireSecs, status->_deviceInfo->deviceId);
  status->storedFlags_ = std::make_unique<OLMap<Flag>>(status->platform_, "ApplicationFlags");
  status->userState_ = std::move(userState);
  status->currentUserToken_ = std::move(currentUserToken);
  return status;
}

std::string OLStatus::sessionId() {
  std::optional<std::string> expired;
  std::string value;
  {
    // One reader renews an expired session, so exactly one session start follows.
    std::lock_guard lock(sessionMutex_);
    if (_sessionId->isExpired(*platform_)) {
      expired = _sessionId->value();
      _sessionId->reset(*platform_);
    }
    value = _sessionId->value();
  }
  if (expired) generateSessionStart(expired);
  return value;
}

void OLStatus::setSessionStartGenerator(SessionStartGenerator generator) {
  std::lock_guard lock(generatorMutex_);
  sessionStartGenerator_ = std::move(generator);
}

void OLStatus::generateSessionStart(const std::optional<std::string>& refreshedSession) {
  SessionStartGenerator generator;
  {
    std::lock_guard lock(generatorMutex_);
    generator = sessionStartGenerator_;
  }
  if (!generator) return;
  (void)generator(_sessionId->value(), *_deviceInfo, _isFirstStart(), customData_,
                  refreshedSession);
}

bool OLStatus::_isFirstStart() {
  auto stored = storedFlags_->get(std::string("FirstStart"), false);
  if (!stored) {
    logLine(*platform_, "Error in access Flags on storage");
    return true;
  }
  if (*stored) return (*stored)->value;
  if (auto added = storedFlags_->add(Flag("FirstStart", false)); !added) {
    logLine(*platform_, "Error in access Flags on storage");
  }
  return true;
}

bool OLStatus::setCurrentRunningFlow(const std::shared_ptr<OLLoginFlow>& flow) {
  bool taken = false;
  queue_->sync([&] {
    const std::string name = flow->description();
    logLine(*platform_, "trying flow " + name);
    if (!_runningLoginFlow) {
      _runningLoginFlow = flow;
      logLine(*platform_, "#### succesfully set flow " + name + " as the running one");
      taken = true;
    } else {
      logLine(*platform_, "cannot set flow " + name + " as the running one");
    }
  });
  return taken;
}

void OLStatus::freeCurrentRunningFlow(const OLLoginFlow* flow) {
  std::vector<std::function<void()>> waiters;
  queue_->sync([&] {
    if (_runningLoginFlow.get() == flow) {
      logLine(*platform_, "setting current flow to none");
      _runningLoginFlow.reset();
      waiters.swap(flowFreedWaiters_);
    } else {
      logLine(*platform_, "cannot free current flow because " +
                              (flow ? flow->description() : "nil") + " is not the running one");
    }
  });
  for (auto& then : waiters) then();
}

void OLStatus::whenRunningFlowFreed(std::function<void()> then) {
  bool now = false;
  queue_->sync([&] {
    if (_runningLoginFlow) {
      flowFreedWaiters_.push_back(std::move(then));
    } else {
      now = true;
    }
  });
  if (now) then();
}

bool OLStatus::hasRunningFlow() {
  bool held = false;
  queue_->sync([&] { held = _runningLoginFlow != nullptr; });
  return held;
}

std::shared_ptr<OLLoginFlow> OLStatus::runningFlow() {
  std::shared_ptr<OLLoginFlow> flow;
  queue_->sync([&] { flow = _runningLoginFlow; });
  return flow;
}

std::optional<Json> OLStatus::decodePony(const std::string& pony) const {
  auto parsed = parseJson(pony);
  if (!parsed || !parsed->is_object()) return std::nullopt;
  // The fingerprint may come wrapped in its cookie: {"cookieData": {"cookie":
  // {"ostrel": {...}}}}, {"ostrel-session": {...}}, or bare.
  const Json* node = &*parsed;
  for (const char* key : {"cookieData", "cookie", "ostrel", "ostrel-session"}) {
    auto it = node->find(key);
    if (it != node->end() && it->is_object()) node = &*it;
  }
  if (!node->contains("session_id") && !node->contains("user_id")) return std::nullopt;
  return *node;
}

Result<Json> OLStatus::getSerializedReceipt(const std::string& fromOffer,
                                            const std::optional<std::string>& receiptUrl) const {
  auto bytes = platform_->receipts->readReceipt(receiptUrl);
  if (!bytes) return bytes.error();
  const std::string receipt = platform_->crypto->base64Encode(*bytes);
  char size[64];
  std::snprintf(size, sizeof size, "%.1f KB", static_cast<double>(bytes->size()) / 1000.0);
  logLine(*platform_, std::string("a Receipt has been found ") + size);
  return Json{{"offerId", fromOffer},
              {"applicationId", _deviceInfo->appIdentifier},
              {"platform", _deviceInfo->os ? *_deviceInfo->os : std::string("unknown")},
              {"receipt", receipt}};
}

}  // namespace ostrel
