// A server that a program of this folder starts for itself; it ends with this object.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace krvbench {

class ChildProcess {
public:
    // `core` is the processor that it may run on, -1: any. What a silent one writes goes nowhere. Throws if it cannot
    // be started.
    explicit ChildProcess(std::vector<std::string> words, int core = -1, bool isSilent = false);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

private:
    pid_t child = -1;
};

// A socket that listens on a free port of 127.0.0.1; a child inherits it.
int listenOnLoopback(int* port);

} // namespace krvbench
