#pragma once
// Tools for looking at what the library puts on the wire and keeps on disk,
// for command-line tools and support scripts rather than for an app's own
// flow: ostrel-cli is built on them.
//
// Threads: every function may be called from any thread. `send` answers on a
// network thread of the platform's HTTP client, never inside the call.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/export.h"
#include "ostrel/json.h"
#include "ostrel/ol_error.h"
#include "ostrel/platform.h"
#include "ostrel/result.h"

namespace ostrel::diagnostics {

// The Authorization header the library puts on a POST of `body` to `url`
// at `timestamp` (whole seconds since 1970, as text). Fails for a URL without
// a host or a group the header cannot carry.
OSTREL_API Result<std::string> authorizationHeader(const std::string& secret,
                                                   const std::string& applicationId,
                                                   const std::optional<std::string>& group,
                                                   const std::string& url,
                                                   const std::string& timestamp,
                                                   const std::string& body);

// The names `Request::endpoint` accepts, in the service's order.
OSTREL_API std::vector<std::string> endpointNames();

struct Request {
  std::string secret;
  std::string applicationId;
  std::optional<std::string> group;
  std::string endpoint;  // one of endpointNames()
  std::optional<Json> body;
  bool sandbox = false;
  bool dev = false;
  double timeoutSecs = 15;
};

// (error, HTTP status (0 without an answer), decoded reply).
using ReplyCallback = std::function<void(std::optional<OLError>, int64_t, std::optional<Json>)>;

// Signs and sends one request through the library's connector, to the
// platform's deployment. A request that cannot be made (unknown endpoint, a
// group the header cannot carry) fails at once and `reply` is not called;
// otherwise `reply` runs exactly once, on a network thread.
OSTREL_API Result<void> send(const Platform& platform, Request request, ReplyCallback reply);

// What the library keeps under `storageRoot` (empty: the platform's), read
// only: {"root", "chunks": [{"key", "events": [{"file", "event" | "error"}]}],
// "intake": [{"file", "event" | "error"}]}, dates in the platform clock's zone. Never
// opens the queue itself.
OSTREL_API Json describeQueue(const Platform& platform, const std::string& storageRoot = "");

}  // namespace ostrel::diagnostics
