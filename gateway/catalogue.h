// What the gateway serves: groups of statistics, read at one moment; and how a query string selects from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace krvgw {

// A text of the wire has a signed 16-bit length.
constexpr std::size_t LONGEST_TEXT = 32767;

// Code of a response to an id that is neither a group nor a statistic.
constexpr std::int32_t UNKNOWN_ID_RC = -1001;

// The sizes that a statistic's bytes are cut into, where they shall not be cut as Java would.
struct BlockCut {
    bool isLong;                 // 0x7A with a 4-byte length, else 0x77 with a 1-byte length
    std::size_t size;
};

struct Statistic {
    std::string id;
    std::string value;
    std::int32_t rc = 0;         // of a response to this id; negative: no statistic in it
    std::vector<BlockCut> cuts;
};

struct Group {
    std::string id;
    std::vector<Statistic> statistics;
    std::int32_t rc = 0;         // of a response to this id; negative: no statistics in it
};

// When a result is sent as an array of responses: only where there are several, or also for a single one.
enum class ArrayForm { WhenSeveral, Always };

struct Catalogue {
    std::vector<Group> groups;
    std::int32_t unknownRc = UNKNOWN_ID_RC;
    std::int32_t everythingRc = 0;       // of the response to the empty query string
    ArrayForm arrayForm = ArrayForm::WhenSeveral;
};

enum class Operation { GetStats, StatIds, ResourceGroups };

// A response to one element of a query. Its elements are statistics, or ids with no values.
struct Response {
    std::string queryElement;
    std::int32_t rc = 0;
    std::vector<Statistic> elements;
};

struct Result {
    bool isArray = false;
    std::vector<Response> responses;
};

// The empty query string asks for everything in one response; otherwise each id between colons has a response.
Result answerQuery(const Catalogue& catalogue, Operation operation, std::string_view queryString);

// The ids that occur twice, or hold a colon, or are too long for the wire: the first complaint, empty if none.
std::string faultOfCatalogue(const Catalogue& catalogue);

// One connection's view of what is served. Belongs to the thread of its connection.
struct Session {
    virtual ~Session() = default;
    // Called once for each operation; `countsAsQuery` is true for those that read values.
    virtual Catalogue read(bool countsAsQuery) = 0;
};

// Where statistics come from. Sessions are opened from several threads at once.
struct Source {
    virtual ~Source() = default;
    virtual std::unique_ptr<Session> openSession() = 0;
};

}  // namespace krvgw
