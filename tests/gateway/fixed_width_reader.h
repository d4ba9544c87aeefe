// Reads the result of an operation as a client does: by fixed widths, without understanding the stream.
#pragma once

#include "wire_bytes.h"

namespace krvgwtest {

using krvtest::Bytes;

struct ReadElement {
    std::string id;
    std::string value;           // empty for ids
    bool operator==(const ReadElement&) const = default;
};

struct ReadResponse {
    std::string queryElement;
    std::int32_t rc = 0;
    std::vector<ReadElement> elements;
    bool operator==(const ReadResponse&) const = default;
};

struct ReadResult {
    bool isArray = false;
    std::vector<ReadResponse> responses;
    bool isWhole = false;        // every field lay inside, and nothing was left over
};

enum class ResultKind { Stats, Ids };

// `data` begins with the array flag.
ReadResult readResult(const Bytes& data, ResultKind kind);

}  // namespace krvgwtest
