// What a command that goes on and on waits for: time, answers, signals, and the end of whoever reads its output.
#ifndef KRVSTAT_EVENTS_H
#define KRVSTAT_EVENTS_H

#include <chrono>

using SteadyTime = std::chrono::steady_clock::time_point;

enum class Event {
    Time,        // the moment has come
    Wake,        // wakeWaiter was called
    Input,       // there is something to read from standard input
    Resized,     // SIGWINCH
    Interrupted, // SIGINT
    Terminated,  // SIGTERM or SIGHUP
    ReaderGone   // nobody reads standard output any more, or the terminal is gone
};

// To be called before threads are started: they then leave signals to the waiting thread.
void startEvents();

// Threads may call it; one waitForEvent returns for any number of calls.
void wakeWaiter();

// isReading: standard input counts, too.
Event waitForEvent(SteadyTime until, bool isReading = false);

// Which signal it was, after Event::Terminated.
int terminatingSignal();

#endif
