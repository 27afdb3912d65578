#pragma once
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ostrel/ol_error.h"

namespace ostrel::platform {

struct HttpRequest {
  std::string url;
  std::string method = "POST";
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;  // raw bytes
  double timeoutSecs = 15;
};

struct HttpResponse {
  long status = 0;
  std::string body;      // raw bytes
  std::string finalUrl;  // after redirects
  std::vector<std::pair<std::string, std::string>> headers;
};

// Completion of one request: a transport failure (no response), or the response.
using HttpCompletion = std::function<void(std::optional<PlatformError>, HttpResponse)>;

// Sends requests asynchronously. TLS certificate and host-name verification are
// always on; redirects are followed; connections are reused between requests.
// Completions run on the client's own network thread.
class HttpClient {
 public:
  virtual ~HttpClient() = default;
  virtual void send(HttpRequest request, HttpCompletion completion) = 0;
};

}  // namespace ostrel::platform
