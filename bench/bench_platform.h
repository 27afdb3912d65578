#pragma once
// What every benchmark runs on: a storage folder of its own, no console
// output, and either the loopback emulator over HTTPS or an in-process
// service that refuses every request at once (so only the disk is measured).
#include <memory>
#include <optional>
#include <string>

#include "emulator/emulator.h"
#include "ostrel/platform.h"
#include "scratch_platform.h"

namespace ostrel::bench {

using testing::ScratchDir;

// A memory-backed folder (/dev/shm) when the machine has a writable one, else "".
std::string memoryFolder();

// The emulator on a free loopback port, keeping its data under `dataDir`.
std::unique_ptr<emulator::Emulator> startEmulator(const std::string& dataDir);

// `service`: the emulator to reach; absent, every request is answered 503
// without leaving the process.
Platform benchPlatform(const std::string& storageRoot,
                       const std::optional<emulator::Info>& service);

// Resident and peak resident memory of this process, in kB.
long residentKb();
long peakResidentKb();

}  // namespace ostrel::bench
