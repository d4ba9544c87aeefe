// The statistics of the machine that the gateway runs on, from /proc, and of the gateway itself.
//
// Groups: system_load, cpu, memory, network_<interface>, disk_<device>, gateway_process, gateway_requests.
// Interfaces and disks that have never moved a byte are left out.
#pragma once

#include "catalogue.h"
#include "counters.h"

namespace krvgw {

// `procFolder` is "/proc", or a folder that looks like it. `counters` must outlive the source.
std::unique_ptr<Source> liveSource(const std::string& procFolder, const Counters& counters);

}  // namespace krvgw
