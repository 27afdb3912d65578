#pragma once
#include <optional>
#include <string>

namespace ostrel {

// Where the service lives. The production values are constants of the library;
// a host (the emulator, tests, staging) may override any of them at run time.
struct Deployment {
  std::string scheme = "https";
  std::string domain = "ostrel.io";
  std::string clientApiLabel = "client";
  std::string authApiLabel = "auth";
  std::string sandboxMarker = "-sandbox";
  std::string devMarker = "-dev";

  static Deployment production() { return Deployment{}; }
  // Production values with OSTREL_SERVICE_DOMAIN and OSTREL_SERVICE_SCHEME applied.
  static Deployment fromEnvironment();
};

// How the default HTTP client reaches the service, beyond the URL.
struct NetworkOverrides {
  // "ADDRESS:PORT": every request connects there whatever its host name; the URL,
  // the Host header and the TLS name stay as they are (OSTREL_CONNECT_TO).
  std::optional<std::string> connectTo;
  // An extra CA bundle to trust (OSTREL_CA_FILE).
  std::optional<std::string> caFile;

  static NetworkOverrides fromEnvironment();
};

}  // namespace ostrel
