// See checks.h.
#include "checks.h"

#include <cstdlib>
#include <cstring>
#include <optional>

#include "allocations.h"
#include "reference_walk.h"
#include "result_sets.h"
#include "stapi_krv_diag.h"

namespace krvfuzz {

namespace {

using krvtest::ReplyKind;
using krvtest::WalkedSet;
using krvtest::WalkState;
using krvtest::WalkStep;
using krvtest::WalkText;

constexpr std::size_t queryTextSize = 32000;
constexpr std::size_t straddle = 4; // a terminator may stand right behind the stated length

// What a record of either kind shows.
struct Shown {
    char* queryElementPtr;
    int queryElementLen;
    int queryElementRc;
    char* idPtr;
    int idLen;
    char* valuePtr;
    int valueLen;
};

int call(KRV_ResultSetToken_t set, ReplyKind kind, bool first, Shown& shown)
{
    if (kind == ReplyKind::Ids) {
        KRV_IdData_t record = {};
        const int rc = first ? getFirstId(set, &record) : getNextId(set, &record);
        shown = {record.queryElementPtr, record.queryElementLen, record.queryElementRC, record.idPtr, record.idLen,
                 nullptr, 0};
        return rc;
    }
    KRV_StatData_t record = {};
    const int rc = first ? getFirstStat(set, &record) : getNextStat(set, &record);
    shown = {record.queryElementPtr, record.queryElementLen, record.queryElementRC, record.statIdPtr, record.statIdLen,
             record.statValuePtr, record.statValueLen};
    return rc;
}

void requireText(KRV_ResultSetToken_t set, const WalkedSet& model, const WalkText& expected, const char* ptr, int length)
{
    require(length == expected.length, "a text has the model's length");
    require(ptr == set->rsBuffPtr + expected.offset, "a text stands where the model has it");
    require(length >= 0 && expected.offset + static_cast<std::size_t>(length) <= static_cast<std::size_t>(model.stated),
            "a text lies inside the set");
    // every byte of it can be read
    require(length == 0 || std::memcmp(ptr, model.bytes.data() + expected.offset, static_cast<std::size_t>(length)) == 0,
            "a text is the set's own");
}

// Walks to the end, comparing; the ids of query elements with code 0 are collected as a query text.
void walk(KRV_ResultSetToken_t set, ReplyKind kind, const WalkedSet& model, bool startByFirst, std::string* query)
{
    WalkState state;
    state.queryIndex = 0;
    bool anyId = false;
    bool first = startByFirst;
    const int mostSteps = model.stated / 4 + 2;
    for (int steps = 0;; steps++) {
        require(steps <= mostSteps, "a walk ends");
        WalkStep expected = first ? walkFirst(model, state) : walkNext(model, state);
        Shown shown = {};
        const int rc = call(set, kind, first, shown);
        require(rc == (expected.found ? 0 : KRVSTAT_RESULT_SET_EMPTY), "a walk goes as far as the model's");
        first = false;
        if (!expected.found) break;
        requireText(set, model, expected.queryElement, shown.queryElementPtr, shown.queryElementLen);
        require(shown.queryElementRc == expected.queryElementRc, "a query element has the model's code");
        require(expected.hasElement == (shown.idPtr != nullptr), "an element is shown where the model has one");
        if (!expected.hasElement) continue;
        requireText(set, model, expected.id, shown.idPtr, shown.idLen);
        if (kind == ReplyKind::Statistics) requireText(set, model, expected.value, shown.valuePtr, shown.valueLen);
        const std::size_t length = static_cast<std::size_t>(shown.idLen);
        if (shown.queryElementRc == 0 && length < queryTextSize && query->size() + length + 1 < queryTextSize) {
            if (anyId) *query += ':';
            query->append(shown.idPtr, length);
            anyId = true;
        }
    }
    // Where nothing was found at all, the walk has not begun, and a next call looks again.
    Shown again = {};
    require(call(set, kind, false, again) == KRVSTAT_RESULT_SET_EMPTY, "the end stays the end");
}

WalkedSet modelOf(KRV_ResultSetToken_t set, ReplyKind kind)
{
    const std::size_t readable = static_cast<std::size_t>(set->rsBuffLen) + straddle;
    const unsigned char* start = reinterpret_cast<const unsigned char*>(set->rsBuffPtr);
    return {Bytes(start, start + readable), set->rsBuffLen, kind == ReplyKind::Statistics};
}

void checkIdQuery(KRV_ResultSetToken_t set, const std::string& expected)
{
    char* query = nullptr;
    const int rc = getIdQuery(set, &query);
    requireCode(expected.empty() ? KRVSTAT_ID_QUERY_FAILED : 0, rc, "getIdQuery");
    if (rc != 0) return;
    require(std::memcmp(query, expected.c_str(), expected.size() + 1) == 0, "the query text is the ids of the walk");
}

// The only terminator of the set, which a dump ends at; none if there are several, or if it lies beyond. A dump looks at
// the room behind the set, too, where another one would move its end.
std::optional<std::size_t> onlyTerminator(KRV_ResultSetToken_t set, const WalkedSet& model)
{
    const Bytes word = krvtest::terminatorBytes();
    const char* start = set->rsBuffPtr;
    const std::size_t size = static_cast<std::size_t>(model.stated) + RESULT_SET_ROOM;
    const void* found = memmem(start, size, word.data(), word.size());
    if (!found) return std::nullopt;
    const std::size_t offset = static_cast<std::size_t>(static_cast<const char*>(found) - start);
    if (offset + word.size() > model.bytes.size()) return std::nullopt;
    if (memmem(start + offset + 1, size - offset - 1, word.data(), word.size())) return std::nullopt;
    return offset;
}

void checkDump(KRV_ResultSetToken_t set, const WalkedSet& model)
{
    std::optional<std::size_t> end = onlyTerminator(set, model);
    if (!end) return; // it would show what lies behind
    CaughtTrace trace(0);
    requireCode(0, dumpResultSet(set), "dumpResultSet");
    require(trace.text() == krvtest::resultSetDump(set, *end), "the dump is the set's");
}

void checkCopy(KRV_ResultSetToken_t set, ReplyKind kind, const WalkedSet& model)
{
    KRV_ResultSetToken_t copy = nullptr;
    const int rc = copyResultSet(set, &copy);
    requireCode(0, rc, "copyResultSet");
    if (rc == 0) {
        require(copy->rsBuffLen == model.stated, "a copy has its original's length");
        require(std::memcmp(copy->rsBuffPtr, model.bytes.data(), static_cast<std::size_t>(model.stated)) == 0,
                "a copy has its original's content");
        std::string query;
        walk(copy, kind, modelOf(copy, kind), false, &query);
        checkIdQuery(copy, query);
    }
    if (copy) require(freeResultSet(&copy) == 0 && copy == nullptr, "a copy can be freed");
}

bool holdsCategory(KRV_ResultSetToken_t set, const char* category)
{
    return set->rsBuffLen >= 8 && std::strncmp(set->rsBuffPtr, category, 8) == 0;
}

} // namespace

void require(bool held, const char* what)
{
    if (held) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

void requireCode(int expected, int actual, const char* what)
{
    if (actual == expected) return;
    const bool tellsOfMemory = actual == KRVSTAT_OUT_OF_MEMORY || actual == KRVSTAT_CONNECT_FAILED
        || actual == KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    if (allocations.failed > 0 && tellsOfMemory) return;
    std::fprintf(stderr, "%s gave %d, not %d\n", what, actual, expected);
    std::abort();
}

void checkResultSet(KRV_ResultSetToken_t set, ReplyKind kind, const Bytes* content)
{
    const char* category = kind == ReplyKind::Ids ? "KRVIDSET" : "KRVSTSET";
    Shown shown = {};
    if (!holdsCategory(set, category)) {
        require(!content, "an answer has its category");
        require(call(set, kind, true, shown) == KRVSTAT_WRONG_RESULT_SET_CONTENT, "another content is refused");
        require(call(set, kind, false, shown) == KRVSTAT_WRONG_RESULT_SET_CONTENT, "another content is refused");
        return;
    }
    const ReplyKind other = kind == ReplyKind::Ids ? ReplyKind::Statistics : ReplyKind::Ids;
    require(call(set, other, true, shown) == KRVSTAT_WRONG_RESULT_SET_CONTENT, "the other kind is refused");

    if (content) {
        require(std::memcmp(set->rsBuffPtr, content->data(), content->size()) == 0, "an answer is what the reply holds");
    }
    const WalkedSet model = modelOf(set, kind);
    checkDump(set, model);
    std::string query;
    walk(set, kind, model, true, &query);
    checkIdQuery(set, query);
    checkCopy(set, kind, model);
    query.clear();
    walk(set, kind, model, true, &query);
    require(std::memcmp(set->rsBuffPtr, model.bytes.data(), model.bytes.size()) == 0, "reading changes nothing");
}

CaughtTrace::CaughtTrace(int level)
{
    require(getAPITraceLevel(&levelBefore) == 0, "the level can be asked for");
    setAPITraceLevel(0); // so that the change itself is not in the text
    stream = open_memstream(&written, &size);
    require(stream != nullptr, "there is memory for a trace");
    before = statAPITraceHandle;
    statAPITraceHandle = stream;
    require(setAPITraceLevel(level) == 0, "the level can be set");
}

CaughtTrace::~CaughtTrace()
{
    setAPITraceLevel(0);
    statAPITraceHandle = before;
    setAPITraceLevel(levelBefore);
    std::fclose(stream);
    allocations.live++; // the C library's own block
    releaseBlock(written);
}

std::string CaughtTrace::text()
{
    std::fflush(stream);
    return std::string(written, size);
}

} // namespace krvfuzz
