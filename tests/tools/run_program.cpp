#include "run_program.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds Patience{60};

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
};

Pipe makePipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    return {ends[0], ends[1]};
}

void closeEnd(int* descriptor)
{
    if (*descriptor >= 0) close(*descriptor);
    *descriptor = -1;
}

void connectDescriptor(int wanted, const Pipe& captured, int place)
{
    if (wanted == Closed) {
        close(place);
        return;
    }
    dup2(wanted == Captured ? captured.writeEnd : wanted, place);
}

[[noreturn]] void becomeProgram(const Launch& launch, const Pipe& output, const Pipe& errors)
{
    connectDescriptor(launch.standardOutput, output, STDOUT_FILENO);
    connectDescriptor(launch.standardError, errors, STDERR_FILENO);
    for (const auto& [name, value] : launch.environment) setenv(name.c_str(), value.c_str(), 1);

    std::vector<char*> arguments{const_cast<char*>(launch.program.c_str())};
    for (const std::string& argument : launch.arguments) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execv(launch.program.c_str(), arguments.data());
    _exit(127);
}

// Reads what is there. At the end of the stream the end is closed.
void drain(int* readEnd, std::string* text)
{
    std::array<char, 65536> part{};
    const ssize_t got = read(*readEnd, part.data(), part.size());
    if (got > 0) {
        text->append(part.data(), static_cast<std::size_t>(got));
    } else {
        closeEnd(readEnd);
    }
}

} // namespace

RunningProgram::RunningProgram(const Launch& launch)
{
    Pipe output = makePipe();
    Pipe errors = makePipe();
    child = fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) becomeProgram(launch, output, errors);
    closeEnd(&output.writeEnd);
    closeEnd(&errors.writeEnd);
    outputEnd = output.readEnd;
    errorsEnd = errors.readEnd;
}

RunningProgram::~RunningProgram()
{
    if (child >= 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    closeEnd(&outputEnd);
    closeEnd(&errorsEnd);
}

bool RunningProgram::readUntil(const std::function<bool()>& isEnough)
{
    const auto deadline = std::chrono::steady_clock::now() + Patience;
    while (!isEnough()) {
        if (outputEnd < 0 && errorsEnd < 0) return false;
        const auto left = deadline - std::chrono::steady_clock::now();
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
        if (milliseconds <= 0) return false;
        pollfd ends[] = {{outputEnd, POLLIN, 0}, {errorsEnd, POLLIN, 0}}; // poll passes over -1
        if (poll(ends, 2, static_cast<int>(milliseconds)) <= 0) continue;
        if (ends[0].revents != 0) drain(&outputEnd, &run.output);
        if (ends[1].revents != 0) drain(&errorsEnd, &run.errors);
    }
    return true;
}

bool RunningProgram::awaitOutput(const std::string& text)
{
    return readUntil([&] { return run.output.find(text) != std::string::npos; });
}

bool RunningProgram::awaitErrors(const std::string& text)
{
    return readUntil([&] { return run.errors.find(text) != std::string::npos; });
}

void RunningProgram::send(int signal) const
{
    kill(child, signal);
}

ProgramRun RunningProgram::finish()
{
    readUntil([&] { return outputEnd < 0 && errorsEnd < 0; });
    if (outputEnd >= 0 || errorsEnd >= 0) {
        kill(child, SIGKILL);
        run.errors += "\n(ended by the test: it did not end by itself)\n";
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child) throw std::runtime_error("waitpid failed");
    child = -1;
    if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
    return run;
}

ProgramRun runProgram(const Launch& launch)
{
    return RunningProgram(launch).finish();
}

Launch krvstatLaunch(std::vector<std::string> arguments)
{
    Launch launch;
    launch.program = KRVSTAT_PROGRAM;
    launch.arguments = std::move(arguments);
    // what the tester has in the environment and at home must not count; an empty variable is as good as none
    launch.environment = {{"LC_ALL", "C"}, {"HOME", ""}, {"XDG_CONFIG_HOME", ""}, {"KRVSTAT_TARGET", ""},
        {"KRVSTAT_TIMEOUT", ""}, {"KRVSTAT_CONFIG", ""}, {"KRVSTAT_CONTEXT", ""}, {"KRVSTAT_OUTPUT", ""},
        {"NO_COLOR", ""}, {"CLICOLOR_FORCE", ""}, {"TERM", "dumb"}};
    return launch;
}

ProgramRun runKrvstat(std::vector<std::string> arguments)
{
    return runProgram(krvstatLaunch(std::move(arguments)));
}
