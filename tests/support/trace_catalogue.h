// Every trace point of the library: its number, kind and words.
//
// Words that the contract fixes stand here to the letter; the others are as the library writes them, in the manner of
// their neighbours. Some numbers stand for several lines, which then have a row each.
#ifndef TESTS_SUPPORT_TRACE_CATALOGUE_H
#define TESTS_SUPPORT_TRACE_CATALOGUE_H

#include <string>
#include <vector>

#include "trace_capture.h"

namespace krvtest {

struct TracePoint {
    int number;
    const char* kind;
    int level;            // the least one at which the line is written
    const char* function; // that writes it
    bool fixed;           // the contract fixes the words
    const char* message;  // printf format, without its newline
};

struct ModuleBlock {
    const char* module;
    int first;
    int last;
};

const std::vector<TracePoint>& traceCatalogue();
const std::vector<ModuleBlock>& moduleBlocks();

// Whether the message can have come from the point's format.
bool messageMatches(const TracePoint& point, const std::string& message);

// The row that a line came from: number, kind and words; nullptr if there is none.
const TracePoint* findTracePoint(const TraceLine& line);

// The module that the message names.
std::string moduleOf(const TracePoint& point);

} // namespace krvtest

#endif
