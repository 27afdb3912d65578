// A service reply (status, body bytes, final URL) through response decoding and
// the parser every endpoint shares.
#include <fuzzer/FuzzedDataProvider.h>

#include "core/ostrel_api_endpoint.h"
#include "fuzz_platform.h"
#include "transport/ol_connector.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  ostrel::platform::HttpResponse response;
  response.status = input.ConsumeIntegralInRange<long>(-1, 999);
  response.finalUrl = input.ConsumeRandomLengthString(128);
  std::optional<ostrel::PlatformError> transportError;
  if (input.ConsumeBool()) {
    transportError =
        ostrel::PlatformError{input.ConsumeRandomLengthString(16), input.ConsumeIntegral<int64_t>(),
                              input.ConsumeRandomLengthString(64)};
  }
  response.body = input.ConsumeRemainingBytesAsString();
  ostrel::OLConnector::parseResponse(
      transportError, response, "ostrel.example", *ostrel::fuzz::quietPlatform()->log,
      [](std::optional<ostrel::OLError> error, int64_t status, std::optional<ostrel::Json> reply) {
        if (error) {
          (void)error->description();
          return;
        }
        auto [parsedError, result] = ostrel::parseUnified(status, reply);
        if (parsedError) (void)parsedError->description();
        if (result) (void)ostrel::dumpJson(*result);
      });
  return 0;
}
