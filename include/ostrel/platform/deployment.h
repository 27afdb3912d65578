#pragma once
#include <optional>
#include <string>

#include "ostrel/export.h"
#include "ostrel/result.h"

namespace ostrel {

// Where the service lives. The production values are constants of the library;
// a host (the emulator, tests, staging) may override any of them in code, or
// take the OSTREL_* variables of its environment through Platform::fromEnvironment().
struct OSTREL_API Deployment {
  std::string scheme = "https";
  std::string domain = "ostrel.io";
  std::string clientApiLabel = "client";
  std::string authApiLabel = "auth";
  std::string sandboxMarker = "-sandbox";
  std::string devMarker = "-dev";

  static Deployment production() { return Deployment{}; }

  // The scheme is "https" or "http", and every host the library can form
  // (label + markers + "." + domain) is a host name. Fails with
  // OstrelInitializationError naming the part that is not.
  Result<void> validate() const;
};

// How the default HTTP client reaches the service, beyond the URL.
struct OSTREL_API NetworkOverrides {
  // "ADDRESS:PORT": every request connects there whatever its host name; the URL,
  // the Host header and the TLS name stay as they are. ADDRESS is a host name,
  // an IPv4 address or a bracketed IPv6 address.
  std::optional<std::string> connectTo;
  // An extra CA bundle (PEM) to trust beside the system's, read once when the
  // client is made. TLS verification itself is never switched off.
  std::optional<std::string> caFile;

  // `connectTo` has the form above and `caFile` is a readable file with at
  // least one certificate. Fails with OstrelInitializationError otherwise.
  Result<void> validate() const;
};

}  // namespace ostrel
