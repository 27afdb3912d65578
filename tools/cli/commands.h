#pragma once
#include <string>
#include <vector>

namespace ostrel::cli {

// Each sub-command answers the process exit status: 0 success, 1 an OLError, 2 bad arguments.
int runSign(const std::vector<std::string>& argv);
int runSend(const std::vector<std::string>& argv);
int runEvent(const std::vector<std::string>& argv);
int runQueue(const std::vector<std::string>& argv);
int runLogin(const std::vector<std::string>& argv);

}  // namespace ostrel::cli
