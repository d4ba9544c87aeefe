// One function a group; a file of /proc that is missing or strange costs its group's statistics, nothing else.
#include "live.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

namespace krvgw {
namespace {

struct LiveSource : Source {
    LiveSource(const std::string& folder, const Counters& counted) : procFolder(folder), counters(counted) {}
    std::unique_ptr<Session> openSession() override;

    const std::string procFolder;
    const Counters& counters;
    const std::chrono::steady_clock::time_point startTime = std::chrono::steady_clock::now();
};

std::vector<std::string> linesOf(const std::string& path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> wordsOf(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

std::vector<std::string> wordsOfFirstLine(const std::string& path)
{
    const auto lines = linesOf(path);
    return lines.empty() ? std::vector<std::string>() : wordsOf(lines.front());
}

void add(Group& group, const std::string& id, const std::string& value)
{
    group.statistics.push_back({id, value, 0, {}});
}

void add(Group& group, const std::string& id, std::uint64_t value)
{
    add(group, id, std::to_string(value));
}

// Word `index` of a line, where there is one.
void addWord(Group& group, const std::string& id, const std::vector<std::string>& words, std::size_t index)
{
    if (index < words.size()) add(group, id, words[index]);
}

Group systemLoad(const std::string& folder)
{
    Group group{"system_load", {}, 0};
    const auto load = wordsOfFirstLine(folder + "/loadavg");
    addWord(group, "load.1min", load, 0);
    addWord(group, "load.5min", load, 1);
    addWord(group, "load.15min", load, 2);
    if (load.size() > 3) {
        const std::size_t slash = load[3].find('/');
        add(group, "load.running_threads", load[3].substr(0, slash));
        if (slash != std::string::npos) add(group, "load.threads", load[3].substr(slash + 1));
    }
    addWord(group, "load.uptime_seconds", wordsOfFirstLine(folder + "/uptime"), 0);
    return group;
}

Group cpu(const std::string& folder)
{
    static constexpr std::string_view MODES[] = {"user", "nice", "system", "idle", "iowait", "irq", "softirq", "steal"};
    Group group{"cpu", {}, 0};
    std::uint64_t processors = 0;
    for (const std::string& line : linesOf(folder + "/stat")) {
        const auto words = wordsOf(line);
        if (words.empty()) continue;
        if (words[0] == "cpu")
            for (std::size_t i = 0; i < std::size(MODES); ++i)
                addWord(group, fmt::format("cpu.{}_ticks", MODES[i]), words, i + 1);
        else if (words[0].starts_with("cpu"))
            ++processors;
        else if (words[0] == "ctxt")
            addWord(group, "cpu.context_switches", words, 1);
        else if (words[0] == "intr")
            addWord(group, "cpu.interrupts", words, 1);
        else if (words[0] == "processes")
            addWord(group, "cpu.processes_started", words, 1);
    }
    if (processors > 0) add(group, "cpu.processors", processors);
    return group;
}

Group memory(const std::string& folder)
{
    struct Row {
        std::string_view label;
        std::string_view id;
    };
    static constexpr Row ROWS[] = {
        {"MemTotal:", "memory.total_kb"},       {"MemFree:", "memory.free_kb"},
        {"MemAvailable:", "memory.available_kb"}, {"Buffers:", "memory.buffers_kb"},
        {"Cached:", "memory.cached_kb"},        {"Dirty:", "memory.dirty_kb"},
        {"SwapTotal:", "memory.swap_total_kb"}, {"SwapFree:", "memory.swap_free_kb"},
    };
    Group group{"memory", {}, 0};
    for (const std::string& line : linesOf(folder + "/meminfo")) {
        const auto words = wordsOf(line);
        for (const Row& row : ROWS)
            if (!words.empty() && words[0] == row.label) addWord(group, std::string(row.id), words, 1);
    }
    return group;
}

std::string withoutColons(std::string name)
{
    std::replace(name.begin(), name.end(), ':', '_');
    return name;
}

std::vector<Group> networks(const std::string& folder)
{
    struct Row {
        std::string_view id;
        std::size_t word;
    };
    static constexpr Row ROWS[] = {
        {"rx_bytes", 0}, {"rx_packets", 1}, {"rx_errors", 2}, {"rx_dropped", 3},
        {"tx_bytes", 8}, {"tx_packets", 9}, {"tx_errors", 10}, {"tx_dropped", 11},
    };
    std::vector<Group> groups;
    for (const std::string& line : linesOf(folder + "/net/dev")) {
        const std::size_t colon = line.rfind(':');
        if (colon == std::string::npos) continue;
        const auto names = wordsOf(line.substr(0, colon));
        const auto counts = wordsOf(line.substr(colon + 1));
        if (names.size() != 1 || counts.size() < 12 || (counts[0] == "0" && counts[8] == "0")) continue;
        const std::string name = withoutColons(names[0]);
        Group group{"network_" + name, {}, 0};
        for (const Row& row : ROWS) addWord(group, fmt::format("network.{}.{}", name, row.id), counts, row.word);
        groups.push_back(std::move(group));
    }
    return groups;
}

std::vector<Group> disks(const std::string& folder)
{
    struct Row {
        std::string_view id;
        std::size_t word;
    };
    static constexpr Row ROWS[] = {
        {"reads", 3},  {"sectors_read", 5},    {"read_ms", 6},
        {"writes", 7}, {"sectors_written", 9}, {"write_ms", 10}, {"in_progress", 11},
    };
    std::vector<Group> groups;
    for (const std::string& line : linesOf(folder + "/diskstats")) {
        const auto words = wordsOf(line);
        if (words.size() < 12 || (words[5] == "0" && words[9] == "0")) continue;
        const std::string name = withoutColons(words[2]);
        Group group{"disk_" + name, {}, 0};
        for (const Row& row : ROWS) addWord(group, fmt::format("disk.{}.{}", name, row.id), words, row.word);
        groups.push_back(std::move(group));
    }
    return groups;
}

Group gatewayProcess(const LiveSource& source)
{
    Group group{"gateway_process", {}, 0};
    add(group, "process.pid", static_cast<std::uint64_t>(getpid()));
    const auto lines = linesOf(source.procFolder + "/self/stat");
    // The second word, the name, stands in brackets and may hold blanks: count from behind it.
    const std::size_t bracket = lines.empty() ? std::string::npos : lines.front().rfind(')');
    if (bracket != std::string::npos) {
        const auto words = wordsOf(lines.front().substr(bracket + 1));
        addWord(group, "process.user_ticks", words, 11);
        addWord(group, "process.system_ticks", words, 12);
        addWord(group, "process.threads", words, 17);
        addWord(group, "process.virtual_bytes", words, 20);
        addWord(group, "process.resident_pages", words, 21);
    }
    const std::chrono::duration<double> up = std::chrono::steady_clock::now() - source.startTime;
    add(group, "process.uptime_seconds", fmt::format("{:.2f}", up.count()));
    return group;
}

Group gatewayRequests(const Counters& counters)
{
    Group group{"gateway_requests", {}, 0};
    add(group, "gateway.connections_accepted", counters.connectionsAccepted);
    add(group, "gateway.connections_open", counters.connectionsOpen);
    for (const MessageKind kind : messageKinds())
        add(group, fmt::format("gateway.requests.{}", nameOf(kind)), counters.requests[static_cast<std::size_t>(kind)]);
    add(group, "gateway.bytes_in", counters.bytesIn);
    add(group, "gateway.bytes_out", counters.bytesOut);
    add(group, "gateway.complaints", counters.complaints);
    return group;
}

Catalogue snapshotOf(const LiveSource& source)
{
    Catalogue catalogue;
    catalogue.groups = {systemLoad(source.procFolder), cpu(source.procFolder), memory(source.procFolder)};
    for (auto& more : {networks(source.procFolder), disks(source.procFolder)})
        catalogue.groups.insert(catalogue.groups.end(), more.begin(), more.end());
    catalogue.groups.push_back(gatewayProcess(source));
    catalogue.groups.push_back(gatewayRequests(source.counters));
    return catalogue;
}

struct LiveSession : Session {
    explicit LiveSession(const LiveSource& opened) : source(opened) {}
    Catalogue read(bool /*countsAsQuery*/) override { return snapshotOf(source); }
    const LiveSource& source;
};

std::unique_ptr<Session> LiveSource::openSession()
{
    return std::make_unique<LiveSession>(*this);
}

}  // namespace

std::unique_ptr<Source> liveSource(const std::string& procFolder, const Counters& counters)
{
    return std::make_unique<LiveSource>(procFolder, counters);
}

}  // namespace krvgw
