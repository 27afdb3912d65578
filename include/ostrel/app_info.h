#pragma once
// Who the host application is. The service sees it in the session start, the
// push registration and the store receipts; `development` decides whether a
// sandbox secret prints the release warning.
#include <optional>
#include <string>

namespace ostrel {

// Set once, in `Platform::app`, before the facade starts. An empty text (an
// unset flag) keeps what `Platform::deviceFacts` says, which on Linux is
// "unknown" (and not a development build). The facade refuses, with
// OstrelInitializationError naming the field, a text that is not UTF-8, holds
// a control character or is longer than 256 bytes.
struct AppInfo {
  std::string identifier;  // e.g. "com.example.notes"
  std::string version;     // e.g. "2.3.1"
  std::string build;       // e.g. "2031"
  std::optional<bool> development;

  bool empty() const {
    return identifier.empty() && version.empty() && build.empty() && !development;
  }
};

}  // namespace ostrel
