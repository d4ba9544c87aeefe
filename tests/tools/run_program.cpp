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

// False if the program kept a stream open for longer than we wait.
bool readToTheEnd(Pipe* output, Pipe* errors, ProgramRun* run)
{
    const auto deadline = std::chrono::steady_clock::now() + Patience;
    while (output->readEnd >= 0 || errors->readEnd >= 0) {
        const auto left = deadline - std::chrono::steady_clock::now();
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
        if (milliseconds <= 0) return false;
        pollfd ends[] = {{output->readEnd, POLLIN, 0}, {errors->readEnd, POLLIN, 0}}; // poll passes over -1
        if (poll(ends, 2, static_cast<int>(milliseconds)) <= 0) continue;
        if (ends[0].revents != 0) drain(&output->readEnd, &run->output);
        if (ends[1].revents != 0) drain(&errors->readEnd, &run->errors);
    }
    return true;
}

} // namespace

ProgramRun runProgram(const Launch& launch)
{
    Pipe output = makePipe();
    Pipe errors = makePipe();
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) becomeProgram(launch, output, errors);
    closeEnd(&output.writeEnd);
    closeEnd(&errors.writeEnd);

    ProgramRun run;
    if (!readToTheEnd(&output, &errors, &run)) {
        kill(child, SIGKILL);
        run.errors += "\n(ended by the test: it did not end by itself)\n";
    }
    closeEnd(&output.readEnd);
    closeEnd(&errors.readEnd);

    int status = 0;
    if (waitpid(child, &status, 0) != child) throw std::runtime_error("waitpid failed");
    if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
    return run;
}

Launch krvstatLaunch(std::vector<std::string> arguments)
{
    Launch launch;
    launch.program = KRVSTAT_PROGRAM;
    launch.arguments = std::move(arguments);
    launch.environment = {{"LC_ALL", "C"}};
    return launch;
}

ProgramRun runKrvstat(std::vector<std::string> arguments)
{
    return runProgram(krvstatLaunch(std::move(arguments)));
}
