// The query text made from the ids of a result set.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "krvstats.h"
#include "result_sets.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_claims.h"
#include "watched_allocator.h"

namespace krvtest {

namespace {

constexpr std::size_t areaSize = 32000;

// The text, or the code in brackets.
std::string queryOf(HeldSet& set)
{
    char* text = nullptr;
    int rc = getIdQuery(set.token, &text);
    if (rc != 0) return text == nullptr ? "(" + std::to_string(rc) + ")" : "an output pointer was written";
    EXPECT_EQ(set.token->validatedQueryPtr, text);
    return text;
}

std::string queryOf(const Bytes& content)
{
    HeldSet set(content);
    return queryOf(set);
}

int exitGoodCount(const TraceFile& trace, const HeldSet& set, int rc)
{
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ("EXIT", lines.back().kind);
    for (int count = 0; count < 100; count++)
        if (lines.back().message == "API.getIdQuery(rsPtr=" + pointerText(set.token) + ") goodIdCount="
                + std::to_string(count) + " rc=" + std::to_string(rc))
            return count;
    ADD_FAILURE() << lines.back().text;
    return -1;
}

template <typename Call> int inChild(Call call)
{
    pid_t child = fork();
    if (child == 0) _exit(-call());
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return 1;
    return -WEXITSTATUS(status);
}

} // namespace

TEST(GetIdQuery, JoinsIdsByColons)
{
    EXPECT_EQ("17:18:19", queryOf(idSet({{"g", 0, {{"17"}, {"18"}, {"19"}}}})));
    EXPECT_EQ("17:18", queryOf(idSet({{"g", 0, {{"17"}}}, {"h", 0, {{"18"}}}})));
    EXPECT_EQ("17", queryOf(idSet({{"g", 0, {{"17"}}}})));
}

TEST(GetIdQuery, TakesTheStatisticsIdsAndNotTheirValues)
{
    EXPECT_EQ("a:b:c", queryOf(statSet({{"g", 0, {{"a", "111"}, {"b", ""}}}, {"h", 0, {{"c", "3"}}}})));
}

TEST(GetIdQuery, SkipsElementsOfEveryCodeButZero)
{
    EXPECT_EQ("b:e", queryOf(idSet({{"f", -5}, {"g", 0, {{"b"}}}, {"h", 1, {{"c"}, {"d"}}}, {"i", -1}, {"j", 0, {{"e"}}}})));
    EXPECT_EQ("b", queryOf(statSet({{"g", 7, {{"a", "1"}}}, {"h", 0, {{"b", "2"}}}, {"i", -1}})));
}

TEST(GetIdQuery, WithoutAUsableIdFails)
{
    EXPECT_EQ("(-131)", queryOf(idSet({{"g", -5}})));
    EXPECT_EQ("(-131)", queryOf(idSet({{"g", 3, {{"a"}, {"b"}}}})));
    EXPECT_EQ("(-131)", queryOf(text("KRVIDSET") + terminatorBytes()));
    EXPECT_EQ("(-131)", queryOf(idSet({})));
    EXPECT_EQ("(-131)", queryOf(statSet({{"g", -5}})));
    EXPECT_EQ("(-131)", queryOf(idSet({{"g", 0, {{letters(32000)}}}})));
    EXPECT_EQ("(-131)", queryOf(idSet({{"g", 0, {{""}}}})));
}

TEST(GetIdQuery, OfOneIdIsShorterThan31999)
{
    EXPECT_EQ(letters(31998), queryOf(idSet({{"g", 0, {{letters(31998)}}}})));
    EXPECT_EQ("(-131)", queryOf(idSet({{"g", 0, {{letters(31999)}}}})));
    EXPECT_EQ("(-131)", queryOf(idSet({{"g", 0, {{letters(32001)}}}})));
}

TEST(GetIdQuery, EndsBefore32000)
{
    // length so far + id + 1 must stay below 32000
    std::string head = letters(20000);
    for (std::size_t last = 11995; last <= 12002; last++) {
        std::string tail = letters(last, 7);
        std::string expected = 20000 + last + 1 < areaSize ? head + ":" + tail : head;
        std::string found = queryOf(idSet({{"g", 0, {{head}, {tail}}}}));
        EXPECT_TRUE(expected == found) << "last id of " << last << ": " << found.size() << " characters, not "
                                       << expected.size();
    }
}

// Both areas end where memory that cannot be read begins.
TEST(GetIdQuery, OfTheLongestTextStaysInItsAreas)
{
    const Bytes content = idSet({{"g", 0, {{letters(20000)}, {letters(11998)}}}});
    AllocationWatch watch(areaSize, areaSize);
    watch.fence();
    {
        HeldSet set(content);
        char* text = nullptr;
        ASSERT_EQ(0, getIdQuery(set.token, &text));
        EXPECT_EQ(31999u, std::strlen(text));
    }
    EXPECT_EQ(2, watch.requests()) << "the token's area and the one that the text is made in";
}

TEST(GetIdQuery, SeparatorsCount)
{
    // 3199 ids of 9 with 3198 separators: 31989; 10 more characters with their separator would be 32000
    std::vector<SetElement> ids(3199, SetElement{"123456789"});
    std::string expected = "123456789";
    for (int i = 1; i < 3199; i++) expected += ":123456789";
    ASSERT_EQ(31989u, expected.size());
    ids.push_back({"1234567890"});
    EXPECT_TRUE(expected == queryOf(idSet({{"g", 0, ids}})));
    ids.back() = {"123456789"};
    EXPECT_TRUE(expected + ":123456789" == queryOf(idSet({{"g", 0, ids}})));
}

TEST(GetIdQuery, PassesOverAnIdThatDoesNotFitAndTakesALaterShorterOne)
{
    std::string head = letters(31000);
    std::string found = queryOf(idSet({{"g", 0, {{head}, {letters(1000)}, {"short"}, {letters(1000)}}}, {"h", 0, {{"x"}}}}));
    EXPECT_TRUE(head + ":short:x" == found) << found.size();
}

TEST(GetIdQuery, UsesUpTheWalk)
{
    HeldSet ids(idSet({{"g", 0, {{"17"}, {"18"}}}, {"h", -1}}));
    KRV_IdData_t id;
    ASSERT_EQ(0, getFirstId(ids.token, &id));
    EXPECT_EQ("17:18", queryOf(ids)) << "it starts at the beginning wherever the walk stood";
    EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextId(ids.token, &id));
    EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextId(ids.token, &id));
    EXPECT_EQ("17:18", queryOf(ids));
    ASSERT_EQ(0, getFirstId(ids.token, &id));
    EXPECT_EQ(0, std::memcmp("17", id.idPtr, 2));

    HeldSet stats(statSet({{"g", 0, {{"17", "a"}}}}));
    KRV_StatData_t stat;
    EXPECT_EQ("17", queryOf(stats));
    EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextStat(stats.token, &stat));

    HeldSet none(idSet({{"g", -5}, {"h", 2, {{"a"}}}}));
    EXPECT_EQ("(-131)", queryOf(none));
    EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextId(none.token, &id)) << "also where no text came of it";
}

TEST(GetIdQuery, ASecondTextReplacesTheFirst)
{
    HeldSet set(idSet({{"g", 0, {{"longer"}, {"longest"}}}}));
    char* first = nullptr;
    ASSERT_EQ(0, getIdQuery(set.token, &first));
    ASSERT_STREQ("longer:longest", first);
    Bytes shorter = idSet({{"g", 0, {{"a"}}}});
    std::memcpy(set.block(), shorter.data(), shorter.size());
    char* second = nullptr;
    ASSERT_EQ(0, getIdQuery(set.token, &second));
    EXPECT_EQ(first, second);
    EXPECT_STREQ("a", second);
}

TEST(GetIdQuery, EndsWhereTheSetIsCutOff)
{
    Bytes content = idSet({{"g", 0, {{"17"}, {"18"}}}});
    HeldSet set(content, static_cast<int>(content.size()) - 5, 8);
    EXPECT_EQ("17", queryOf(set));
}

TEST(GetIdQuery, ChecksItsArgumentsInOrder)
{
    HeldSet set(idSet({{"g", 0, {{"17"}}}}));
    HeldSet empty(terminatorBytes(), 32, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    empty.token->owningPid = 1;
    char unwritten;
    char* text = &unwritten;
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, getIdQuery(nullptr, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, getIdQuery(nullptr, &text));
    EXPECT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getIdQuery(set.token, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getIdQuery(empty.token, nullptr));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getIdQuery(empty.token, &text));
    EXPECT_EQ(&unwritten, text);
}

TEST(GetIdQuery, OfAConnectionsSetIsForItsOwnThreadAndProcess)
{
    HeldSet set(idSet({{"g", 0, {{"17"}}}}), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    EXPECT_EQ("17", queryOf(set));
    Bytes before = recordBytes(set.token);
    std::thread([&] { EXPECT_EQ("(-124)", queryOf(set)); }).join();
    EXPECT_TRUE(sameBytes(before, recordBytes(set.token)));
    char* text = nullptr;
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return getIdQuery(set.token, &text); }));
    HeldSet user(idSet({{"g", 0, {{"17"}}}}));
    std::thread([&] { EXPECT_EQ("17", queryOf(user)); }).join();
}

TEST(GetIdQuery, WithoutAWorkAreaFailsBeforeAnyCheck)
{
    HeldSet set(idSet({{"g", 0, {{"17"}}}}));
    char* text = nullptr;
    getAPITraceLevel(nullptr); // the first call of a process allocates for itself
    TraceFile trace(1);
    for (KRV_ResultSetToken_t token : {set.token, static_cast<KRV_ResultSetToken_t>(nullptr)}) {
        trace.forget();
        Bytes before = recordBytes(set.token);
        int rc, failures;
        {
            AllocationWatch watch(areaSize, areaSize + 64);
            watch.fail(0, 1);
            rc = getIdQuery(token, &text);
            failures = watch.failures();
        }
        ASSERT_EQ(1, failures);
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
        EXPECT_EQ(nullptr, text);
        EXPECT_EQ(1, countOf(trace.lines(), "*EXC*", "API.getIdQuery() Malloc failed for 32000 bytes")) << trace.text();
        EXPECT_TRUE(sameBytes(before, recordBytes(set.token)));
    }
}

TEST(GetIdQuery, FreesItsWorkArea)
{
    HeldSet set(idSet({{"g", 0, {{"17"}}}}));
    HeldSet failing(idSet({{"g", -1}}));
    char* text = nullptr;
    int requests, left;
    {
        AllocationWatch watch(areaSize, areaSize + 64);
        getIdQuery(set.token, &text);
        getIdQuery(failing.token, &text);
        getIdQuery(nullptr, &text);
        getIdQuery(set.token, nullptr);
        requests = watch.requests();
        left = watch.blocksLeft();
    }
    EXPECT_EQ(4, requests);
    EXPECT_EQ(0, left);
}

TEST(GetIdQueryTrace, CountsTheGoodIds)
{
    HeldSet set(idSet({{"g", 0, {{"17"}, {"18"}}}, {"h", 5, {{"19"}}}, {"i", -1}}));
    TraceFile trace(4);
    char* text = nullptr;
    ASSERT_EQ(0, getIdQuery(set.token, &text));
    std::vector<TraceLine> lines = linesFrom(trace.lines(), "API.getIdQuery");
    std::set<int> allowed{1040, 1041, 1042, 1141};
    for (const TraceLine& line : lines) EXPECT_TRUE(allowed.contains(line.number)) << line.text;
    EXPECT_EQ(1040, lines.front().number);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ(1, countOf(lines, "EVENT", "API.getIdQuery Created query string 17:18 from results in result set token "
                                             + pointerText(set.token)))
        << trace.text();
    EXPECT_EQ(2, exitGoodCount(trace, set, 0));

    HeldSet none(idSet({{"i", -1}}));
    trace.forget();
    ASSERT_EQ(KRVSTAT_ID_QUERY_FAILED, getIdQuery(none.token, &text));
    EXPECT_EQ(0, exitGoodCount(trace, none, -131));
    EXPECT_EQ(std::string::npos, trace.text().find("Created query string"));
}


TEST(GetIdQuery, WithoutAnAreaForItsTextIsRefused)
{
    HeldSet set(idSet({{"g", 0, {{"17"}}}}));
    char* const area = set.token->validatedQueryPtr;
    set.token->validatedQueryPtr = nullptr;
    char* text = nullptr;
    EXPECT_EQ(KRVSTAT_ID_QUERY_FAILED, getIdQuery(set.token, &text));
    EXPECT_EQ(nullptr, text);
    set.token->validatedQueryPtr = area;
    EXPECT_EQ(0, getIdQuery(set.token, &text));
    EXPECT_STREQ("17", text);
}

TEST(GetIdQueryTrace, NamesUnknownContent)
{
    HeldSet empty(terminatorBytes(), 32);
    TraceFile trace(1);
    char* text = nullptr;
    ASSERT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getIdQuery(empty.token, &text));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("API.getIdQuery Resultset does not contain recognised content", lines[0].message);
}

TEST(GetIdQueryTrace, EachRefusalIsOneException)
{
    HeldSet set(idSet({{"g", 0, {{"17"}}}}));
    TraceFile trace(1);
    char* text = nullptr;
    ASSERT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, getIdQuery(nullptr, &text));
    ASSERT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getIdQuery(set.token, nullptr));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"*EXC*", "*EXC*"}), kinds(lines)) << trace.text();
    for (const TraceLine& line : lines) EXPECT_TRUE(line.message.starts_with("API.getIdQuery")) << line.text;

    ASSERT_EQ(0, setAPITraceLevel(3));
    trace.forget();
    ASSERT_EQ(KRVSTAT_NULL_OUTPUT_POINTER, getIdQuery(set.token, nullptr));
    EXPECT_EQ(0, exitGoodCount(trace, set, KRVSTAT_NULL_OUTPUT_POINTER));
}

TEST(GetIdQueryTrace, OfALongTextStaysOneLine)
{
    // the text is an argument of the line, not part of its message: its length is no matter
    HeldSet set(idSet({{"g", 0, {{std::string(31998, 'k')}}}}));
    TraceFile trace(2);
    char* text = nullptr;
    ASSERT_EQ(0, getIdQuery(set.token, &text));
    EXPECT_EQ(1, countOf(trace.lines(), "EVENT",
                         "API.getIdQuery Created query string " + std::string(31998, 'k')
                             + " from results in result set token " + pointerText(set.token)));
}

} // namespace krvtest
