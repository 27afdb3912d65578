#include "queue/queue_operations.h"

#include "ostrel/ol_notification.h"
#include "platform/runtime.h"

namespace ostrel {

void OLAddChunkOperation::main() {
  if (isCancelled()) {
    setState(State::finished);
    return;
  }
  setState(State::executing);
  std::optional<OLError> error;
  if (auto queue = eventQueue.lock()) {
    if (auto added = queue->append(*item); !added) error = added.error();
  }
  if (onAdded_) onAdded_(error);
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
    self->outcome = error;
    self->details = details;
    if (!error) {
      notify(OLNotification::AnalyticEventsFlushed, self.get(),
             Json{{"error", "none"}, {"params", details ? *details : Json("none")}});
    } else {
      logLine(std::string("Error in sending at ") +
              (self->forceConsume ? "expiration" : "chunk-completed") + " time " +
              error->description());
    }
    self->setState(State::finished);
  });
}

void OLConsumeBlockOperation::consume(ConsumeCallback callback) {
  auto queue = eventQueue.lock();
  if (!queue) {
    callback(OLError::LocalError(LocalErrorCodes::QueueError, "Error in get event from queue",
                                 std::nullopt, Json{{"handler", nullptr}, {"eventCount", 0}}),
             std::nullopt);
    return;
  }
  std::optional<std::string> handler;
  auto popped = queue->popChunk(handler, false);
  const std::size_t count = popped ? popped->size() : 0;
  std::string keys;
  for (int k : queue->chunkKeys()) keys += (keys.empty() ? "" : ", ") + std::to_string(k);
  logLine("Consuming popChunk of " + std::to_string(count));
  logLine("queue Details:  pushUrl = " + queue->pushUrl() + ", chunkKeys = [" + keys + "]");
  if (!popped || !handler) {
    callback(
        OLError::LocalError(
            LocalErrorCodes::QueueError, "Error in get event from queue", std::nullopt,
            Json{{"handler", handler ? Json(*handler) : Json(nullptr)}, {"eventCount", count}}),
        std::nullopt);
    return;
  }
  if (popped->empty()) {
    // An empty chunk is dropped unless it is the only one (then it stays the push chunk).
    if (queue->chunkKeys().size() > 1) {
      if (auto removed = queue->removeChunk(*handler); !removed) {
        logLine("Nothing to send but Error in removing chunk from queue " +
                removed.error().description());
        callback(
            OLError::LocalError(LocalErrorCodes::QueueError, "Error in removing chunk from queue"),
            std::nullopt);
        return;
      }
    }
    callback(std::nullopt, Json{{"handler", *handler}, {"eventCount", 0}});
    return;
  }
  Json events = Json::array();
  for (const auto& e : *popped) events.push_back(e->getEventDictionary());
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
        // The reply arrives on the network thread; the chunk is settled on the queue's thread.
        auto queue = self->eventQueue.lock();
        if (!queue) {
          callback(error, std::nullopt);
          return;
        }
        Json details = {{"handler", handler}, {"eventCount", count}, {"statusCode", status}};
        if (!error) {
          if (auto removed = queue->removeChunk(handler); !removed) {
            logLine("Sending went well but Error in removing chunk from queue " +
                    removed.error().description());
            callback(OLError::LocalError(LocalErrorCodes::QueueError,
                                         "Error in removing chunk from queue"),
                     std::nullopt);
            return;
          }
          if (status == 205 && self->autologin_) self->autologin_();
          callback(std::nullopt, details);
          return;
        }
        // A permanent refusal drops the chunk; 408, 5xx and transport failures keep it.
        if (status != 408 && status >= 300 && status <= 499) (void)queue->removeChunk(handler);
        callback(error, std::nullopt);
      });
}

}  // namespace ostrel
