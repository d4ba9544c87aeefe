#include "events.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Of the process, as signals are.
volatile std::sig_atomic_t wasInterrupted = 0;
volatile std::sig_atomic_t terminatedBy = 0;
volatile std::sig_atomic_t wasResized = 0;
int wakeDescriptor = -1;

extern "C" void noteSignal(int number)
{
    if (number == SIGINT) wasInterrupted = 1;
    else if (number == SIGWINCH) wasResized = 1;
    else terminatedBy = number;
}

void catchSignal(int number)
{
    struct sigaction action {};
    action.sa_handler = noteSignal;
    sigaction(number, &action, nullptr);
}

// A pipe tells when its reader has gone; a file or a terminal does not.
bool isPipe(int descriptor)
{
    struct stat status {};
    return fstat(descriptor, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

sigset_t ourSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) sigaddset(&set, number);
    return set;
}

timespec timeLeft(SteadyTime until)
{
    const auto left = std::max(until - std::chrono::steady_clock::now(), SteadyTime::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timespec time{};
    time.tv_sec = static_cast<std::time_t>(seconds.count());
    time.tv_nsec = static_cast<long>(std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds).count());
    return time;
}

bool takeSignal(Event* event)
{
    if (wasInterrupted != 0) {
        wasInterrupted = 0;
        *event = Event::Interrupted;
        return true;
    }
    if (terminatedBy != 0) {
        *event = Event::Terminated;
        return true;
    }
    if (wasResized != 0) {
        wasResized = 0;
        *event = Event::Resized;
        return true;
    }
    return false;
}

} // namespace

void startEvents()
{
    wakeDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeDescriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    const sigset_t set = ourSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr); // let in by ppoll alone
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) catchSignal(number);
}

void wakeWaiter()
{
    const std::uint64_t one = 1;
    static_cast<void>(!write(wakeDescriptor, &one, sizeof one)); // it fails only where a wake is pending already
}

Event waitForEvent(SteadyTime until, bool isReading)
{
    const int output = isPipe(STDOUT_FILENO) ? STDOUT_FILENO : -1; // ppoll passes over -1
    const int input = isReading ? STDIN_FILENO : -1;
    sigset_t unblocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &unblocked);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) sigdelset(&unblocked, number);

    while (true) {
        pollfd descriptors[] = {{wakeDescriptor, POLLIN, 0}, {output, 0, 0}, {input, POLLIN, 0}};
        const timespec left = timeLeft(until);
        const int count = ppoll(descriptors, 3, &left, &unblocked);
        Event event{};
        if (takeSignal(&event)) return event;
        if (count == 0) return Event::Time;
        if (count < 0) continue; // a signal that says nothing
        if (descriptors[1].revents != 0 || (descriptors[2].revents & POLLHUP) != 0) return Event::ReaderGone;
        if (descriptors[0].revents != 0) {
            std::uint64_t calls = 0;
            static_cast<void>(!read(wakeDescriptor, &calls, sizeof calls));
            return Event::Wake;
        }
        if (descriptors[2].revents != 0) return Event::Input;
    }
}

int terminatingSignal()
{
    return terminatedBy;
}
