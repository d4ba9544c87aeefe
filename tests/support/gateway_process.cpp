// See gateway_process.h.
#include "gateway_process.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace krvtest {

const char* const smallScenario = "protocol: \"1.1.0\"\n"
                                  "groups:\n"
                                  "  - id: alpha\n"
                                  "    statistics:\n"
                                  "      - {id: alpha.one, value: \"1\"}\n"
                                  "      - {id: alpha.long, text: {repeat: \"0123456789\", length: 3000}}\n"
                                  "  - id: beta\n"
                                  "    statistics:\n"
                                  "      - {id: beta.one, value: \"two\"}\n";

namespace {

std::string gatewayProgram()
{
    const char* named = std::getenv("KRVSTATS_GATEWAY_PROGRAM");
    return named && *named ? named : KRVSTATS_GATEWAY_PROGRAM;
}

// Looks again and again for up to 20 seconds.
bool soon(const std::function<bool()>& happened)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!happened()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace

GatewayProcess::GatewayProcess(const std::vector<std::string>& misbehaviours, const std::string& scenario)
{
    std::ofstream(scratch.path("scenario.yaml")) << scenario;
    std::vector<std::string> words = {gatewayProgram(), "--port", "0", "--port-file", scratch.path("port"), "--transcript",
        scratch.path("transcript"), "--scenario", scratch.path("scenario.yaml"), "--quiet"};
    for (const std::string& misbehaviour : misbehaviours) {
        words.push_back("--misbehave");
        words.push_back(misbehaviour);
    }
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (posix_spawn(&child, words[0].c_str(), nullptr, nullptr, arguments.data(), environ) != 0)
        throw std::runtime_error("cannot start the gateway " + words[0]);

    bool ready = soon([&] {
        std::ifstream file(scratch.path("port"));
        if (file >> portNumber) return true;
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            child = -1;
            throw std::runtime_error("the gateway ended while it started");
        }
        return false;
    });
    if (!ready) {
        stop();
        throw std::runtime_error("the gateway is not ready");
    }
}

GatewayProcess::~GatewayProcess()
{
    stop();
}

int GatewayProcess::stop()
{
    if (child < 0) return -1;
    int status = 0;
    kill(child, SIGTERM);
    if (!soon([&] { return waitpid(child, &status, WNOHANG) == child; })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> GatewayProcess::transcript() const
{
    return splitLines(readWholeFile(scratch.path("transcript")));
}

std::vector<std::string> GatewayProcess::complaints() const
{
    std::vector<std::string> found;
    for (const std::string& line : transcript())
        if (line.find(" !!! ") != std::string::npos) found.push_back(line);
    return found;
}

bool GatewayProcess::awaitTranscript(const std::string& text) const
{
    return soon([&] {
        for (const std::string& line : transcript())
            if (line.find(text) != std::string::npos) return true;
        return false;
    });
}

} // namespace krvtest
