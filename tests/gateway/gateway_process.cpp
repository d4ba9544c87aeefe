#include "gateway_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

namespace krvgwtest {
namespace {

constexpr std::chrono::seconds PATIENCE{10};

// Looks every 2 milliseconds, as long as the patience lasts.
bool waitUntil(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

[[noreturn]] void become(const std::vector<std::string>& words, const std::filesystem::path& errors)
{
    const int file = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(file, STDERR_FILENO);
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

}  // namespace

GatewayProcess::GatewayProcess(const std::vector<std::string>& arguments)
{
    std::string name = (std::filesystem::temp_directory_path() / "krvgw-test-XXXXXX").string();
    folder = mkdtemp(name.data());
    const std::filesystem::path portFile = folder / "port";
    std::vector<std::string> words = {KRVSTATS_GATEWAY_PROGRAM, "--quiet", "--port", "0", "--port-file", portFile,
                                      "--transcript", folder / "transcript"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    pid = fork();
    if (pid == 0) become(words, folder / "errors");

    bool hasEnded = false;
    const auto isReadyOrOver = [&] {
        siginfo_t info{};
        hasEnded = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
        return hasEnded || std::filesystem::exists(portFile);
    };
    if (waitUntil(isReadyOrOver) && !hasEnded) port = std::atoi(contentOf(portFile).c_str());
}

GatewayProcess::~GatewayProcess()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    std::filesystem::remove_all(folder);
}

GatewayExit GatewayProcess::stop(int signal)
{
    kill(pid, signal);
    return waitForEnd();
}

GatewayExit GatewayProcess::waitForEnd()
{
    GatewayExit ended;
    int status = 0;
    if (waitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; })) {
        pid = -1;
        if (WIFEXITED(status)) ended.code = WEXITSTATUS(status);
    }
    ended.errors = contentOf(folder / "errors");
    return ended;
}

std::vector<std::string> GatewayProcess::transcript() const
{
    std::ifstream file(folder / "transcript");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

bool GatewayProcess::waitForLine(const std::string& line) const
{
    return waitUntil([&] {
        const auto lines = transcript();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    });
}

}  // namespace krvgwtest
