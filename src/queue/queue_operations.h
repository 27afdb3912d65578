#pragma once
// The two operations of the event queue: append one event, and send the
// oldest chunk as one bulk request.
#include <functional>
#include <memory>

#include "queue/asynchronous_operation.h"
#include "queue/ol_chunked_queue.h"
#include "transport/ol_connector.h"

namespace ostrel {

class OLLoginBuilder;

// Appends one accepted event, as the intake recorded it, to the chunked queue.
class OLAddChunkOperation : public AsynchronousOperation {
 public:
  // `wanted` (may be empty) is asked first: an event no longer wanted is not
  // written. `onAdded` gets the outcome of the write, absent when skipped.
  OLAddChunkOperation(std::weak_ptr<OLChunkedQueue> eventQueue, IntakeRecord item,
                      std::function<bool()> wanted,
                      std::function<void(std::optional<Result<void>>)> onAdded)
      : eventQueue(std::move(eventQueue)),
        item(std::move(item)),
        wanted_(std::move(wanted)),
        onAdded_(std::move(onAdded)) {}
  void main() override;

  std::weak_ptr<OLChunkedQueue> eventQueue;
  IntakeRecord item;

 private:
  std::function<bool()> wanted_;
  std::function<void(std::optional<Result<void>>)> onAdded_;
};

// Starts the autologin the service asks for with status 205.
using AutologinStarter = std::function<void()>;

class OLConsumeBlockOperation : public AsynchronousOperation {
 public:
  OLConsumeBlockOperation(std::weak_ptr<OLChunkedQueue> eventQueue, OLConnector connector,
                          AutologinStarter autologin, bool forceConsume)
      : eventQueue(std::move(eventQueue)),
        connector(std::move(connector)),
        autologin_(std::move(autologin)),
        forceConsume(forceConsume) {}

  void main() override;
  using ConsumeCallback = std::function<void(std::optional<OLError>, std::optional<Json>)>;
  void consume(ConsumeCallback callback);

  std::weak_ptr<OLChunkedQueue> eventQueue;
  OLConnector connector;
  AutologinStarter autologin_;
  bool forceConsume;
  // How the flush ended, set before the operation finishes: the error, the
  // flush's details, and whether a chunk stays queued for a later attempt
  // (a transient failure: 408, 5xx, no answer).
  std::optional<OLError> outcome;
  std::optional<Json> details;
  bool chunkKept = false;

 private:
  void sendToServer(Json events, const std::string& handler, ConsumeCallback callback);
  void settle(std::optional<OLError> error, std::optional<Json> details, bool kept);
  // The events' dictionaries, dates in the platform's local time; drops, with
  // a console line, the events that no request could ever carry.
  static Json sendable(const std::vector<std::shared_ptr<OLBaseEvent>>& events,
                       const std::string& handler, const Platform& platform);
};

}  // namespace ostrel
