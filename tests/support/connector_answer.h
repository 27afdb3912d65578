#pragma once
// One request through the library's own connector, and its answer.
#include <optional>
#include <utility>

#include "support/eventually.h"
#include "transport/connector_builder.h"

namespace ostrel::test {

struct Answer {
  std::optional<OLError> error;
  int64_t status = -1;
  std::optional<Json> body;
  std::string code() const { return error ? error->code() : ""; }
};

// Sends through a fresh connector of `builder` and waits for the answer.
inline Answer send(const ConnectorBuilder& builder, OstrelAPIEndpoint endpoint, const Json& body) {
  auto [e, s, b] = await<std::optional<OLError>, int64_t, std::optional<Json>>(
      [&](auto done) { builder.buildConnector().send(endpoint, body, done); });
  return Answer{std::move(e), s, std::move(b)};
}

}  // namespace ostrel::test
