// What the gateway counts about itself. Any thread may add and read.
#pragma once

#include "messages.h"

#include <array>
#include <atomic>

namespace krvgw {

struct Counters {
    std::atomic<std::uint64_t> connectionsAccepted{0};
    std::atomic<std::uint64_t> connectionsOpen{0};
    std::atomic<std::uint64_t> bytesIn{0};
    std::atomic<std::uint64_t> bytesOut{0};
    std::atomic<std::uint64_t> complaints{0};
    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(MessageKind::Unknown) + 1> requests{};
};

}  // namespace krvgw
