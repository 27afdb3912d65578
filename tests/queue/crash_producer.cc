// A host process for the crash test: records events at full speed and writes,
// for every append that completed, one line to a progress file, until killed.
//   ostrel_crash_producer RUN_ID PROGRESS_FILE [--drain]
// The deployment and the storage folder come from the OSTREL_* variables.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>

#include "core/ostrel_facade_impl.h"
#include "ostrel/notification_center.h"
#include "ostrel/ostrel.h"

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string run = argv[1];
  const bool drain = argc > 3 && std::string(argv[3]) == "--drain";
  int progress = ::open(argv[2], O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (progress < 0) return 2;

  class Quiet : public ostrel::platform::LogSink {
    void write(std::string_view) override {}
  };
  auto platform = ostrel::Platform::fromEnvironment();
  if (!platform) return 2;
  platform->log = std::make_shared<Quiet>();
  auto facade =
      ostrel::Ostrel::getSharedInstanceWithConfig("demo-secret", nullptr, std::nullopt, *platform);
  if (!facade) return 1;
  if (drain) {
    std::promise<bool> done;
    (*facade)->flushEvents(
        [&](std::optional<ostrel::OLError> e, std::optional<ostrel::Json>) { done.set_value(!e); });
    const bool ok = done.get_future().get();
    std::_Exit(ok ? 0 : 1);
  }
  // Appends complete in the order they were queued; the first one is the session start.
  std::atomic<long> completed{0};
  ostrel::NotificationCenter::defaultCenter().addObserver(
      "refresh_session", "crash.progress", nullptr, [&](const ostrel::Notification& n) {
        const auto* error = std::any_cast<std::optional<ostrel::OLError>>(&n.object);
        if (error && *error) return;
        long index = completed.fetch_add(1);
        if (index == 0) return;  // the session start
        std::string line = run + "-" + std::to_string(index - 1) + "\n";
        (void)!::write(progress, line.data(), line.size());
      });
  for (long i = 0;; ++i) {
    (void)(*facade)->sendEvent("c" + run + "-" + std::to_string(i));
  }
}
