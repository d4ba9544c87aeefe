// Does one thing so many times, for tools that count what it takes: instructions, system calls, allocations. Run with
// two numbers of repeats, the difference is free of what starting up takes.
//
// krvcount parse|walk|query|query-walk|calls|allocations SHAPE N REPEATS [ignoring-sigpipe]
//
// parse        parses a reply into a buffer that is large enough
// walk         walks a parsed reply to its end
// query        asks a gateway, by public calls, once the reply lies in the socket
// query-walk   and walks the answer to its end
// calls        the same with marks around the query and around the walk: writes to no descriptor, which a list of
//              system calls shows
// allocations  asks and walks, and shows how long the reply is ("reply SIZE") and, a line each time, what was asked of
//              the allocator: "requests releases: size size ..."

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "krvstats.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statcomms.h"

#include "answers.h"
#include "canned_gateway_process.h"
#include "counted_allocations.h"

namespace {

using krvbench::Answer;
using krvbench::Shape;

[[noreturn]] void fail(const char* what, int rc)
{
    throw std::runtime_error(std::string(what) + " rc=" + std::to_string(rc));
}

// ---- In memory ----

struct Parsed {
    int capacity;
    char* buffer;
};

void parseInto(Parsed* parsed, Shape shape, const Answer& answer)
{
    char* const data = reinterpret_cast<char*>(const_cast<unsigned char*>(answer.result()));
    const int rc = shape == Shape::Ids ? parseIdsData(data, &parsed->buffer, &parsed->capacity)
                                       : parseStatsData(data, &parsed->buffer, &parsed->capacity);
    if (rc != 0) fail("parse", rc);
}

Parsed bufferFor(const Answer& answer)
{
    const int capacity = static_cast<int>(answer.resultSize()) + INITIAL_RESULT_SET_SIZE;
    return {capacity, static_cast<char*>(calloc(1, static_cast<std::size_t>(capacity) + RESULT_SET_ROOM))};
}

template <typename Record>
std::size_t walk(KRV_ResultSetToken_t resultSet, int (*first)(KRV_ResultSetToken_t, Record*),
    int (*next)(KRV_ResultSetToken_t, Record*))
{
    Record record;
    std::size_t count = 0;
    int rc = first(resultSet, &record);
    for (; rc == KRVSTAT_OK; rc = next(resultSet, &record)) ++count;
    if (rc != KRVSTAT_RESULT_SET_EMPTY) fail("walk", rc);
    return count;
}

void walkWhole(KRV_ResultSetToken_t resultSet, Shape shape, std::size_t n)
{
    const std::size_t expected = shape == Shape::Value ? 1 : n;
    const std::size_t count = shape == Shape::Ids ? walk(resultSet, getFirstId, getNextId)
                                                  : walk(resultSet, getFirstStat, getNextStat);
    if (count != expected) fail("elements are missing", 0);
}

void parseRepeatedly(Shape shape, std::size_t n, int repeats)
{
    const Answer answer = krvbench::answerOf(shape, n);
    Parsed parsed = bufferFor(answer);
    for (int i = 0; i < repeats; ++i) parseInto(&parsed, shape, answer);
    free(parsed.buffer);
}

void walkRepeatedly(Shape shape, std::size_t n, int repeats)
{
    const Answer answer = krvbench::answerOf(shape, n);
    Parsed parsed = bufferFor(answer);
    parseInto(&parsed, shape, answer);
    char eyecatcher[] = GATEWAY_RESULT_SET_EYECATCHER;
    KRV_ResultSetToken_t resultSet = nullptr;
    const int rc = createResultSet(&resultSet, eyecatcher, RESULT_SET_OWNER_API);
    if (rc != 0) fail("createResultSet", rc);
    resultSet->rsBuffPtr = parsed.buffer;
    resultSet->rsBuffLen = parsed.capacity;
    for (int i = 0; i < repeats; ++i) walkWhole(resultSet, shape, n);
    deleteResultSet(&resultSet);
    free(parsed.buffer);
}

// ---- Over a socket ----

// A connection to a canned gateway that sends its replies ahead.
struct Connection {
    krvbench::CannedGateway gateway;
    KRV_GatewayToken_t token = nullptr;
    Shape shape;
    std::size_t n;
    std::size_t answerSize; // of the reply that answers a query

    Connection(const char* shapeName, std::size_t count)
        : gateway(shapeName, count, true), shape(krvbench::shapeByName(shapeName)), n(count),
          answerSize(krvbench::answerOf(shape, n).message.size())
    {
        char* version = nullptr;
        const int rc = openGatewayConnection(gateway.port(), &token, &version);
        if (rc != KRVSTAT_OK) fail("openGatewayConnection", rc);
    }
};

// Waits until the replies to the next query have come, all of them.
void awaitReplies(const Connection& connection)
{
    const int socket = connection.token->socketDescriptor;
    const int whole = static_cast<int>(krvbench::initReply().size() + connection.answerSize);
    const int any = 1;
    pollfd readable = {socket, POLLIN, 0};
    if (setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &whole, sizeof whole) != 0 || poll(&readable, 1, -1) != 1 ||
        setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &any, sizeof any) != 0)
        fail("no replies", errno);
}

KRV_ResultSetToken_t query(const Connection& connection)
{
    KRV_ResultSetToken_t resultSet = nullptr;
    const int rc = connection.shape == Shape::Ids ? getStatIds(connection.token, &resultSet)
                                                  : getStats(connection.token, &resultSet);
    if (rc != KRVSTAT_OK) fail("query", rc);
    return resultSet;
}

void mark(const char* text)
{
    syscall(SYS_write, -1, text, strlen(text));
}

void queryRepeatedly(const char* shape, std::size_t n, int repeats, bool walks)
{
    const Connection connection(shape, n);
    for (int i = 0; i < repeats; ++i) {
        awaitReplies(connection);
        KRV_ResultSetToken_t resultSet = query(connection);
        if (walks) walkWhole(resultSet, connection.shape, n);
    }
}

void showCalls(const char* shape, std::size_t n, int repeats)
{
    const Connection connection(shape, n);
    for (int i = 0; i < repeats; ++i) {
        awaitReplies(connection);
        mark("query begins");
        KRV_ResultSetToken_t resultSet = query(connection);
        mark("query ends");
        mark("walk begins");
        walkWhole(resultSet, connection.shape, n);
        mark("walk ends");
    }
}

void showAllocations(const char* shape, std::size_t n, int repeats)
{
    const Connection connection(shape, n);
    krvbench::CountedAllocations& counted = krvbench::countedAllocations;
    std::printf("reply %zu\n", connection.answerSize);
    for (int i = 0; i < repeats; ++i) {
        counted.requests = 0;
        counted.releases = 0;
        counted.counts = true;
        KRV_ResultSetToken_t resultSet = query(connection);
        walkWhole(resultSet, connection.shape, n);
        counted.counts = false;
        std::printf("%d %d:", counted.requests, counted.releases);
        for (int k = 0; k < counted.requests && k < krvbench::CountedAllocations::most; ++k)
            std::printf(" %zu", counted.sizes[k]);
        std::printf("\n");
    }
}

int run(const std::string& task, const char* shape, std::size_t n, int repeats)
{
    if (task == "parse") {
        parseRepeatedly(krvbench::shapeByName(shape), n, repeats);
    } else if (task == "walk") {
        walkRepeatedly(krvbench::shapeByName(shape), n, repeats);
    } else if (task == "query" || task == "query-walk") {
        queryRepeatedly(shape, n, repeats, task == "query-walk");
    } else if (task == "calls") {
        showCalls(shape, n, repeats);
    } else if (task == "allocations") {
        showAllocations(shape, n, repeats);
    } else {
        std::fprintf(stderr, "krvcount: no such task: %s\n", task.c_str());
        return 2;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5 || argc > 6) {
        std::fprintf(stderr,
            "usage: krvcount parse|walk|query|query-walk|calls|allocations SHAPE N REPEATS [ignoring-sigpipe]\n");
        return 2;
    }
    if (argc == 6) signal(SIGPIPE, SIG_IGN);
    try {
        return run(argv[1], argv[2], std::strtoul(argv[3], nullptr, 10), std::atoi(argv[4]));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "krvcount: %s\n", failure.what());
        return 1;
    }
}
