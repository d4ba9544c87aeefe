// Runs a program to its end, as a shell would, and tells what came of it.
#ifndef TESTS_TOOLS_RUN_PROGRAM_H
#define TESTS_TOOLS_RUN_PROGRAM_H

#include <string>
#include <utility>
#include <vector>

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

ProgramRun runProgram(const Launch& launch);

// krvstat with these arguments, in the C locale.
Launch krvstatLaunch(std::vector<std::string> arguments);
ProgramRun runKrvstat(std::vector<std::string> arguments);

#endif
