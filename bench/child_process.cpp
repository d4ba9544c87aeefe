// See child_process.h.
#include "child_process.h"

#include <stdexcept>

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace krvbench {

ChildProcess::ChildProcess(std::vector<std::string> words, int core, bool isSilent)
{
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (isSilent) {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("cannot start " + words[0]);

    if (core >= 0) {
        cpu_set_t cores;
        CPU_ZERO(&cores);
        CPU_SET(static_cast<unsigned int>(core), &cores);
        sched_setaffinity(child, sizeof cores, &cores);
    }
}

ChildProcess::~ChildProcess()
{
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

int listenOnLoopback(int* port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0 || getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no listening socket");
    *port = ntohs(address.sin_port);
    return listener;
}

} // namespace krvbench
