// What a gateway told at one moment, as records of our own: all texts are copies.
#ifndef KRVSTAT_SAMPLE_H
#define KRVSTAT_SAMPLE_H

#include <chrono>
#include <string>
#include <vector>

enum class Question { Groups, Ids, Statistics };

struct Record {
    std::string id;
    std::string value; // of a statistic; empty for groups and ids
    std::string group; // that the statistic belongs to; empty if that is not known
};

struct RefusedElement {
    std::string element;    // of the request; empty: the request as a whole
    int code;               // the gateway's own, negative
    bool isMissing = false; // the gateway has nothing of that name
    std::string suggestion; // a name that it has and that looks like this one; empty: none
};

// In the order of the gateway's answer.
struct Sample {
    std::chrono::system_clock::time_point time{}; // of receipt, for people
    std::chrono::nanoseconds monotonic{};         // of receipt, to compute with
    std::vector<Record> records;
    std::vector<RefusedElement> refused;
    std::vector<std::string> empty; // elements of the request that were answered with nothing; as in RefusedElement
};

#endif
