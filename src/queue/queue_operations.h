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

class OLAddChunkOperation : public AsynchronousOperation {
 public:
  OLAddChunkOperation(std::weak_ptr<OLChunkedQueue> eventQueue, std::shared_ptr<OLBaseEvent> item,
                      std::function<void(std::optional<OLError>)> onAdded = nullptr)
      : eventQueue(std::move(eventQueue)), item(std::move(item)), onAdded_(std::move(onAdded)) {}
  void main() override;

  std::weak_ptr<OLChunkedQueue> eventQueue;
  std::shared_ptr<OLBaseEvent> item;

 private:
  std::function<void(std::optional<OLError>)> onAdded_;
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
  // How the flush ended, set before the operation finishes.
  std::optional<OLError> outcome;
  std::optional<Json> details;

 private:
  void sendToServer(Json events, const std::string& handler, ConsumeCallback callback);
};

}  // namespace ostrel
