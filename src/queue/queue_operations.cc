#include "queue/queue_operations.h"

#include "core/ostrel_api_endpoint.h"
#include "ostrel/ol_notification.h"

namespace ostrel {

void OLAddChunkOperation::main() {
  if (isCancelled()) {
    setState(State::finished);
    return;
  }
  setState(State::executing);
  std::optional<Result<void>> outcome;
  auto queue = eventQueue.lock();
  if (queue && (!wanted_ || wanted_())) outcome = queue->append(item);
  if (onAdded_) onAdded_(std::move(outcome));
  setState(State::finished);
}

void OLConsumeBlockOperation::main() {
  if (isCancelled()) {
    setState(State::finished);
    return;
  }
  setState(State::executing);
  auto self = std::static_pointer_cast<OLConsumeBlockOperation>(shared_from_this());
  consume([self](std::optional<OLError> error, std::optional<Json> details) {
    if (!error) {
      notify(OLNotification::AnalyticEventsFlushed, self.get(),
             Json{{"error", "none"}, {"params", details ? *details : Json("none")}});
    } else {
      logLine(self->connector.platform(),
              std::string("Error in sending at ") +
                  (self->forceConsume ? "expiration" : "chunk-completed") + " time " +
                  error->description());
    }
    self->setState(State::finished);
  });
}

void OLConsumeBlockOperation::settle(std::optional<OLError> error, std::optional<Json> details,
                                     bool kept) {
  outcome = std::move(error);
  this->details = std::move(details);
  chunkKept = kept;
}

Json OLConsumeBlockOperation::sendable(const std::vector<std::shared_ptr<OLBaseEvent>>& events,
                                       const std::string& handler, const Platform& platform) {
  // An event the bulk body's own check refuses (a number that is not finite,
  // from a store written before such numbers were refused) would fail its
  // whole chunk on every attempt and hold up every later chunk for good.
  Json out = Json::array();
  const auto check = getBodyTypeValidator(OstrelAPIEndpoint::TrackBulk);
  for (const auto& e : events) {
    Json one = e->getEventDictionary(*platform.clock);
    if (auto ok = check(Json::array({one})); !ok) {
      logLine(platform, "Dropping an event of chunk " + handler +
                            " that can never be sent: " + ok.error().description());
      continue;
    }
    out.push_back(std::move(one));
  }
  return out;
}

void OLConsumeBlockOperation::consume(ConsumeCallback callback) {
  auto finish = [this, callback](std::optional<OLError> error, std::optional<Json> details,
                                 bool kept) {
    settle(error, details, kept);
    callback(std::move(error), std::move(details));
  };
  auto queue = eventQueue.lock();
  if (!queue) {
    finish(OLError::LocalError(LocalErrorCodes::QueueError, "Error in get event from queue",
                               std::nullopt, Json{{"handler", nullptr}, {"eventCount", 0}}),
           std::nullopt, true);
    return;
  }
  if (const auto s = queue->snapshot(); s.chunkCount <= 1 && s.oldestCount == 0) {
    // Nothing queued at all: popping would open a new chunk key for nothing,
    // and an idle app would wrap the keys within days.
    finish(std::nullopt,
           Json{{"handler", std::to_string(queue->chunkKeys().front())}, {"eventCount", 0}}, false);
    return;
  }
  std::optional<std::string> handler;
  auto popped = queue->popChunk(handler, false);
  const std::size_t count = popped ? popped->size() : 0;
  std::string keys;
  for (int k : queue->chunkKeys()) keys += (keys.empty() ? "" : ", ") + std::to_string(k);
  logLine(connector.platform(), "Consuming popChunk of " + std::to_string(count));
  logLine(connector.platform(),
          "queue Details:  pushUrl = " + queue->pushUrl() + ", chunkKeys = [" + keys + "]");
  if (!popped || !handler) {
    finish(OLError::LocalError(
               LocalErrorCodes::QueueError, "Error in get event from queue", std::nullopt,
               Json{{"handler", handler ? Json(*handler) : Json(nullptr)}, {"eventCount", count}}),
           std::nullopt, true);
    return;
  }
  Json events = popped->empty() ? Json::array() : sendable(*popped, *handler, connector.platform());
  if (events.empty()) {
    // An empty chunk is dropped unless it is the only one (then it stays the push
    // chunk); so is one whose every event was dropped above.
    if (queue->chunkKeys().size() > 1 || !popped->empty()) {
      if (auto removed = queue->removeChunk(*handler); !removed) {
        logLine(connector.platform(), "Nothing to send but Error in removing chunk from queue " +
                                          removed.error().description());
        finish(
            OLError::LocalError(LocalErrorCodes::QueueError, "Error in removing chunk from queue"),
            std::nullopt, true);
        return;
      }
    }
    finish(std::nullopt, Json{{"handler", *handler}, {"eventCount", 0}}, false);
    return;
  }
  sendToServer(std::move(events), *handler, std::move(callback));
}

void OLConsumeBlockOperation::sendToServer(Json events, const std::string& handler,
                                           ConsumeCallback callback) {
  auto self = std::static_pointer_cast<OLConsumeBlockOperation>(shared_from_this());
  const std::size_t count = events.size();
  connector.send(
      OstrelAPIEndpoint::TrackBulk, events,
      [self, handler, count, callback](std::optional<OLError> error, int64_t status,
                                       std::optional<Json>) {
        auto finish = [&](std::optional<OLError> e, std::optional<Json> details, bool kept) {
          self->settle(e, details, kept);
          callback(std::move(e), std::move(details));
        };
        auto queue = self->eventQueue.lock();
        if (!queue) {
          finish(error, std::nullopt, true);
          return;
        }
        Json details = {{"handler", handler}, {"eventCount", count}, {"statusCode", status}};
        if (!error) {
          if (auto removed = queue->removeChunk(handler); !removed) {
            logLine(self->connector.platform(),
                    "Sending went well but Error in removing chunk from queue " +
                        removed.error().description());
            finish(OLError::LocalError(LocalErrorCodes::QueueError,
                                       "Error in removing chunk from queue"),
                   std::nullopt, true);
            return;
          }
          if (status == 205 && self->autologin_) self->autologin_();
          finish(std::nullopt, details, false);
          return;
        }
        // A permanent refusal drops the chunk: the service said no (3xx, 4xx
        // other than 408), or no request could ever carry it (the body's own
        // check, answered before any network use). 408, 5xx and transport
        // failures keep it.
        const bool refused = status != 408 && status >= 300 && status <= 499;
        const bool unsendable =
            status == 0 && error->is(LocalErrorCodes::ConnectionValidationError);
        if (refused || unsendable) (void)queue->removeChunk(handler);
        finish(error, std::nullopt, !(refused || unsendable));
      });
}

}  // namespace ostrel
