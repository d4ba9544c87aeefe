// What every input must hold, whatever a gateway sends. A check that fails says so and aborts, as a fuzzer wants it.
#pragma once

#include <cstdio>
#include <string>

#include "krvstats.h"
#include "reference_decoder.h"

namespace krvfuzz {

using krvtest::Bytes;

void require(bool held, const char* what);

// The code of a call: the expected one, or, only where an allocation was made to fail, one of those that tell of it.
void requireCode(int expected, int actual, const char* what);

// Everything that reads a result set, over this one: iteration from the start and by next calls alone, the query text,
// the copy, the dump. Each step is compared with a model that never looks outside; `content`, where it is given, is what
// the set must hold.
void checkResultSet(KRV_ResultSetToken_t set, krvtest::ReplyKind kind, const Bytes* content);

// Catches what the library writes to its trace for as long as it lives.
class CaughtTrace {
public:
    explicit CaughtTrace(int level);
    ~CaughtTrace();
    CaughtTrace(const CaughtTrace&) = delete;
    CaughtTrace& operator=(const CaughtTrace&) = delete;

    std::string text();

private:
    FILE* stream = nullptr;
    FILE* before = nullptr;
    char* written = nullptr;
    std::size_t size = 0;
    int levelBefore = 0;
};

} // namespace krvfuzz
