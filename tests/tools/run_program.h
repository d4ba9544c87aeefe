// Runs a program to its end, as a shell would, and tells what came of it.
#ifndef TESTS_TOOLS_RUN_PROGRAM_H
#define TESTS_TOOLS_RUN_PROGRAM_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

constexpr int Captured = -1;
constexpr int Closed = -2;

struct Launch {
    std::string program; // a path
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>> environment; // set beside what the test itself has
    int standardOutput = Captured; // or Closed, or a descriptor, which stays the caller's
    int standardError = Captured;
};

struct ProgramRun {
    int exitCode = -1; // -1: ended by a signal, or by us after 60 seconds
    int signal = 0;
    std::string output; // empty if not captured
    std::string errors;
};

// A program that goes on while the test does something.
class RunningProgram {
public:
    explicit RunningProgram(const Launch& launch);
    ~RunningProgram(); // kills it, if it was not finished
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    // Wait until it has written this text, 60 seconds at most; false if it did not.
    bool awaitOutput(const std::string& text);
    bool awaitErrors(const std::string& text);

    const ProgramRun& soFar() const
    {
        return run;
    }
    pid_t pid() const
    {
        return child;
    }
    void send(int signal) const;

    // Waits for its end.
    ProgramRun finish();

private:
    bool readUntil(const std::function<bool()>& isEnough);

    pid_t child = -1;
    int outputEnd = -1;
    int errorsEnd = -1;
    ProgramRun run;
};

ProgramRun runProgram(const Launch& launch);

// krvstat with these arguments, in the C locale.
Launch krvstatLaunch(std::vector<std::string> arguments);
ProgramRun runKrvstat(std::vector<std::string> arguments);

#endif
