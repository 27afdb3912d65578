#pragma once
#include <cstdint>

namespace ostrel {

// The library's tuning values. The host cannot change them: the facade always
// builds this record with its defaults.
struct OstrelConfiguration {
  double sessionExpireSecs = 1800;
  int64_t chunkSizeBytes = 10240;
  int64_t chunkCountEvents = 10;
  int64_t connectionTimeoutSecs = 15;
  double expireTimeSec = 10;
  double heartbeatPeriodSec = 10;
  double metaInfoCacheSecs = 1800;
  double pushRegRetrySecs = 10;
};

}  // namespace ostrel
