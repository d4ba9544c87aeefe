// Statistics of the machine, from a /proc made for the test and from the real one.
#include "live.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace {

struct ProcFolder {
    ProcFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "krvgw-proc-XXXXXX").string();
        path = mkdtemp(name.data());
        std::filesystem::create_directories(path / "net");
        std::filesystem::create_directories(path / "self");
    }
    ~ProcFolder() { std::filesystem::remove_all(path); }
    ProcFolder(const ProcFolder&) = delete;
    ProcFolder& operator=(const ProcFolder&) = delete;

    std::filesystem::path path;
};

void write(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path) << text;
}

void fill(const ProcFolder& proc)
{
    write(proc.path / "loadavg", "0.50 1.25 2.00 3/111 25380\n");
    write(proc.path / "uptime", "2058.69 3803.08\n");
    write(proc.path / "stat", "cpu  1 2 3 4 5 6 7 8 0 0\ncpu0 1 2 3 4 5 6 7 8 0 0\ncpu1 0 0 0 0 0 0 0 0 0 0\n"
                              "intr 399008 0 0\nctxt 777163\nprocesses 25380\n");
    write(proc.path / "meminfo", "MemTotal:  24684084 kB\nMemFree: 21669348 kB\nSwapCached: 5 kB\n");
    write(proc.path / "net/dev", "Inter-|   Receive    |  Transmit\n face |bytes    packets\n"
                                 "    lo:    7861     114    1    2    0     0          0         0     7862     115"
                                 "    3    4    0     0       0          0\n"
                                 "  ifb0: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
                                 "eth0:1: 5 6 7 8 0 0 0 0 9 10 11 12 0 0 0 0\n");
    write(proc.path / "diskstats", " 254       0 vda 10 11 12 13 14 15 16 17 18 19 20\n"
                                   "   7       0 loop0 0 0 0 0 0 0 0 0 0 0 0\n");
    write(proc.path / "self/stat", "77 (odd ) name) R 1 2 3 4 5 6 7 8 9 10 311 312 0 0 20 0 9 0 205869 3133440 406\n");
}

std::map<std::string, std::map<std::string, std::string>> read(const std::string& folder, krvgw::Counters& counters)
{
    const auto source = krvgw::liveSource(folder, counters);
    const krvgw::Catalogue catalogue = source->openSession()->read(true);
    EXPECT_EQ(krvgw::faultOfCatalogue(catalogue), "");
    std::map<std::string, std::map<std::string, std::string>> groups;
    for (const krvgw::Group& group : catalogue.groups)
        for (const krvgw::Statistic& each : group.statistics) groups[group.id][each.id] = each.value;
    return groups;
}

}  // namespace

TEST(Live, EveryGroupIsReadFromItsFile)
{
    const ProcFolder proc;
    fill(proc);
    krvgw::Counters counters;
    counters.connectionsAccepted = 3;
    counters.requests[static_cast<std::size_t>(krvgw::MessageKind::GetStats)] = 12;
    counters.bytesIn = 1000;
    auto groups = read(proc.path, counters);

    const std::map<std::string, std::string> load = {
        {"load.1min", "0.50"}, {"load.5min", "1.25"}, {"load.15min", "2.00"}, {"load.running_threads", "3"},
        {"load.threads", "111"}, {"load.uptime_seconds", "2058.69"}};
    EXPECT_EQ(groups["system_load"], load);
    const std::map<std::string, std::string> cpu = {
        {"cpu.user_ticks", "1"}, {"cpu.nice_ticks", "2"}, {"cpu.system_ticks", "3"}, {"cpu.idle_ticks", "4"},
        {"cpu.iowait_ticks", "5"}, {"cpu.irq_ticks", "6"}, {"cpu.softirq_ticks", "7"}, {"cpu.steal_ticks", "8"},
        {"cpu.interrupts", "399008"}, {"cpu.context_switches", "777163"}, {"cpu.processes_started", "25380"},
        {"cpu.processors", "2"}};
    EXPECT_EQ(groups["cpu"], cpu);
    const std::map<std::string, std::string> memory = {{"memory.total_kb", "24684084"}, {"memory.free_kb", "21669348"}};
    EXPECT_EQ(groups["memory"], memory);
    const std::map<std::string, std::string> loopback = {
        {"network.lo.rx_bytes", "7861"}, {"network.lo.rx_packets", "114"}, {"network.lo.rx_errors", "1"},
        {"network.lo.rx_dropped", "2"}, {"network.lo.tx_bytes", "7862"}, {"network.lo.tx_packets", "115"},
        {"network.lo.tx_errors", "3"}, {"network.lo.tx_dropped", "4"}};
    EXPECT_EQ(groups["network_lo"], loopback);
    const std::map<std::string, std::string> disk = {
        {"disk.vda.reads", "10"}, {"disk.vda.sectors_read", "12"}, {"disk.vda.read_ms", "13"},
        {"disk.vda.writes", "14"}, {"disk.vda.sectors_written", "16"}, {"disk.vda.write_ms", "17"},
        {"disk.vda.in_progress", "18"}};
    EXPECT_EQ(groups["disk_vda"], disk);
    EXPECT_EQ(groups["gateway_process"]["process.pid"], std::to_string(getpid()));
    EXPECT_EQ(groups["gateway_process"]["process.user_ticks"], "311");
    EXPECT_EQ(groups["gateway_process"]["process.system_ticks"], "312");
    EXPECT_EQ(groups["gateway_process"]["process.threads"], "9");
    EXPECT_EQ(groups["gateway_process"]["process.virtual_bytes"], "3133440");
    EXPECT_EQ(groups["gateway_process"]["process.resident_pages"], "406");
    EXPECT_EQ(groups["gateway_requests"]["gateway.connections_accepted"], "3");
    EXPECT_EQ(groups["gateway_requests"]["gateway.requests.get-stats"], "12");
    EXPECT_EQ(groups["gateway_requests"]["gateway.bytes_in"], "1000");
}

TEST(Live, WhatNeverMovedAByteIsLeftOut)
{
    const ProcFolder proc;
    fill(proc);
    krvgw::Counters counters;
    const auto groups = read(proc.path, counters);
    EXPECT_EQ(groups.count("network_ifb0"), 0u);
    EXPECT_EQ(groups.count("disk_loop0"), 0u);
}

TEST(Live, NamesNeverHoldAColon)
{
    const ProcFolder proc;
    fill(proc);
    krvgw::Counters counters;
    auto groups = read(proc.path, counters);
    EXPECT_EQ(groups["network_eth0_1"]["network.eth0_1.rx_bytes"], "5");
}

TEST(Live, MissingFilesLeaveTheOtherGroups)
{
    const ProcFolder proc;
    krvgw::Counters counters;
    auto groups = read(proc.path, counters);
    EXPECT_EQ(groups.count("cpu"), 0u);
    EXPECT_EQ(groups["gateway_process"]["process.pid"], std::to_string(getpid()));
    EXPECT_EQ(groups["gateway_requests"].size(), 14u);
}

TEST(Live, TheRealMachineHasLoadAndMemory)
{
    krvgw::Counters counters;
    auto groups = read("/proc", counters);
    EXPECT_GT(std::stoull(groups["memory"]["memory.total_kb"]), 0u);
    EXPECT_GT(std::stoull(groups["cpu"]["cpu.processors"]), 0u);
    EXPECT_GE(std::stoull(groups["gateway_process"]["process.threads"]), 1u);
}
