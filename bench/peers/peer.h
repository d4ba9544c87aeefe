// What the comparisons with other programs have in common: the same names and values, a server on a port of its own,
// and the library as their first contender. Client and server share a core; what counts is the client's processor time.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "answers.h"
#include "child_process.h"
#include "rounds.h"

namespace krvpeer {

constexpr int CORE = 0;

// Makes the contenders that fetch n statistics; what they use lives as long as they do.
using MakeContenders = std::function<std::vector<krvbench::Contender>(std::size_t n)>;

// The body of a comparing program: PROGRAM ROUNDS MILLISECONDS N... Returns its exit code.
int comparePeer(int argc, char** argv, const std::function<MakeContenders()>& start);

// A port of 127.0.0.1 that was free a moment ago.
int freePort(int socketType);

// Waits, within bounds, until somebody listens there.
void awaitListener(int port);

// Counts what a client was shown, in a way that the compiler cannot leave out.
class Shown {
public:
    void look(const char* name, std::size_t nameLength, const char* value, std::size_t valueLength)
    {
        asm volatile("" : : "r"(name), "r"(nameLength), "r"(value), "r"(valueLength) : "memory");
        ++count;
    }
    // Throws unless there were n.
    void expect(std::size_t n) const;

private:
    std::size_t count = 0;
};

} // namespace krvpeer
