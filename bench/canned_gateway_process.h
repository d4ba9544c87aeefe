// The canned gateway as a process of its own.
#pragma once

#include <string>

#include <unistd.h>

#include "child_process.h"

namespace krvbench {

class CannedGateway {
public:
    // Throws if it cannot be started.
    CannedGateway(const std::string& shape, std::size_t n, bool ahead, int core = -1)
        : listener(listenOnLoopback(&portNumber)), process({KRVBENCH_CANNED_GATEWAY, std::to_string(listener), shape,
                                                               std::to_string(n), ahead ? "ahead" : "in-turn"},
                                                       core)
    {
        close(listener);
    }

    int port() const
    {
        return portNumber;
    }

private:
    int portNumber = 0;
    int listener;
    ChildProcess process;
};

} // namespace krvbench
