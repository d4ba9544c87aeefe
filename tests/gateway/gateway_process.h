// Runs the program krvgwsim for a test, in a folder of its own.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace krvgwtest {

struct GatewayExit {
    int code = -1;               // -1: it did not end by itself in time, or by a signal
    std::string errors;          // its standard error
};

// Running from the constructor on; killed by the destructor unless stopped.
class GatewayProcess {
public:
    // Waits until the port file is there. `port` is 0 if the program ended instead.
    explicit GatewayProcess(const std::vector<std::string>& arguments);
    ~GatewayProcess();
    GatewayProcess(const GatewayProcess&) = delete;
    GatewayProcess& operator=(const GatewayProcess&) = delete;

    // Sends the signal and waits for the end, 10 seconds at most.
    GatewayExit stop(int signal);
    // Waits for the end, 10 seconds at most.
    GatewayExit waitForEnd();

    std::vector<std::string> transcript() const;
    // True once the transcript has this line; false after 10 seconds without.
    bool waitForLine(const std::string& line) const;

    int port = 0;
    std::filesystem::path folder;
    pid_t pid = -1;
};

}  // namespace krvgwtest
