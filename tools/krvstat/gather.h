// One conversation with a gateway, and its answer as records of our own.
#ifndef KRVSTAT_GATHER_H
#define KRVSTAT_GATHER_H

#include "target.h"

#include <string>
#include <vector>

enum class Question { Groups, Ids, Statistics };

struct Record {
    std::string id;
    std::string value; // of a statistic; empty for groups and ids
};

struct RefusedElement {
    std::string element; // of the request; empty: the request as a whole
    int code;            // the gateway's own, negative
};

// In the order of the gateway's answer. All texts are copies.
struct Answer {
    std::vector<Record> records;
    std::vector<RefusedElement> refused;
    std::vector<std::string> empty; // elements of the request that were answered with nothing; as in RefusedElement
};

enum class Stage { Connecting, Asking };

// The library's code, and how far the conversation had come.
struct GatherResult {
    int code;
    Stage stage;
};

// Connects, asks for what is named (none: everything; ignored for groups), says goodbye. No name may occur twice. The
// answer is complete if the result's code is 0.
GatherResult gather(const Target& target, Question question, const std::vector<std::string>& names, Answer* answer);

// The names as the list that a request carries.
std::string nameList(const std::vector<std::string>& names);

#endif
