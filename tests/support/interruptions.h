// Interrupts a thread of this process in its blocking calls, as often as a test wants and without luck.
//
// Made by the thread that will be interrupted. interruptSleep, called by another thread, waits until that thread sleeps
// in the kernel, sends it a signal whose handler lets calls end with EINTR, and waits until the handler has run.
#pragma once

#include <pthread.h>
#include <signal.h>
#include <sys/types.h>

namespace krvtest {

class Interruptions {
public:
    Interruptions();
    ~Interruptions();
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

    // False if the thread did not go to sleep in time.
    bool interruptSleep(int times);

    // Waits until the thread sleeps, without a signal.
    bool awaitSleep() const;

    // Handler runs so far.
    int count() const;

private:
    pthread_t thread_;
    pid_t taskId_;
    struct sigaction before_;
};

}  // namespace krvtest
