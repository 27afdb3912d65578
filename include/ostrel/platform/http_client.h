#pragma once
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ostrel/export.h"
#include "ostrel/ol_error.h"

namespace ostrel::platform {

struct OSTREL_API HttpRequest {
  std::string url;
  std::string method = "POST";
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;  // raw bytes
  double timeoutSecs = 15;
  // Where a redirect may carry the body and the Authorization header again:
  // hosts under this domain (the request's own host when empty).
  std::string bodyDomain;
  // Lifts that rule, for the one request whose answer comes from outside the
  // service's domain by design.
  bool bodyMayLeaveDomain = false;
};

struct OSTREL_API HttpResponse {
  long status = 0;
  std::string body;      // raw bytes
  std::string finalUrl;  // after redirects
  std::vector<std::pair<std::string, std::string>> headers;
};

// Completion of one request: a transport failure (no response), or the response.
using HttpCompletion = std::function<void(std::optional<PlatformError>, HttpResponse)>;

// Sends requests asynchronously. TLS certificate and host-name verification are
// always on; connections are reused between requests.
//
// Redirects are followed as a platform HTTP stack follows them: 303, and 301 or
// 302 of a POST, continue as a GET without body; 307 and 308 keep the method and
// the body. A body (and the Authorization header) only ever goes where
// `bodyDomain` and `bodyMayLeaveDomain` allow, and never from https to http: a
// 307 or 308 that would carry it elsewhere ends the request with an error, and a
// hop to another host drops the Authorization header.
//
// A header name or value with CR, LF or NUL is refused (an error, nothing sent).
// Completions run on the client's own network thread, never on the caller's.
// send() and dispatch() may be called from any thread, completions included;
// a client may be released from its own completion.
class OSTREL_API HttpClient {
 public:
  virtual ~HttpClient() = default;
  virtual void send(HttpRequest request, HttpCompletion completion) = 0;
  // Runs `work` where completions run, in order with them: for an answer the
  // library has without sending anything, so that it never comes on the caller's
  // own thread.
  virtual void dispatch(std::function<void()> work) = 0;
};

}  // namespace ostrel::platform
