// A question to one gateway with everything around it: connect, ask, find out about refused names.
#ifndef KRVSTAT_INQUIRY_H
#define KRVSTAT_INQUIRY_H

#include "failures.h"
#include "session.h"

#include <optional>
#include <string>
#include <vector>

struct TimeLimits {
    Milliseconds connect{5000}; // connecting, with looking up the name and greeting
    Milliseconds whole{30000};  // everything that a command does with one target; of a watch: one sample
};

struct Inquiry {
    Question question = Question::Statistics;
    std::vector<std::string> names; // none: everything
    bool needsGroups = false;       // records of statistics shall have their groups
};

// What one target came to.
struct TargetAnswer {
    std::string target;             // HOST:PORT
    std::optional<Failure> failure; // then there is no sample
    Sample sample;
    std::string connection; // that was made for it, in words; empty: none was made
};

// "connected to HOST:PORT at ADDRESS, protocol VERSION"
std::string describeConnection(const Target& target, const Session& session);

// On a session that is open. A session that has not learned its groups does so first, if they are needed.
CallResult inquire(Session* session, const Inquiry& inquiry, Deadline deadline, Sample* sample);

// The whole conversation.
TargetAnswer inquireOnce(const Target& target, const Inquiry& inquiry, const TimeLimits& limits);

// All targets at the same time, each on a thread of its own; answers in the order of the targets.
std::vector<TargetAnswer> inquireAll(
    const std::vector<Target>& targets, const Inquiry& inquiry, const TimeLimits& limits);

#endif
