// Result sets made by hand: their bytes, tokens that hold them, and the storage dump that they must give.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "reference_decoder.h"
#include "stapi_krv_resultsetbuffer.h"

namespace krvtest {

// One query element of a set. In an id set the elements' values are not there.
struct SetElement {
    std::string id;
    std::string value = {};
};

struct SetQuery {
    std::string queryElement;
    std::int32_t rc = 0;
    std::vector<SetElement> elements = {};
    bool counted = true; // else statedCount is written
    std::int32_t statedCount = 0;
};

// Category, number of queries, queries, terminator.
Bytes idSet(const std::vector<SetQuery>& queries);
Bytes statSet(const std::vector<SetQuery>& queries);

// A user-owned set in a block of its own, of exactly `statedLength` bytes and the room behind it: a read past them is
// seen by a memory checker. Room that `content` does not reach is zero.
class HeldSet {
public:
    static constexpr int ofContent = -1;

    explicit HeldSet(const Bytes& content, int statedLength = ofContent, std::size_t room = RESULT_SET_ROOM,
                     int owner = RESULT_SET_OWNER_USER);
    ~HeldSet();
    HeldSet(const HeldSet&) = delete;
    HeldSet& operator=(const HeldSet&) = delete;

    char* block() const { return token->rsBuffPtr; }

    KRV_ResultSetToken_t token = nullptr;
};


// A dump of a set's buffer up to its terminator.
std::string setDump(const void* start, std::size_t terminatorAt);

// What dumpResultSetInternal writes for this token, whose terminator stands at this offset.
std::string resultSetDump(const Internal_ResultSetToken_t* token, std::size_t terminatorAt);

// The token's record, byte by byte.
Bytes recordBytes(const Internal_ResultSetToken_t* token);

} // namespace krvtest
