// The whole trace: conversations with every call, failures of every kind, and each line of them in the catalogue.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failing_calls.h"
#include "gateway_process.h"
#include "krvstats.h"
#include "krvstats_ext.h"
#include "reply_builder.h"
#include "result_sets.h"
#include "socket_calls.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwycon.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_socketcomms.h"
#include "stapi_krv_statcomms.h"
#include "stapi_krv_statquery.h"
#include "trace_capture.h"
#include "trace_catalogue.h"

using namespace krvtest;

namespace krvtest {

struct Scenario {
    const char* name;
    void (*play)();
};

void PrintTo(const Scenario& scenario, std::ostream* out)
{
    *out << scenario.name;
}

class Conversation : public ::testing::TestWithParam<Scenario> {
};

} // namespace krvtest

namespace {

char localHost[] = "127.0.0.1";

// ---- The calls ----------------------------------------------------------------------------------------------------

using Query = int (*)(KRV_GatewayToken_t, KRV_ResultSetToken_t*);

int groupIds(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getResourceGroupIds(token, set); }
int statIds(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatIds(token, set); }
int stats(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStats(token, set); }
int statIdsOfGroup(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set)
{
    char ids[] = "alpha:nosuch";
    return getStatIdsByStatGroupId(token, ids, set);
}
int statsById(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set)
{
    char ids[] = "nosuch:alpha.long:beta.one";
    return getStatsByStatId(token, ids, set);
}
int statsOfGroup(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set)
{
    char ids[] = "beta";
    return getStatsByStatGroupId(token, ids, set);
}

const Query queries[] = {groupIds, statIds, statIdsOfGroup, stats, statsById, statsOfGroup};

void walk(KRV_ResultSetToken_t set, bool ids)
{
    KRV_IdData_t id = {};
    KRV_StatData_t stat = {};
    if (ids) {
        getNextId(set, &id);
        getFirstId(set, &id);
        for (int i = 0; i < 50 && getNextId(set, &id) == 0; i++) { }
    } else {
        getNextStat(set, &stat);
        getFirstStat(set, &stat);
        for (int i = 0; i < 50 && getNextStat(set, &stat) == 0; i++) { }
    }
}

// Every call once or more, as an application makes them. Allocates nothing itself, so that every allocation that it is
// made to fail with is the library's. Stops when the connection is gone.
int converse(int port)
{
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    int rc = openGatewayConnection(port, &token, &version);
    if (rc != 0) return rc;
    for (int query = 0; query < 6; query++) {
        KRV_ResultSetToken_t set = nullptr;
        rc = queries[query](token, &set);
        if (rc == KRVSTAT_GATEWAY_COMMS_FAILED || rc == KRVSTAT_GATEWAY_PROTOCOL_ERROR) return rc;
        if (rc != 0) continue;
        walk(set, query < 3);
        char* text = nullptr;
        getIdQuery(set, &text);
        KRV_ResultSetToken_t copy = nullptr;
        copyResultSet(set, &copy);
        if (copy) freeResultSet(&copy);
        dumpResultSet(set);
    }
    char* apiVersion = nullptr;
    int level = 0;
    getStatsAPIVersion(&apiVersion);
    getAPITraceLevel(&level);
    setAPITraceLevel(level);
    dumpState();
    rc = closeGatewayConnection(&token);
    return rc;
}

int openOnly(int port)
{
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    int rc = openRemoteGatewayConnection(localHost, port, &token, &version);
    if (rc == 0) closeGatewayConnection(&token);
    return rc;
}

// ---- Scenarios ----------------------------------------------------------------------------------------------------

void everyCall()
{
    GatewayProcess gateway;
    EXPECT_EQ(0, converse(gateway.port()));
    EXPECT_EQ(0, closeAllGatewayConnections());
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    EXPECT_EQ(0, openRemoteGatewayConnection(localHost, gateway.port(), &token, &version));
    EXPECT_EQ(0, closeAllGatewayConnections());
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}

void everyAllocationFails()
{
    GatewayProcess gateway;
    bool failedBefore = true;
    for (int allocation = 0; failedBefore && allocation < 2000; allocation++) {
        Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return converse(gateway.port()); }, allocation);
        failedBefore = injected.hits == 1;
        closeAllGatewayConnections();
        EXPECT_EQ(nullptr, gtListHeadPtr) << "allocation " << allocation;
    }
    EXPECT_FALSE(failedBefore) << "the conversation never got through";
    EXPECT_EQ(0, gateway.stop());
}

void refusedArguments()
{
    KRV_GatewayToken_t token = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    char* text = nullptr;
    char ids[] = "1";
    KRV_IdData_t id = {};
    KRV_StatData_t stat = {};
    Internal_GatewayToken_t stranger = {};
    EXPECT_EQ(-107, openGatewayConnection(0, &token, &text));
    EXPECT_EQ(-107, openRemoteGatewayConnection(nullptr, 0, &token, &text));
    EXPECT_EQ(-108, openRemoteGatewayConnection(localHost, 1, nullptr, &text));
    EXPECT_EQ(-105, openRemoteGatewayConnection(localHost, 1, &token, nullptr));
    EXPECT_EQ(-133, openRemoteGatewayConnection(nullptr, 1, &token, &text));
    EXPECT_EQ(-108, closeGatewayConnection(nullptr));
    EXPECT_EQ(-100, closeGatewayConnection(&token));
    KRV_GatewayToken_t strange = &stranger;
    EXPECT_EQ(-101, closeGatewayConnection(&strange));
    EXPECT_EQ(-100, getResourceGroupIds(nullptr, &set));
    EXPECT_EQ(-125, getResourceGroupIds(&stranger, nullptr));
    EXPECT_EQ(-100, getStatIds(nullptr, &set));
    EXPECT_EQ(-125, getStatIds(&stranger, nullptr));
    EXPECT_EQ(-100, getStats(nullptr, &set));
    EXPECT_EQ(-125, getStats(&stranger, nullptr));
    for (auto query : {getStatIdsByStatGroupId, getStatsByStatId, getStatsByStatGroupId}) {
        EXPECT_EQ(-100, query(nullptr, ids, &set));
        EXPECT_EQ(-126, query(&stranger, nullptr, &set));
        EXPECT_EQ(-125, query(&stranger, ids, nullptr));
    }
    HeldSet idsHeld(idSet({{"q", 0, {{"a"}}}}));
    HeldSet statsHeld(statSet({{"q", 0, {{"a", "1"}}}}));
    for (auto call : {getFirstId, getNextId}) {
        EXPECT_EQ(-127, call(nullptr, &id));
        EXPECT_EQ(-128, call(idsHeld.token, nullptr));
        EXPECT_EQ(-119, call(statsHeld.token, &id));
    }
    for (auto call : {getFirstStat, getNextStat}) {
        EXPECT_EQ(-127, call(nullptr, &stat));
        EXPECT_EQ(-129, call(statsHeld.token, nullptr));
        EXPECT_EQ(-119, call(idsHeld.token, &stat));
    }
    HeldSet neither(zeros(32));
    EXPECT_EQ(-127, getIdQuery(nullptr, &text));
    EXPECT_EQ(-109, getIdQuery(idsHeld.token, nullptr));
    EXPECT_EQ(-119, getIdQuery(neither.token, &text));
    EXPECT_EQ(-127, copyResultSet(nullptr, &set));
    EXPECT_EQ(-125, copyResultSet(idsHeld.token, nullptr));
    EXPECT_EQ(-119, copyResultSet(neither.token, &set));
    EXPECT_EQ(-127, dumpResultSet(nullptr));
    EXPECT_EQ(-119, dumpResultSet(neither.token));
    EXPECT_EQ(-125, freeResultSet(nullptr));
    EXPECT_EQ(-127, freeResultSet(&set));
    Internal_ResultSetToken_t bufferless = {};
    bufferless.owner = 0x9999;
    EXPECT_EQ(-110, copyResultSet(&bufferless, &set));
    EXPECT_EQ(-110, dumpResultSet(&bufferless));
    bufferless.owner = 0x8888;
    KRV_ResultSetToken_t ownedByApi = &bufferless;
    EXPECT_EQ(-106, freeResultSet(&ownedByApi));
    char* out = nullptr;
    EXPECT_EQ(-2, dup2NativeString(nullptr, &out));
    EXPECT_EQ(-2, dup2ASCIIString(nullptr, &out));
    EXPECT_EQ(-109, getStatsAPIVersion(nullptr));
    EXPECT_EQ(-109, getAPITraceLevel(nullptr));
    EXPECT_EQ(-104, setAPITraceLevel(6));
    char missing[] = "/nonexistent/trace";
    EXPECT_EQ(-130, setAPITraceFile(missing));
}

void traceDestinations()
{
    const std::string here = statAPITraceFilename;
    std::string again = here;
    EXPECT_EQ(0, setAPITraceFile(again.data()));
    {
        CapturedStderr captured;
        EXPECT_EQ(0, setAPITraceFile(nullptr));
        EXPECT_EQ(0, setAPITraceFile(nullptr));
        EXPECT_EQ(0, setAPITraceFile(again.data()));
        // what went to standard error in between belongs to the conversation too
        std::fputs(captured.text().c_str(), statAPITraceHandle);
        std::fflush(statAPITraceHandle);
    }
    char* buffer = statAPITraceFilename;
    statAPITraceFilename = nullptr; // as after a first call that found no memory for it
    Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return setAPITraceFile(again.data()); }, 0, TRACE_FILENAME_SIZE);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, injected.result);
    EXPECT_EQ(1, injected.hits);
    statAPITraceFilename = buffer;
}

void failedStarts()
{
    CapturedStderr captured;
    const std::string here = statAPITraceFilename;
    stapiState = 0;
    int level = 0;
    EXPECT_EQ(1, getAPITraceLevel(&level));
    stapiState = 1;
    TraceLine line = captured.lines().at(0);
    EXPECT_EQ(1124, line.number);
    // the start went back to standard error: return to the file
    std::string name = here;
    EXPECT_EQ(0, setAPITraceFile(name.data()));
    EXPECT_EQ(0, setAPITraceLevel(4));
    std::fputs((line.text + "\n").c_str(), statAPITraceHandle);
    std::fflush(statAPITraceHandle);
    initGTL();
}

void deafOrRudeGateways()
{
    const std::vector<std::vector<std::string>> misbehaviours = {
        {"bad-eyecatcher@handshake"}, {"name=AnotherName@handshake"}, {"close-before@auth1"}, {"refuse-auth=5@auth1"}, {"short-body=2@auth1"},
        {"header-rc=3@auth2"}, {"refuse-admin=7@init"}, {"short-body=2@init"}, {"exception@attribute"},
        {"version-length=64@attribute"}, {"no-body@attribute"}, {"byte-by-byte@handshake"},
    };
    for (const std::vector<std::string>& each : misbehaviours) {
        GatewayProcess gateway(each);
        openOnly(gateway.port());
        EXPECT_EQ(nullptr, gtListHeadPtr) << each[0];
        EXPECT_EQ(0, gateway.stop()) << each[0];
    }
}

void queriesThatFail()
{
    for (const std::vector<std::string>& each : {std::vector<std::string>{"close-before@get-stats", "close-before@stat-ids", "close-before@resource-groups"},
             std::vector<std::string>{"exception@get-stats", "refuse-admin=7@stat-ids", "header-rc=-4@resource-groups"}}) {
        GatewayProcess gateway(each);
        for (Query query : queries) {
            KRV_GatewayToken_t token = nullptr;
            char* version = nullptr;
            ASSERT_EQ(0, openGatewayConnection(gateway.port(), &token, &version));
            KRV_ResultSetToken_t set = nullptr;
            EXPECT_EQ(-122, query(token, &set));
            EXPECT_EQ(-101, query(token, &set));
        }
        EXPECT_EQ(0, gateway.stop());
    }
    GatewayProcess gateway;
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    ASSERT_EQ(0, openGatewayConnection(gateway.port(), &token, &version));
    char* buffer = token->resultSetBuf;
    token->resultSetBuf = nullptr; // as after a reply that could not be stored
    for (Query query : queries) {
        KRV_ResultSetToken_t set = nullptr;
        EXPECT_EQ(-110, query(token, &set));
    }
    token->resultSetBuf = buffer;
    EXPECT_EQ(0, closeGatewayConnection(&token));
}

void wrappersWithoutABuffer()
{
    char* none = nullptr;
    int length = 0;
    char ids[] = "";
    EXPECT_EQ(-103, commsResourceGroupsIds(-1, &none, &length));
    EXPECT_EQ(-103, commsStatIds(-1, &none, &length));
    EXPECT_EQ(-103, commsStats(-1, &none, &length));
    EXPECT_EQ(-103, commsStatIdsByStatGroupId(-1, &none, &length, ids));
    EXPECT_EQ(-103, commsStatsByStatId(-1, &none, &length, ids));
    EXPECT_EQ(-103, commsStatsByStatGroupId(-1, &none, &length, ids));
    char block[64] = {};
    char* buffer = block;
    length = sizeof block;
    EXPECT_EQ(-102, commsStats(-1, &buffer, &length));
}

// Plays a connect whose system calls are made to fail.
void connecting(const std::function<void(SocketCalls&)>& arrange, int expected)
{
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, listen(listener, 1));
    socklen_t size = sizeof address;
    ASSERT_EQ(0, getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size));
    SocketCalls calls;
    arrange(calls);
    {
        Hooked hooked(calls);
        EXPECT_EQ(expected, openOnly(ntohs(address.sin_port)));
    }
    close(listener);
}

int failed(int error)
{
    errno = error;
    return -1;
}

// Says goodbye to nobody: the sends of a connection that never was.
void noSends(SocketCalls& calls)
{
    calls.send = [](int, const void*, std::size_t, int) -> ssize_t { return failed(EPIPE); };
}

void connectsThatFail()
{
    connecting([](SocketCalls& calls) {
        calls.getaddrinfo = [](const char*, const char*, const addrinfo*, addrinfo**) { return EAI_NONAME; };
    }, KRVSTAT_HOST_NOT_RESOLVED);
    connecting([](SocketCalls& calls) { calls.socket = [](int, int, int) { return failed(EMFILE); }; }, KRVSTAT_CONNECT_FAILED);
    connecting([](SocketCalls& calls) {
        calls.setsockopt = [](int, int, int, const void*, socklen_t) { return failed(EINVAL); };
        noSends(calls);
    }, KRVSTAT_CONNECT_FAILED);
    connecting([](SocketCalls& calls) {
        calls.ioctl = [](int, unsigned long, void*) { return failed(EIO); };
        noSends(calls);
    }, KRVSTAT_CONNECT_FAILED);
    connecting([](SocketCalls& calls) {
        calls.ioctl = [](int, unsigned long, void* argument) { return *static_cast<int*>(argument) == 0 ? failed(EIO) : 0; };
        noSends(calls);
    }, KRVSTAT_CONNECT_FAILED);
    auto waits = [](SocketCalls& calls) {
        calls.connect = [](int, const sockaddr*, socklen_t) { return failed(EINPROGRESS); };
        noSends(calls);
    };
    connecting([&](SocketCalls& calls) {
        waits(calls);
        calls.select = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return 0; };
    }, KRVSTAT_CONNECT_TIMEOUT);
    connecting([&](SocketCalls& calls) {
        waits(calls);
        calls.select = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return failed(EBADF); };
    }, KRVSTAT_CONNECT_FAILED);
    connecting([&](SocketCalls& calls) {
        waits(calls);
        calls.select = [](int, fd_set*, fd_set*, fd_set*, timeval*) { return 1; };
        calls.getsockopt = [](int, int, int, void* value, socklen_t*) {
            *static_cast<int*>(value) = ECONNREFUSED;
            return 0;
        };
    }, KRVSTAT_CONNECTION_REFUSED);
}

void exchangesThatFail()
{
    char name[] = "Auth";
    GatewayRequest header = {};
    ReasonCodes reasons = {};
    char* none = nullptr;
    EXPECT_EQ(-1, flow(-1, 4, nullptr, name, &header, &reasons));
    EXPECT_EQ(-1, flow(-1, 0, &none, name, &header, &reasons));
    char bytes[4] = {1, 2, 3, 4};
    char* data = bytes;
    EXPECT_EQ(-1, flow(-1, 4, &data, name, &header, &reasons));

    int pair[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
    ASSERT_EQ(4, write(pair[1], "wxyz", 4));
    char buffer[8];
    SocketCalls calls;
    int received = 0;
    calls.recv = [&](int socket, void* target, std::size_t, int flags) -> ssize_t {
        return received++ == 0 ? recv(socket, target, 3, flags) : failed(ECONNRESET);
    };
    {
        Hooked hooked(calls);
        EXPECT_EQ(ECONNRESET, readFromSocket(pair[0], 8, buffer));
        EXPECT_EQ(ECONNRESET, readFromSocket(pair[0], 8, buffer));
    }
    close(pair[0]);
    close(pair[1]);
}

void resultSetsOfAllForms()
{
    HeldSet ids(idSet({{"first", -5}, {"second", 0, {{"a"}, {"b"}}}, {"third", -1}, {"fourth", 0, {{"c"}}}}));
    walk(ids.token, true);
    HeldSet statistics(statSet({{"first", 0, {{"a", "1"}, {"b", ""}}}, {"second", -7}, {"third", 0, {{"c", "3"}}}}));
    walk(statistics.token, false);
    HeldSet single(idSet({{"only", 0, {{"a"}}}}));
    walk(single.token, true);
    KRV_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(0, copyResultSet(ids.token, &copy));
    std::free(copy->rsBuffPtr);
    copy->rsBuffPtr = nullptr;
    EXPECT_EQ(0, freeResultSet(&copy));
}

void parsersOnAllForms()
{
    Reply reply;
    reply.responses.push_back(statsResponse("all", 0, {plainElement("plain", "value"), chunkedElement("fits", "value", {}),
        chunkedElement("z z w", "one", {ValueSegment{blockLong, "two"}, ValueSegment{blockLong, "three"}, ValueSegment{blockShort, "four"}})}));
    reply.responses.push_back(statsResponse("bad", -3, {}));
    Bytes data = encodeReply(reply);
    data.resize(data.size() + 16);
    int length = 32;
    char* buffer = static_cast<char*>(std::calloc(1, 32 + 32));
    EXPECT_EQ(0, parseStatsData(reinterpret_cast<char*>(data.data()), &buffer, &length));
    std::free(buffer);

    Reply idReply;
    idReply.kind = ReplyKind::Ids;
    idReply.responses.push_back(idsResponse("bad", -3, {}));
    idReply.responses.push_back(idsResponse("good", 0, {"a", "b"}));
    data = encodeReply(idReply);
    data.resize(data.size() + 16);
    length = 32;
    buffer = static_cast<char*>(std::calloc(1, 32 + 32));
    EXPECT_EQ(0, parseIdsData(reinterpret_cast<char*>(data.data()), &buffer, &length));
    std::free(buffer);
}

void primitives()
{
    char block[64] = {};
    char* cursor = block;
    char text[] = "text";
    int found = 0;
    EXPECT_EQ(0, addIdStr(&cursor, text));
    EXPECT_EQ(-103, addIdStr(nullptr, text));
    char* none = nullptr;
    EXPECT_EQ(-103, addInteger(&none, 1));
    EXPECT_EQ(-103, addChars(&none, text, 4));
    EXPECT_EQ(-103, addPlatformChars(&none, text, 4));
    EXPECT_EQ(-103, addTerminator(nullptr));
    EXPECT_EQ(-103, checkTerminator(nullptr, &found));
    KRV_ResultSetToken_t set = nullptr;
    char eyecatcher[] = "KRVRSROB";
    EXPECT_EQ(-103, createResultSet(nullptr, eyecatcher, 0x8888));
    EXPECT_EQ(-116, createResultSet(&set, eyecatcher, 0x1234));
    EXPECT_EQ(-125, deleteResultSet(nullptr));
    EXPECT_EQ(-127, deleteResultSet(&set));
    EXPECT_EQ(0, createResultSet(&set, eyecatcher, 0x8888));
    set->owningPid = getpid() + 1;
    EXPECT_EQ(-123, verifyAPIResultSetTokenOwner(set));
    set->owningPid = getpid();
    std::thread other([&] { EXPECT_EQ(-124, verifyAPIResultSetTokenOwner(set)); });
    other.join();
    EXPECT_EQ(0, deleteResultSet(&set));
    EXPECT_EQ(-103, dumpResultSetInternal(nullptr));
}

void strangeLists()
{
    std::vector<Internal_GatewayToken_t> tokens(300);
    for (std::size_t i = 0; i + 1 < tokens.size(); i++) tokens[i].nextGwyTokPtr = &tokens[i + 1];
    Internal_GatewayToken_t stranger = {};
    gtListHeadPtr = &tokens[0];
    gtListTailPtr = &tokens[299];
    EXPECT_EQ(-101, verifyGatewayToken(&stranger));
    EXPECT_EQ(-123, verifyGatewayToken(&tokens[0]));
    tokens[0].owningPid = getpid();
    tokens[0].owningTid = pthread_self();
    std::thread another([&] { EXPECT_EQ(-124, verifyGatewayToken(&tokens[0])); });
    another.join();
    EXPECT_EQ(1005, dumpGatewayTokens());
    tokens[2].nextGwyTokPtr = nullptr;
    gtListTailPtr = &tokens[2];
    EXPECT_EQ(1003, findGatewayToken(&stranger, nullptr));
    EXPECT_EQ(1002, findGatewayToken(nullptr, nullptr));
    gtListTailPtr = nullptr;
    EXPECT_EQ(-115, chainGatewayToken(&stranger));
    EXPECT_EQ(-108, chainGatewayToken(nullptr));
    gtListHeadPtr = nullptr;
    EXPECT_EQ(1001, findGatewayToken(&stranger, nullptr));
    EXPECT_EQ(-103, formatGatewayToken(&stranger, nullptr));
    for (int i = 0; i < 256; i++) {
        auto* token = static_cast<Internal_GatewayToken_t*>(std::calloc(1, sizeof(Internal_GatewayToken_t)));
        token->socketDescriptor = -1; // and no result set, whose deletion fails
        EXPECT_EQ(0, chainGatewayToken(token));
    }
    EXPECT_EQ(KRVSTAT_GTL_CORRUPT, closeAllGatewayConnections());
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

void refusedLocks()
{
    stapilock lock;
    std::memset(&lock, 0, sizeof lock);
    EXPECT_EQ(-1, requestLock(&lock));
    EXPECT_EQ(-1, releaseLock(&lock));
    EXPECT_EQ(-1, destroyLock(&lock));
    EXPECT_EQ(-2, withFailing(failingMutexInit, ENOMEM, [&] { return initializeLock(&lock); }).result);
    EXPECT_EQ(0, initializeLock(&lock));
    EXPECT_EQ(-4, withFailing(failingMutexLock, EINVAL, [&] { return requestLock(&lock); }).result);
    EXPECT_EQ(-5, withFailing(failingMutexUnlock, EPERM, [&] { return releaseLock(&lock); }).result);
    EXPECT_EQ(-4, withFailing(failingMutexDestroy, EBUSY, [&] { return destroyLock(&lock); }).result);
    EXPECT_EQ(0, destroyLock(&lock));
}

// Calls that come too late, calls that another thread ends, and the ways in which their connections go.
void deadlinesAndInterruptions()
{
    GatewayProcess silent({"no-answer@get-stats", "no-answer@close"});
    KRV_GatewayToken_t token = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    char* version = nullptr;
    EXPECT_EQ(-104, setCallDeadline(-1));
    EXPECT_EQ(-100, interruptGatewayConnection(nullptr));
    EXPECT_EQ(0, openRemoteGatewayConnection(localHost, silent.port(), &token, &version));
    EXPECT_EQ(0, interruptGatewayConnection(token));
    EXPECT_EQ(-122, getStats(token, &set));
    EXPECT_EQ(-101, interruptGatewayConnection(token));

    EXPECT_EQ(0, openRemoteGatewayConnection(localHost, silent.port(), &token, &version));
    EXPECT_EQ(0, setCallDeadline(50));
    EXPECT_EQ(-122, getStats(token, &set));
    EXPECT_EQ(0, setCallDeadline(0));
    EXPECT_EQ(0, openRemoteGatewayConnection(localHost, silent.port(), &token, &version));
    EXPECT_EQ(0, setCallDeadline(50));
    EXPECT_EQ(0, closeGatewayConnection(&token));

    EXPECT_EQ(0, setCallDeadline(0));
    KRV_GatewayToken_t another = nullptr;
    EXPECT_EQ(0, openRemoteGatewayConnection(localHost, silent.port(), &token, &version));
    EXPECT_EQ(0, openRemoteGatewayConnection(localHost, silent.port(), &another, &version));
    EXPECT_EQ(0, requestLock(&gtlLock));
    std::thread([] { // not its token: nothing comes of it
        EXPECT_EQ(0, setCallDeadline(30));
        KRV_ResultSetToken_t others = nullptr;
        EXPECT_EQ(-122, getStats(gtListHeadPtr, &others));
    }).join();
    EXPECT_EQ(0, releaseLock(&gtlLock));
    EXPECT_EQ(token, gtListHeadPtr);
    EXPECT_EQ(0, setCallDeadline(50));
    EXPECT_EQ(0, closeAllGatewayConnections());
    EXPECT_EQ(0, setCallDeadline(0));
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

const Scenario scenarios[] = {
    {"everyCall", everyCall},
    {"everyAllocationFails", everyAllocationFails},
    {"refusedArguments", refusedArguments},
    {"traceDestinations", traceDestinations},
    {"failedStarts", failedStarts},
    {"deafOrRudeGateways", deafOrRudeGateways},
    {"queriesThatFail", queriesThatFail},
    {"wrappersWithoutABuffer", wrappersWithoutABuffer},
    {"connectsThatFail", connectsThatFail},
    {"exchangesThatFail", exchangesThatFail},
    {"resultSetsOfAllForms", resultSetsOfAllForms},
    {"parsersOnAllForms", parsersOnAllForms},
    {"primitives", primitives},
    {"strangeLists", strangeLists},
    {"refusedLocks", refusedLocks},
    {"deadlinesAndInterruptions", deadlinesAndInterruptions},
};

// ---- Claims -------------------------------------------------------------------------------------------------------

// What is written besides trace lines: headers, and the dumps that are written at any level.
bool isPlainOutput(const std::string& text)
{
    if (isDumpLine(text) || text == std::string(80, '-')) return true;
    for (const char* start : {"*** ", "krvstats state dump: API Version=1_1_0_1 Trace Level=", "Gateway Token List dump", "Gateway Token List entry -",
             "Dump of ResultSet(", "The Gateway Token List is EMPTY", "Total number of Gateway Token List entries="})
        if (text.starts_with(start)) return true;
    return false;
}

std::size_t dumpedLines(const std::string& message)
{
    int length = 0;
    unsigned stop = 0;
    std::size_t at = message.find(" len=");
    if (at == std::string::npos || std::sscanf(message.c_str() + at, " len=%d stopword=%X", &length, &stop) != 2) return 0;
    return length > 0 ? (static_cast<std::size_t>(length) + 15) / 16 : 0;
}

// Every line is in the catalogue, in its module's block, and a DATA line has its dump.
void expectCatalogued(const std::vector<TraceLine>& lines, std::set<const TracePoint*>* seen)
{
    for (const TraceLine& line : lines) {
        if (line.number == 0) {
            EXPECT_TRUE(isPlainOutput(line.text)) << line.text;
            continue;
        }
        const TracePoint* point = findTracePoint(line);
        if (!point) {
            ADD_FAILURE() << "not in the catalogue: " << brief({line})[0];
            continue;
        }
        seen->insert(point);
        EXPECT_EQ(static_cast<std::uint32_t>(getpid()), line.pid);
        if (line.kind != "DATA") continue;
        const std::size_t byLength = dumpedLines(line.message);
        if (byLength > 0) {
            EXPECT_EQ(byLength, line.dump.size()) << line.message;
        } else {
            EXPECT_EQ(line.message.ends_with("stopword=00000000"), line.dump.empty()) << line.message;
        }
    }
}

// Each entry is left by an exit of the same function before the one around it is.
void expectNested(const std::vector<TraceLine>& lines)
{
    std::map<std::uint32_t, std::vector<std::string>> entered;
    for (const TraceLine& line : lines) {
        const TracePoint* point = line.number == 0 ? nullptr : findTracePoint(line);
        if (!point) continue;
        std::vector<std::string>& stack = entered[line.tid];
        if (line.kind == "ENTRY") {
            stack.push_back(point->function);
        } else if (line.kind == "EXIT") {
            ASSERT_FALSE(stack.empty()) << "an exit without entry: " << line.message;
            ASSERT_EQ(stack.back(), point->function) << line.message;
            stack.pop_back();
        }
    }
    for (const auto& [thread, stack] : entered) EXPECT_EQ(std::vector<std::string>(), stack);
}

// Rows that no call, no peer and no failing system call can provoke.
struct Unreachable {
    int number;
    const char* words;
    const char* reason;
};

const Unreachable unreachable[] = {
    {1142, "New gateway token has NULL protocolVersion pointer", "an open without a version buffer has failed before, in the version request"},
};

bool isUnreachable(const TracePoint& point)
{
    for (const Unreachable& each : unreachable)
        if (each.number == point.number && std::strstr(point.message, each.words)) return true;
    return false;
}

} // namespace

TEST(Catalogue, EachRowLiesInItsModulesBlockAndHasTheLevelOfItsKind)
{
    const std::map<std::string, int> levels = {{"*EXC*", 1}, {"EVENT", 2}, {"ENTRY", 3}, {"EXIT", 3}, {"DEBUG", 4}, {"DATA", 4}};
    std::set<std::string> rows;
    for (const TracePoint& point : traceCatalogue()) {
        ASSERT_TRUE(levels.contains(point.kind)) << point.kind;
        EXPECT_EQ(levels.at(point.kind), point.level) << point.number;
        const std::string module = moduleOf(point);
        auto block = std::find_if(moduleBlocks().begin(), moduleBlocks().end(), [&](const ModuleBlock& each) { return module == each.module; });
        ASSERT_NE(moduleBlocks().end(), block) << module;
        EXPECT_GE(point.number, block->first) << point.message;
        EXPECT_LE(point.number, block->last) << point.message;
        EXPECT_LE(std::strlen(point.message), 254u) << "with its newline a message holds at most 255 characters";
        EXPECT_EQ(nullptr, std::strchr(point.message, '\n'));
        EXPECT_TRUE(rows.insert(std::to_string(point.number) + point.kind + point.message).second) << "twice: " << point.message;
    }
}

TEST(Catalogue, ANumberStandsForOneKindInOneFunctionButWhereTheyShareIt)
{
    const std::set<int> shared = {1130, 2033, 1142}; // two queries; a new token and a wrong thread; all other lines of an open
    std::map<int, std::set<std::string>> places;
    for (const TracePoint& point : traceCatalogue()) places[point.number].insert(std::string(point.function) + " " + point.kind);
    for (const auto& [number, kinds] : places) {
        EXPECT_EQ(shared.contains(number) ? 2u : 1u, kinds.size()) << number;
    }
}

TEST(Catalogue, EachFunctionKeepsToItsNumbers)
{
    using Range = std::pair<int, int>;
    const std::map<std::string, std::vector<Range>> numbers = {
        {"openGatewayConnection", {{1000, 1000}, {1003, 1003}}},
        {"openRemoteGatewayConnection", {{1001, 1002}, {1142, 1142}}},
        {"closeGatewayConnection", {{1004, 1006}, {1133, 1133}}},
        {"closeAllGatewayConnections", {{1007, 1008}, {1134, 1134}}},
        {"getResourceGroupIds", {{1009, 1014}, {1128, 1128}}},
        {"getStatIdsByStatGroupId", {{1015, 1019}, {1129, 1129}}},
        {"getStatIds", {{1020, 1024}, {1130, 1130}}},
        {"getStats", {{1025, 1029}, {1130, 1130}}},
        {"getStatsByStatId", {{1030, 1034}, {1131, 1131}}},
        {"getStatsByStatGroupId", {{1035, 1039}, {1132, 1132}}},
        {"getIdQuery", {{1040, 1042}, {1141, 1141}}},
        {"getFirstIdInternal", {{1043, 1049}, {1137, 1137}}},
        {"getNextIdInternal", {{1050, 1057}, {1138, 1138}}},
        {"getFirstStatInternal", {{1058, 1063}, {1139, 1139}}},
        {"getNextStatInternal", {{1064, 1071}, {1140, 1140}}},
        {"copyResultSet", {{1072, 1079}, {1135, 1135}}},
        {"freeResultSet", {{1080, 1087}, {1136, 1136}}},
        {"getStatsAPIVersion", {{1088, 1090}}},
        {"getAPITraceLevel", {{1091, 1093}}},
        {"setAPITraceLevel", {{1094, 1096}}},
        {"setAPITraceFile", {{1097, 1101}}},
        {"dumpResultSet", {{1102, 1105}}},
        {"dumpState", {{1106, 1107}}},
        {"dup2ASCIIString", {{1108, 1115}}},
        {"dup2NativeString", {{1116, 1123}}},
        {"stapiInit", {{1124, 1124}}},
        {"setCallDeadline", {{1143, 1145}}},
        {"interruptGatewayConnection", {{1146, 1148}}},
        {"getFirstId", {{1150, 1152}}},
        {"getNextId", {{1153, 1155}}},
        {"getFirstStat", {{1156, 1158}}},
        {"getNextStat", {{1159, 1161}}},
        {"createGatewayToken", {{2000, 2001}, {2033, 2033}, {2036, 2036}, {2038, 2042}}},
        {"openStatsSocket", {{2002, 2005}}},
        {"deleteGatewayToken", {{2009, 2012}, {2037, 2037}, {2043, 2044}}},
        {"initGTL", {{2030, 2031}}},
        {"addIdStr", {{2100, 2107}}},
        {"addInteger", {{2108, 2110}}},
        {"addChars", {{2111, 2115}}},
        {"addPlatformChars", {{2116, 2119}}},
        {"addTerminator", {{2120, 2122}}},
        {"checkTerminator", {{2123, 2126}}},
        {"createResultSet", {{2127, 2132}}},
        {"deleteResultSet", {{2133, 2138}}},
        {"dumpResultSetInternal", {{2139, 2140}}},
        {"verifyAPIResultSetTokenOwner", {{2141, 2144}}},
        {"statProtocolVer", {{2200, 2205}, {2242, 2242}}},
        {"statComms", {{2206, 2207}}},
        {"statCommsString", {{2208, 2213}, {2230, 2230}}},
        {"getInitAdminRequest", {{2214, 2215}}},
        {"calculateCallLength", {{2216, 2217}}},
        {"parseStatsData", {{2220, 2223}, {2231, 2241}}},
        {"parseIdsData", {{2224, 2229}}},
        {"reallocResultsSetBuffer", {{2244, 2245}}},
        {"commsStatIdsByStatGroupId", {{2302, 2303}, {2313, 2313}}},
        {"connectToGateway", {{3000, 3007}, {3013, 3013}, {3018, 3020}}},
        {"closeConnection", {{3008, 3009}}},
        {"authorizeConnection", {{3010, 3011}}},
        {"getHostInfo", {{3012, 3012}}},
        {"waitForConnection", {{3014, 3017}}},
        {"flowAdminRequest", {{3200, 3208}}},
        {"flowAuthRequest", {{3209, 3214}}},
        {"flowHandshakeRequest", {{3215, 3219}}},
        {"flowCloseRequest", {{3220, 3224}}},
        {"flow", {{3225, 3238}, {3250, 3251}}},
        {"readFromSocket", {{3239, 3245}}},
        {"populateHeader", {{3246, 3247}}},
        {"writeHeader", {{3248, 3249}}},
    };
    for (const TracePoint& point : traceCatalogue()) {
        auto own = numbers.find(point.function);
        for (const auto& [function, ranges] : numbers)
            for (const Range& range : ranges) {
                bool inside = point.number >= range.first && point.number <= range.second;
                bool shared = point.number == 1130 || point.number == 2033;
                EXPECT_TRUE(!inside || shared || function == point.function) << point.number << " " << point.message;
            }
        if (own == numbers.end()) continue;
        EXPECT_TRUE(std::any_of(own->second.begin(), own->second.end(),
            [&](const Range& range) { return point.number >= range.first && point.number <= range.second; }))
            << point.number << " " << point.message;
    }
}

TEST(Catalogue, TheEntryLineHasTheLowestNumberOfItsFunction)
{
    std::map<std::string, int> lowest, entry;
    for (const TracePoint& point : traceCatalogue()) {
        auto [at, fresh] = lowest.try_emplace(point.function, point.number);
        if (!fresh) at->second = std::min(at->second, point.number);
        if (std::string("ENTRY") == point.kind) entry[point.function] = point.number;
    }
    ASSERT_GT(entry.size(), 60u);
    for (const auto& [function, number] : entry) EXPECT_EQ(lowest[function], number) << function;
}

TEST(Catalogue, FormatsAreMatchedToTheLetter)
{
    const TracePoint point = {1, "DEBUG", 4, "f", true, "a %d (%p) \"%s\" %8.8X%4.4d "};
    EXPECT_TRUE(messageMatches(point, "a -1 ((nil)) \"x ) y\" 0000ABCD0001 "));
    EXPECT_TRUE(messageMatches(point, "a 7 (0x7f) \"\" 000000FF12345 "));
    EXPECT_FALSE(messageMatches(point, "a 7 (0x7f) \"\" 000000FF12345"));
    EXPECT_FALSE(messageMatches(point, "a x (0x7f) \"\" 000000FF0001 "));
    EXPECT_FALSE(messageMatches(point, "a 7 (7f) \"\" 000000FF0001 "));
    EXPECT_FALSE(messageMatches(point, "a 7 (0x7f) \"\" ff0001 "));
    EXPECT_FALSE(messageMatches(point, "A 7 (0x7f) \"\" 000000FF0001 "));
}

TEST_P(Conversation, EveryLineIsInTheCatalogueAndEntriesAreLeft)
{
    TraceFile trace(4);
    GetParam().play();
    const std::string text = trace.text();
    ASSERT_FALSE(text.empty());
    EXPECT_EQ('\n', text.back());
    EXPECT_EQ(std::string::npos, text.find("\n\n")) << "one newline a line";
    std::vector<TraceLine> lines = parseTrace(text);
    std::set<const TracePoint*> seen;
    expectCatalogued(lines, &seen);
    if (std::string("failedStarts") != GetParam().name && std::string("traceDestinations") != GetParam().name) expectNested(lines);
}

INSTANTIATE_TEST_SUITE_P(Of, Conversation, ::testing::ValuesIn(scenarios), [](const auto& each) { return each.param.name; });

TEST(Conversations, AtEachLevelAConversationShowsTheRowsOfThatLevelAndNoOthers)
{
    GatewayProcess gateway;
    std::set<const TracePoint*> whole;
    {
        TraceFile trace(5);
        ASSERT_EQ(0, converse(gateway.port()));
        expectCatalogued(trace.lines(), &whole);
    }
    for (int level = 0; level <= 4; level++) {
        std::set<const TracePoint*> expected, seen;
        for (const TracePoint* point : whole)
            if (point->level <= level) expected.insert(point);
        TraceFile trace(level);
        ASSERT_EQ(0, converse(gateway.port()));
        expectCatalogued(trace.lines(), &seen);
        EXPECT_EQ(expected, seen) << "level " << level;
    }
    EXPECT_EQ(0, gateway.stop());
}

TEST(Conversations, EveryRowOfTheCatalogueIsEmitted)
{
    std::set<const TracePoint*> seen;
    for (const Scenario& scenario : scenarios) {
        TraceFile trace(4);
        scenario.play();
        expectCatalogued(trace.lines(), &seen);
    }
    for (const TracePoint& point : traceCatalogue())
        EXPECT_NE(isUnreachable(point), seen.contains(&point)) << point.number << " " << point.kind << " " << point.message;
}
