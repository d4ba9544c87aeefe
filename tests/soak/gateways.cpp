// See gateways.h.
#include "gateways.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace krvsoak {

namespace {

constexpr int misbehavedConnections = 400;   // behind them a gateway behaves; it is replaced long before
constexpr std::chrono::seconds patience{60}; // for one to start on a busy machine

std::string gatewayProgram()
{
    const char* named = std::getenv("KRVSTATS_GATEWAY_PROGRAM");
    return named && *named ? named : KRVSTATS_GATEWAY_PROGRAM;
}

// The port that it writes down once it listens.
int portWhenReady(pid_t process, const std::string& portFile)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < end) {
        int port = 0;
        if (std::ifstream(portFile) >> port) return port;
        if (waitpid(process, nullptr, WNOHANG) == process) throw std::runtime_error("a gateway ended while it started");
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    throw std::runtime_error("a gateway is not ready");
}

// True if it was there until it was told to end.
bool stop(pid_t process)
{
    int status = 0;
    kill(process, SIGTERM);
    waitpid(process, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

Gateways::Gateways(int count, std::uint64_t seed) : random(seed)
{
    for (int i = 0; i < count; i++) processes.push_back(start());
}

Gateways::~Gateways()
{
    for (const Process& each : processes) stop(each.id);
}

Gateways::Process Gateways::start()
{
    const std::string name = "soak-" + std::to_string(started++);
    const auto served = std::make_shared<const Served>(makeServed(random, name, misbehavedConnections));
    const std::string scenario = scratch.path(name + ".yaml");
    const std::string portFile = scratch.path(name + ".port");
    {
        std::ofstream out(scenario);
        writeScenario(out, *served);
    }
    std::vector<std::string> words = {gatewayProgram(), "--port", "0", "--port-file", portFile, "--scenario", scenario, "--quiet"};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    Process process;
    posix_spawn_file_actions_t actions; // connections of this process are no business of a gateway
    posix_spawn_file_actions_init(&actions);
    // It complains of clients that leave in the middle, and of what follows from its own misbehaviour.
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    const int rc = posix_spawn(&process.id, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) throw std::runtime_error("cannot start " + words[0]);
    process.gateway = {portWhenReady(process.id, portFile), served};
    unlink(scenario.c_str());
    unlink(portFile.c_str());
    return process;
}

Gateway Gateways::any(std::mt19937_64& chooser)
{
    const std::lock_guard held(changes);
    return processes[std::uniform_int_distribution<std::size_t>(0, processes.size() - 1)(chooser)].gateway;
}

bool Gateways::replaceOne()
{
    const Process fresh = start();
    pid_t old;
    {
        const std::lock_guard held(changes);
        old = processes[oldest].id;
        processes[oldest] = fresh;
        oldest = (oldest + 1) % processes.size();
    }
    return stop(old);
}

} // namespace krvsoak
