// The public tools ostrel-cli is built on: a request they sign must be one the
// service accepts, and what they cannot sign is refused before anything is sent.
#include "ostrel/diagnostics.h"

#include <gtest/gtest.h>

#include "support/emulator_service.h"

namespace ostrel {
namespace {

// A wrong secret's refusal is the emulator's own test.
TEST(DiagnosticsTest, ASentRequestIsOneTheServiceAccepts) {
  test::EmulatorService service;
  test::TestPlatform base;
  diagnostics::Request request;
  request.secret = "demo-secret";
  request.applicationId = "demo";
  request.endpoint = "TrackBulk";
  request.body = Json::array({Json{{"event_type", "custom event"},
                                   {"session_id", "s"},
                                   {"creation_date", "2026-11-24T10:00:00.000+0000"},
                                   {"user_id", "A_diag"},
                                   {"name", "diag"}}});
  auto [error, status, reply] =
      test::await<std::optional<OLError>, int64_t, std::optional<Json>>([&](auto done) {
        auto sent = diagnostics::send(service.platformFor(base), request, done);
        if (!sent) done(sent.error(), 0, std::nullopt);
      });
  EXPECT_FALSE(error) << error->description();
  EXPECT_EQ(status, 200);
}

TEST(DiagnosticsTest, WhatCannotBeSignedIsRefusedAtOnce) {
  test::TestPlatform base;
  diagnostics::Request request;
  request.secret = "s";
  request.applicationId = "a";
  request.endpoint = "NoSuchEndpoint";
  bool called = false;
  EXPECT_FALSE(diagnostics::send(base.platform(), request, [&](auto...) { called = true; }));
  request.endpoint = "TrackBulk";
  request.group = "be\"ta\r\nX-Injected: yes";
  EXPECT_FALSE(diagnostics::send(base.platform(), request, [&](auto...) { called = true; }));
  EXPECT_FALSE(called);

  EXPECT_FALSE(diagnostics::authorizationHeader("s", "a", std::nullopt, "not a url", "1", ""));
  auto header = diagnostics::authorizationHeader("s", "a", std::string("beta"),
                                                 "https://api.ostrel.io/x", "17", "{}");
  ASSERT_TRUE(header);
  EXPECT_NE(header->find("group=\"beta\""), std::string::npos) << *header;
}

}  // namespace
}  // namespace ostrel
