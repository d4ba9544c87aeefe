// What runs in memory: parsing and walking, and the floors of both, on the same bytes.
//
// Names: TASK/SHAPE/N. Each case reports bytes of the reply a second and items (statistics, ids) a second.

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "krvstats.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statcomms.h"

#include "answers.h"
#include "floors.h"

namespace {

using krvbench::Answer;
using krvbench::Shape;

// Category, query count, length of the query element (there is none), its code, count of its elements.
constexpr std::size_t HEADER_OF_A_SET = 8 + 4 + 4 + 4 + 4;

// An answer, a buffer that is large enough, and the result set in it.
struct Case {
    Shape shape;
    std::size_t count;
    Answer answer;
    int capacity;
    char* buffer;
    std::vector<char> copy;

    Case(Shape shapeOfIt, std::size_t n)
        : shape(shapeOfIt), count(shapeOfIt == Shape::Value ? 1 : n), answer(krvbench::answerOf(shapeOfIt, n)),
          capacity(static_cast<int>(answer.resultSize()) + INITIAL_RESULT_SET_SIZE),
          buffer(static_cast<char*>(calloc(1, static_cast<std::size_t>(capacity) + RESULT_SET_ROOM))),
          copy(answer.resultSize())
    {
        parse();
    }
    ~Case()
    {
        free(buffer);
    }
    Case(const Case&) = delete;
    Case& operator=(const Case&) = delete;

    void parse()
    {
        char* const data = reinterpret_cast<char*>(const_cast<unsigned char*>(answer.result()));
        const int rc =
            shape == Shape::Ids ? parseIdsData(data, &buffer, &capacity) : parseStatsData(data, &buffer, &capacity);
        if (rc != 0) throw std::runtime_error("parse rc=" + std::to_string(rc));
    }
};

// Cases live as long as the program, one at a time: the large ones are made when their first benchmark runs.
Case& caseOf(Shape shape, std::size_t n)
{
    static std::vector<std::unique_ptr<Case>> cases;
    static std::vector<std::pair<Shape, std::size_t>> keys;
    for (std::size_t i = 0; i < keys.size(); ++i)
        if (keys[i] == std::pair(shape, n)) return *cases[i];
    keys.emplace_back(shape, n);
    cases.push_back(std::make_unique<Case>(shape, n));
    return *cases.back();
}

void report(benchmark::State& state, const Case& each)
{
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(each.answer.resultSize()));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(each.count));
}

void copyReply(benchmark::State& state, Shape shape, std::size_t n)
{
    Case& each = caseOf(shape, n);
    for (auto _ : state) {
        std::memcpy(each.copy.data(), each.answer.result(), each.copy.size());
        benchmark::ClobberMemory();
    }
    report(state, each);
}

void parse(benchmark::State& state, Shape shape, std::size_t n)
{
    Case& each = caseOf(shape, n);
    for (auto _ : state) {
        each.parse();
        benchmark::ClobberMemory();
    }
    report(state, each);
}

void minimalParse(benchmark::State& state, Shape shape, std::size_t n)
{
    Case& each = caseOf(shape, n);
    for (auto _ : state) {
        const unsigned char* const first = krvbench::firstStatistic(each.answer.result());
        benchmark::DoNotOptimize(krvbench::parseMinimally(first, each.count, each.buffer + HEADER_OF_A_SET));
        benchmark::ClobberMemory();
    }
    report(state, each);
}

Internal_ResultSetToken_t* resultSetOver(Case& each)
{
    char eyecatcher[] = GATEWAY_RESULT_SET_EYECATCHER;
    KRV_ResultSetToken_t resultSet = nullptr;
    if (createResultSet(&resultSet, eyecatcher, RESULT_SET_OWNER_API) != 0) throw std::runtime_error("createResultSet");
    resultSet->rsBuffPtr = each.buffer;
    resultSet->rsBuffLen = each.capacity;
    return resultSet;
}

void walkIds(KRV_ResultSetToken_t resultSet)
{
    KRV_IdData_t id;
    for (int rc = getFirstId(resultSet, &id); rc == KRVSTAT_OK; rc = getNextId(resultSet, &id))
        benchmark::DoNotOptimize(id.idPtr);
}

void walkStats(KRV_ResultSetToken_t resultSet)
{
    KRV_StatData_t stat;
    for (int rc = getFirstStat(resultSet, &stat); rc == KRVSTAT_OK; rc = getNextStat(resultSet, &stat))
        benchmark::DoNotOptimize(stat.statValuePtr);
}

void walk(benchmark::State& state, Shape shape, std::size_t n)
{
    Case& each = caseOf(shape, n);
    each.parse();
    Internal_ResultSetToken_t* resultSet = resultSetOver(each);
    for (auto _ : state) shape == Shape::Ids ? walkIds(resultSet) : walkStats(resultSet);
    deleteResultSet(&resultSet);
    report(state, each);
}

void minimalWalk(benchmark::State& state, Shape shape, std::size_t n)
{
    Case& each = caseOf(shape, n);
    each.parse();
    for (auto _ : state) {
        krvbench::walkMinimally(each.buffer + HEADER_OF_A_SET, each.count,
            [](const KRV_StatData_t& stat) { benchmark::DoNotOptimize(stat.statValuePtr); });
    }
    report(state, each);
}

using Task = void (*)(benchmark::State&, Shape, std::size_t);

void add(const std::string& task, Task function, const char* shape, std::size_t n)
{
    const Shape which = krvbench::shapeByName(shape);
    const std::string name = task + "/" + shape + "/" + std::to_string(n);
    benchmark::RegisterBenchmark(
        name.c_str(), [function, which, n](benchmark::State& state) { function(state, which, n); });
}

void addAll()
{
    for (std::size_t n : {10, 100, 1000, 5000, 100000, 1000000}) {
        add("memcpy", copyReply, "stats", n);
        add("parse", parse, "stats", n);
        add("minimal_parse", minimalParse, "stats", n);
        add("walk", walk, "stats", n);
        add("minimal_walk", minimalWalk, "stats", n);
    }
    for (std::size_t n : {1000, 100000}) {
        add("memcpy", copyReply, "random", n);
        add("parse", parse, "random", n);
        add("minimal_parse", minimalParse, "random", n);
        add("memcpy", copyReply, "ids", n);
        add("parse", parse, "ids", n);
        add("walk", walk, "ids", n);
    }
    for (std::size_t length : {1, 100, 1000, 10000, 32767}) {
        add("memcpy", copyReply, "value", length);
        add("parse", parse, "value", length);
    }
}

} // namespace

int main(int argc, char** argv)
{
    addAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
