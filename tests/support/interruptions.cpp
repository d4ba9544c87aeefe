#include "interruptions.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

namespace krvtest {

namespace {

constexpr int InterruptingSignal = SIGUSR1;
constexpr std::chrono::seconds Patience{30};
constexpr std::chrono::seconds UntilTheNextTry{1};

std::atomic<int> handlerRuns{0};
static_assert(std::atomic<int>::is_always_lock_free);

void countRun(int)
{
    handlerRuns.fetch_add(1);
}

bool sleeps(pid_t taskId)
{
    std::string path = "/proc/self/task/" + std::to_string(taskId) + "/stat";
    std::FILE* file = std::fopen(path.c_str(), "re");
    if (!file) throw std::runtime_error("cannot read " + path);
    char line[512] = "";
    const char* got = std::fgets(line, sizeof line, file);
    std::fclose(file);
    const char* name = got ? std::strrchr(line, ')') : nullptr;  // "id (name) state ..."
    return name && name[1] == ' ' && name[2] == 'S';
}

}  // namespace

Interruptions::Interruptions() : thread_(pthread_self()), taskId_(static_cast<pid_t>(syscall(SYS_gettid)))
{
    handlerRuns = 0;
    struct sigaction action {};
    action.sa_handler = countRun;  // no SA_RESTART: interrupted calls end with EINTR
    sigemptyset(&action.sa_mask);
    if (sigaction(InterruptingSignal, &action, &before_) != 0) throw std::runtime_error("sigaction");
}

Interruptions::~Interruptions()
{
    sigaction(InterruptingSignal, &before_, nullptr);
}

bool Interruptions::awaitSleep() const
{
    auto deadline = std::chrono::steady_clock::now() + Patience;
    while (!sleeps(taskId_)) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

bool Interruptions::interruptSleep(int times)
{
    for (int i = 0; i < times; ++i) {
        if (!awaitSleep()) return false;
        int runsBefore = handlerRuns;
        const auto begin = std::chrono::steady_clock::now();
        // ThreadSanitizer holds back what comes between two calls until the next one ends: then it takes another signal.
        for (auto nextTry = begin; handlerRuns == runsBefore; std::this_thread::yield()) {
            const auto now = std::chrono::steady_clock::now();
            if (now > begin + Patience) return false;
            if (now < nextTry) continue;
            if (pthread_kill(thread_, InterruptingSignal) != 0) return false;
            nextTry = now + UntilTheNextTry;
        }
    }
    return awaitSleep();
}

int Interruptions::count() const
{
    return handlerRuns;
}

}  // namespace krvtest
