// Puts together the data of invoke replies, field by field, in every form that a gateway may choose for it.
//
// A reply is described by plain records; encodeReply turns them into bytes. Fields that nobody interprets are filled
// with bytes of a seed, block types and markers among them, so that a parser that looks where it must not is caught.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "wire_bytes.h"

namespace krvtest {

enum class ReplyKind { Statistics, Ids };

constexpr unsigned char blockLong = 0x7A;  // "z": a length of 4 bytes, of which 2 count
constexpr unsigned char blockShort = 0x77; // "w": a length of 1 byte

// A piece of a value behind its element's own block. form is what the piece is laid out as; typeByte what stands in
// front of it, which is the same except behind a first short piece, where it is passed over unread.
struct ValueSegment {
    unsigned char form = blockLong;
    std::string bytes;
    int typeByte = -1; // -1: form
};

struct StatElement {
    std::string id;
    std::string firstPart;                   // what the element's own block carries; the whole value if it fits
    std::vector<ValueSegment> continuation;  // chunked only
    bool chunked = false;
    unsigned char plainType = blockShort;    // any but blockLong
    int statedValueLength = -1;              // -1: of all parts together
    int statedChunkLength = -1;              // -1: id, first part and the two lengths
};

struct Response {
    std::string firstSkipped = "a";
    std::string secondSkipped = "bc";
    unsigned char headType = blockShort;
    std::string queryElement;
    std::int32_t rc = 0;
    std::vector<StatElement> statistics;
    std::vector<std::string> ids;
    std::string bodySkipped = "d"; // statistics only
    bool counted = true;           // else statedCount is written
    std::int32_t statedCount = 0;
};

struct Reply {
    ReplyKind kind = ReplyKind::Statistics;
    int arrayFlag = 1;
    bool counted = true; // else statedCount is written
    std::int32_t statedCount = 0;
    std::vector<Response> responses;
    std::uint32_t fillerSeed = 1;
};

Bytes encodeReply(const Reply& reply);

StatElement plainElement(const std::string& id, const std::string& value);
StatElement chunkedElement(const std::string& id, const std::string& firstPart,
                           const std::vector<ValueSegment>& continuation);
Response statsResponse(const std::string& queryElement, std::int32_t rc, const std::vector<StatElement>& statistics);
Response idsResponse(const std::string& queryElement, std::int32_t rc, const std::vector<std::string>& ids);

// `length` letters, different along their way, so that bytes in the wrong place show.
std::string letters(std::size_t length, unsigned int start = 0);

// What generated replies are made of.
struct ReplyShape {
    int mostResponses = 5;
    int mostElements = 6;
    int mostLength = 200; // bytes of a single text
};

// A reply whose lengths and counts are right: every text whole, every value complete.
Reply randomReply(std::mt19937& random, ReplyKind kind, const ReplyShape& shape);

} // namespace krvtest
