// Simulated gateways as processes of their own, each with something else to serve; replaced one by one while clients
// talk to them.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include <sys/types.h>

#include "served.h"
#include "trace_capture.h"

namespace krvsoak {

struct Gateway {
    int port = 0;
    std::shared_ptr<const Served> served;
};

class Gateways {
public:
    // Throws if one does not start.
    Gateways(int count, std::uint64_t seed);
    // Stops them all.
    ~Gateways();
    Gateways(const Gateways&) = delete;
    Gateways& operator=(const Gateways&) = delete;

    Gateway any(std::mt19937_64& random);

    // Puts a new one in the place of one of them, whose connections break. False if that one had ended by itself.
    bool replaceOne();

private:
    struct Process {
        pid_t id = -1;
        Gateway gateway;
    };

    Process start();

    krvtest::ScratchFolder scratch;
    std::mt19937_64 random;
    std::mutex changes;
    std::vector<Process> processes;
    int started = 0;
    std::size_t oldest = 0;
};

} // namespace krvsoak
