#pragma once
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/ostrel.h"

namespace ostrel::cli {

// Each sub-command answers the process exit status: 0 success, 1 an OLError, 2 bad arguments.
int runSign(const std::vector<std::string>& argv);
int runSend(const std::vector<std::string>& argv);
int runEvent(const std::vector<std::string>& argv);
int runQueue(const std::vector<std::string>& argv);
int runLogin(const std::vector<std::string>& argv);
int runPush(const std::vector<std::string>& argv);
int runPay(const std::vector<std::string>& argv);

// The platform every command runs on: the environment's, with the console on stderr.
void setCliPlatform(Platform platform);
const Platform& cliPlatform();
// The library started with this secret on that platform.
Result<std::shared_ptr<Ostrel>> startFacade(const std::string& secret);
// Prints the error's description (answers 1) or the success as JSON (answers 0).
int printOutcome(const std::optional<OLError>& error, const Json& success);

}  // namespace ostrel::cli
