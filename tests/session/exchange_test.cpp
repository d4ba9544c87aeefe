// The single exchange: one request out, one reply in, on a connected socket.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "failing_calls.h"
#include "interruptions.h"
#include "scripted_peer.h"
#include "socket_calls.h"
#include "stapi_krv_socketcomms.h"
#include "trace_capture.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

constexpr std::int32_t Untouched = 0x2B2B2B2B;

// What an exchange left behind. The request's name is "Admin": 34 bytes of every reply are its header.
struct Exchange {
    int rc = Untouched;
    GatewayRequest header;
    ReasonCodes reasons;
    bool dataNull = false;
    bool sameBlock = false;  // *data still is the request's block
    Bytes data;              // the reply's body, or, if it has none, the request
};

Exchange exchange(int socket, const Bytes& request, const char* name = "Admin")
{
    Exchange result;
    result.reasons = {Untouched, Untouched, Untouched, Untouched};
    std::memset(&result.header, 0x2B, sizeof result.header);
    result.header.requestType = name;
    char* data = static_cast<char*>(std::malloc(request.size()));
    char* before = data;
    std::memcpy(data, request.data(), request.size());

    result.rc = flow(socket, static_cast<int>(request.size()), &data, const_cast<char*>(name), &result.header,
                     &result.reasons);

    result.dataNull = !data;
    result.sameBlock = data == before;
    std::size_t size = result.header.datalength < 1 || result.header.datalength == Untouched
                           ? request.size()
                           : static_cast<std::size_t>(result.header.datalength);
    if (data && result.rc == 0) result.data.assign(data, data + size);
    std::free(data);
    return result;
}

void expectReasons(const Exchange& result, std::int32_t socketErrno, std::int32_t gatewayRc)
{
    EXPECT_EQ(socketErrno, result.reasons.socketErrno);
    EXPECT_EQ(gatewayRc, result.reasons.gatewayRc);
    EXPECT_EQ(Untouched, result.reasons.authRc);
    EXPECT_EQ(Untouched, result.reasons.adminRc);
}

void expectNoReasons(const Exchange& result)
{
    expectReasons(result, Untouched, Untouched);
}

Bytes numbered(std::size_t count)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
    return bytes;
}

const Bytes request = text("any request");

// A header whose every field has a value of its own.
Bytes markedReply(const Bytes& body)
{
    ReplyHeader header;
    header.flowVersion = 0x11121314;
    header.flowType = 0x21222324;
    header.messageId = 0x31323334;
    header.security = 0xF5;
    header.datalength = static_cast<std::int32_t>(body.size());
    return replyHeader(header) + body;
}

void expectMarkedReply(const Exchange& result, const Bytes& body)
{
    EXPECT_EQ(0, result.rc);
    EXPECT_EQ(0x47617465, result.header.eyecatcher);
    EXPECT_EQ(0x11121314, result.header.flowVersion);
    EXPECT_EQ(0x21222324, result.header.flowType);
    EXPECT_EQ(0x31323334, result.header.messageId);
    EXPECT_EQ(0, result.header.gatewayRc);
    EXPECT_EQ(5, result.header.requestTypeLength);
    EXPECT_STREQ("Admin", result.header.requestType);
    EXPECT_EQ(static_cast<char>(0xF5), result.header.security);
    EXPECT_EQ(static_cast<std::int32_t>(body.size()), result.header.datalength);
    EXPECT_TRUE(sameBytes(body, result.data));
    expectNoReasons(result);
}

Exchange exchangeWith(ScriptedPeer& peer, const Bytes& bytes = request, const char* name = "Admin")
{
    Exchange result = exchange(peer.clientSocket(), bytes, name);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    return result;
}

Exchange answeredBy(const Bytes& replyBytes)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(request.size()), sendWhole(replyBytes)});
    return exchangeWith(peer);
}

std::vector<int> numbersOf(const std::vector<TraceLine>& lines)
{
    std::vector<int> numbers;
    for (const TraceLine& line : lines) numbers.push_back(line.number);
    return numbers;
}

struct sigaction dispositionOfSigpipe()
{
    struct sigaction action {};
    EXPECT_EQ(0, sigaction(SIGPIPE, nullptr, &action));
    return action;
}

void setSigpipe(void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    ASSERT_EQ(0, sigaction(SIGPIPE, &action, nullptr));
}

// Gives SIGPIPE back as it was.
struct SigpipeKeeper {
    struct sigaction before = dispositionOfSigpipe();
    ~SigpipeKeeper() { sigaction(SIGPIPE, &before, nullptr); }
};

// The bytes that a storage dump shows in its hex column.
Bytes dumpedBytes(const TraceLine& line)
{
    Bytes bytes;
    for (const std::string& each : line.dump) {
        std::size_t end = each.find(" : ");
        if (end == std::string::npos || end < 12) {
            ADD_FAILURE() << "not a line of a dump: " << each;
            continue;
        }
        bytes = bytes + hex(each.substr(12, end - 12));
    }
    return bytes;
}

}  // namespace

// ---- Replies ------------------------------------------------------------------------------------------------------

TEST(Exchange, SendsTheRequestVerbatimAndHandsOutTheReply)
{
    ScriptedPeer peer({{expectBytes(request.size()), sendWhole(markedReply(text("body"))), expectCloseWithoutBytes()}});
    int client = connectToPeer(peer);
    Exchange result = exchange(client, request);
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(request, peer.received()));
    expectMarkedReply(result, text("body"));
}

TEST(Exchange, ReplyInOneByteStepsIsPutTogether)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectBytes(request.size()), sendByteByByte(markedReply(numbered(100)))});
    expectMarkedReply(exchangeWith(peer), numbered(100));
}

TEST(Exchange, ReplyInOneByteStepsIsPutTogetherOverTcp)
{
    ScriptedPeer peer({{expectBytes(request.size()), sendByteByByte(markedReply(numbered(20)))}});
    int client = connectToPeer(peer);
    Exchange result = exchange(client, request);
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    expectMarkedReply(result, numbered(20));
}

TEST(Exchange, ReplySplitAtAnyPositionIsPutTogether)
{
    const Bytes body = numbered(37);
    const Bytes whole = markedReply(body);
    for (std::size_t position = 1; position < whole.size(); ++position) {
        SCOPED_TRACE(position);
        ScriptedPeer peer =
            ScriptedPeer::onSocketPair({expectBytes(request.size()), sendSplitAt(whole, position)});
        expectMarkedReply(exchangeWith(peer), body);
    }
}

TEST(Exchange, LargeReplyIsReadToItsEnd)
{
    const Bytes body = numbered(3 * 1024 * 1024 + 1);
    ScriptedPeer peer({{expectBytes(request.size()), sendWhole(markedReply(body))}});
    int client = connectToPeer(peer);
    Exchange result = exchange(client, request);
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    expectMarkedReply(result, body);
}

TEST(Exchange, BytesBehindTheReplyStayInTheSocket)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectBytes(request.size()), sendWhole(markedReply(text("body")) + text("next"))});
    Exchange result = exchangeWith(peer);
    expectMarkedReply(result, text("body"));
    char next[8];
    ASSERT_EQ(4, recv(peer.clientSocket(), next, sizeof next, 0));
    EXPECT_EQ("next", std::string(next, 4));
}

TEST(Exchange, ReplyWithoutABodyLeavesTheRequestInPlace)
{
    Exchange result = answeredBy(markedReply({}));
    EXPECT_EQ(0, result.rc);
    EXPECT_EQ(0, result.header.datalength);
    EXPECT_TRUE(result.sameBlock);
    EXPECT_TRUE(sameBytes(request, result.data));
    expectNoReasons(result);
}

TEST(Exchange, NegativeBodyLengthMeansNoBody)
{
    for (std::int32_t length : {-1, -4, std::numeric_limits<std::int32_t>::min()}) {
        SCOPED_TRACE(length);
        ReplyHeader header;
        header.datalength = length;
        Exchange result = answeredBy(replyHeader(header));
        EXPECT_EQ(0, result.rc);
        EXPECT_EQ(length, result.header.datalength);
        EXPECT_TRUE(result.sameBlock);
        EXPECT_TRUE(sameBytes(request, result.data));
        expectNoReasons(result);
    }
}

TEST(Exchange, SecondRequestOnTheSameSocketIsIndependent)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(5), sendWhole(reply("BASE", text("one"))),
                                                    expectBytes(6), sendWhole(reply("Admin", text("second")))});
    Exchange first = exchange(peer.clientSocket(), text("first"), "BASE");
    Exchange second = exchange(peer.clientSocket(), text("second"), "Admin");
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_EQ(0, first.rc);
    EXPECT_TRUE(sameBytes(text("one"), first.data));
    EXPECT_EQ(0, second.rc);
    EXPECT_TRUE(sameBytes(text("second"), second.data));
}

// ---- Return codes of the gateway ----------------------------------------------------------------------------------

TEST(Exchange, ReturnCodeOfTheGatewayIsTheResult)
{
    for (std::int32_t code : {3, 1, -1, -4, -111, 61444, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(code);
        Exchange result = answeredBy(refusal("Admin", code));
        EXPECT_EQ(code, result.rc);
        EXPECT_EQ(code, result.header.gatewayRc);
        expectReasons(result, Untouched, code);
        EXPECT_TRUE(result.sameBlock);
    }
}

TEST(Exchange, BodyOfARefusalIsReadAllTheSame)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectBytes(request.size()), sendWhole(refusal("Admin", 8, text("why")) + text("next"))});
    Exchange result = exchangeWith(peer);
    EXPECT_EQ(8, result.rc);
    EXPECT_EQ(3, result.header.datalength);
    EXPECT_FALSE(result.dataNull);
    char next[8];
    ASSERT_EQ(4, recv(peer.clientSocket(), next, sizeof next, 0));
    EXPECT_EQ("next", std::string(next, 4));
}

TEST(Exchange, WordAtOffsetTwelveIsNoReturnCode)
{
    ReplyHeader header;
    header.messageId = 9;  // offset 12
    header.gatewayRc = 0;  // offset 16
    Exchange result = answeredBy(replyHeader(header));
    EXPECT_EQ(0, result.rc);
    EXPECT_EQ(9, result.header.messageId);
    expectNoReasons(result);
}

// ---- Bad replies --------------------------------------------------------------------------------------------------

TEST(Exchange, BadEyecatcherIsRefused)
{
    for (std::uint32_t eyecatcher :
         {0x46617465u, 0x47607465u, 0x47617565u, 0x47617464u, 0x65746147u, 0u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(eyecatcher);
        ReplyHeader header;
        header.eyecatcher = eyecatcher;
        header.gatewayRc = 7;
        Exchange result = answeredBy(replyHeader(header));
        EXPECT_EQ(-122, result.rc);
        expectNoReasons(result);
        EXPECT_TRUE(result.sameBlock);
    }
}

TEST(Exchange, BadEyecatcherIsTracedWithBothValues)
{
    TraceFile trace(1);
    ReplyHeader header;
    header.eyecatcher = 0xCAFE0001;
    answeredBy(replyHeader(header));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3251, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flow Bad eyecatcher! Expected=0x47617465, actual=0xcafe0001", lines[0].message);
}

TEST(Exchange, CloseAtAnyByteOfTheReplyIsABadReply)
{
    const Bytes whole = markedReply(numbered(11));
    for (std::size_t sent = 0; sent < whole.size(); ++sent) {
        SCOPED_TRACE(sent);
        ScriptedPeer peer = ScriptedPeer::onSocketPair(
            {expectBytes(request.size()), sendWhole(slice(whole, 0, sent)), closeLink()});
        errno = 0;
        Exchange result = exchangeWith(peer);
        EXPECT_EQ(-122, result.rc);
        expectReasons(result, -1, Untouched);
    }
}

TEST(Exchange, ResetByThePeerIsReportedWithItsErrno)
{
    const Bytes whole = markedReply(numbered(11));
    for (std::size_t sent : {std::size_t(0), std::size_t(10), std::size_t(34), std::size_t(40)}) {
        SCOPED_TRACE(sent);
        // The client has to sleep on what is missing before the reset comes, or the reset would overtake the bytes.
        Interruptions client;
        ScriptedPeer peer({{expectBytes(request.size()), sendPieces({slice(whole, 0, sent), {}}),
                            doThis([&client] { client.awaitSleep(); }), resetLink()}});
        int socket = connectToPeer(peer);
        Exchange result = exchange(socket, request);
        close(socket);
        peer.finish();
        EXPECT_EQ("", peer.problem());
        EXPECT_EQ(-122, result.rc);
        expectReasons(result, ECONNRESET, Untouched);
    }
}

TEST(Exchange, ClaimOfMoreThanArrivesIsABadReply)
{
    ReplyHeader header;
    header.datalength = 16 * 1024 * 1024;
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectBytes(request.size()), sendWhole(replyHeader(header) + text("little")), closeLink()});
    errno = 0;
    Exchange result = exchangeWith(peer);
    EXPECT_EQ(-122, result.rc);
    expectReasons(result, -1, Untouched);
}

TEST(Exchange, HeaderIsAsLongAsTheRequestsNameSays)
{
    // The reply names itself "ABC": its header has 32 bytes, but 34 are read, the last two of them of its body.
    ReplyHeader header;
    header.name = "ABC";
    header.security = 9;
    header.datalength = 4;
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectBytes(request.size()), sendWhole(replyHeader(header) + text("xxbody") + text("next"))});
    Exchange result = exchangeWith(peer);
    EXPECT_EQ(0, result.rc);
    EXPECT_EQ(3, result.header.requestTypeLength);
    EXPECT_EQ(9, result.header.security);
    EXPECT_EQ(4, result.header.datalength);
    EXPECT_TRUE(sameBytes(text("body"), result.data));
}

TEST(Exchange, EveryShorterReplyNameIsReadInsideTheHeader)
{
    for (std::int32_t nameLength = 0; nameLength <= 5; ++nameLength) {
        SCOPED_TRACE(nameLength);
        ReplyHeader header;
        header.name = std::string(static_cast<std::size_t>(nameLength), 'n');
        header.security = static_cast<unsigned char>(nameLength + 1);
        header.datalength = 4;
        Bytes padding = zeros(5 - static_cast<std::size_t>(nameLength));
        Exchange result = answeredBy(replyHeader(header) + padding + text("body"));
        EXPECT_EQ(0, result.rc);
        EXPECT_EQ(nameLength, result.header.requestTypeLength);
        EXPECT_EQ(nameLength + 1, result.header.security);
        EXPECT_TRUE(sameBytes(text("body"), result.data));
    }
}

TEST(Exchange, ReplyNameBeyondTheHeaderIsABadReply)
{
    for (std::int32_t nameLength : {6, 7, 9, 10, 1000, INT_MAX - 29, INT_MAX - 24, INT_MAX, -1, -5, -24, -29, INT_MIN}) {
        SCOPED_TRACE(nameLength);
        // Written out by hand: the header record takes -1 for the name's own length.
        Bytes header = hex("47617465 00700000 00000001 00000000 00000000") + be32(nameLength) + text("Admin") +
                       hex("00") + be32(0);
        Exchange result = answeredBy(header);
        EXPECT_EQ(-122, result.rc);
        EXPECT_EQ(Untouched, result.reasons.gatewayRc);
        EXPECT_TRUE(result.sameBlock);
    }
}

// ---- Nothing to send, and sends that fail -------------------------------------------------------------------------

TEST(Exchange, NothingToSendEndsBeforeTheSocketIsTouched)
{
    TraceFile trace(1);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
    for (int length : {0, -1, INT_MIN}) {
        char* data = static_cast<char*>(std::malloc(4));
        char* before = data;
        GatewayRequest header{};
        ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
        char name[] = "Admin";
        EXPECT_EQ(-1, flow(peer.clientSocket(), length, &data, name, &header, &reasons));
        EXPECT_EQ(before, data);
        EXPECT_EQ(Untouched, reasons.socketErrno);
        EXPECT_EQ(Untouched, reasons.gatewayRc);
        std::free(data);
    }
    GatewayRequest header{};
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    char name[] = "Admin";
    EXPECT_EQ(-1, flow(peer.clientSocket(), 4, nullptr, name, &header, &reasons));
    EXPECT_EQ(Untouched, reasons.socketErrno);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());

    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(4u, lines.size()) << trace.text();
    for (const TraceLine& line : lines) {
        EXPECT_EQ(3227, line.number);
        EXPECT_EQ("*EXC*", line.kind);
        EXPECT_EQ("stapi_krv_socketcomms.flow No data to flow!!", line.message);
    }
}

TEST(Exchange, ADeadPeerIsASendFailureAndKillsNobody)
{
    SigpipeKeeper keeper;
    setSigpipe(SIG_DFL);  // a signal that got through would end the test program
    TraceFile trace(1);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({closeLink()});
    peer.finish();
    Exchange result = exchange(peer.clientSocket(), request);
    EXPECT_EQ(-1, result.rc);
    expectReasons(result, EPIPE, Untouched);
    EXPECT_TRUE(result.sameBlock);

    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(2u, lines.size()) << trace.text();
    EXPECT_EQ(3228, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flow Unable to write data to socket rc=-1", lines[0].message);
    EXPECT_EQ(3229, lines[1].number);
    EXPECT_EQ("*EXC*", lines[1].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flow Unable to send data to Gateway: errno=" + std::to_string(EPIPE),
              lines[1].message);
}

TEST(Exchange, AnInvalidDescriptorIsASendFailure)
{
    Exchange result = exchange(-1, request);
    EXPECT_EQ(-1, result.rc);
    expectReasons(result, EBADF, Untouched);
}

TEST(Exchange, ASendOfNothingIsASendFailure)
{
    int sends = 0;
    SocketCalls calls;
    calls.send = [&sends](int, const void*, size_t, int) -> ssize_t {
        ++sends;
        errno = ENOBUFS;
        return 0;
    };
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
    {
        Hooked hooked(calls);
        Exchange result = exchange(peer.clientSocket(), request);
        EXPECT_EQ(-1, result.rc);
        expectReasons(result, ENOBUFS, Untouched);
    }
    EXPECT_EQ(1, sends);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
}

TEST(Exchange, FailureToWaitForTheReplyIsItsResult)
{
    int waits = 0;
    SocketCalls calls;
    calls.select = [&waits](int, fd_set*, fd_set*, fd_set*, timeval*) {
        ++waits;
        errno = EBADF;
        return -1;
    };
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(request.size())});
    {
        Hooked hooked(calls);
        Exchange result = exchange(peer.clientSocket(), request);
        EXPECT_EQ(-1, result.rc);
        expectNoReasons(result);
        EXPECT_TRUE(result.sameBlock);
    }
    EXPECT_EQ(1, waits);
    peer.finish();
    EXPECT_EQ("", peer.problem());
}

TEST(Exchange, WaitsForTheReplyOnTheSocketAloneAndWithoutALimit)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(request.size()), sendWhole(markedReply(text("body")))});
    int waits = 0;
    SocketCalls calls;
    calls.select = [&](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        ++waits;
        EXPECT_EQ(peer.clientSocket() + 1, count);
        EXPECT_EQ(nullptr, writing);
        EXPECT_EQ(nullptr, exceptional);
        EXPECT_EQ(nullptr, timeout);
        for (int descriptor = 0; descriptor < count; ++descriptor)
            EXPECT_EQ(descriptor == peer.clientSocket(), FD_ISSET(descriptor, reading) != 0) << descriptor;
        return ::select(count, reading, writing, exceptional, timeout);
    };
    Hooked hooked(calls);
    expectMarkedReply(exchangeWith(peer), text("body"));
    EXPECT_EQ(1, waits);
}

// ---- Requests that need several sends -----------------------------------------------------------------------------

TEST(Exchange, AShortSendIsCompleted)
{
    const Bytes large = numbered(1000);
    for (size_t most : {size_t(1), size_t(7), size_t(999)}) {
        SCOPED_TRACE(most);
        size_t sends = 0;
        SocketCalls calls;
        calls.send = [&sends, most](int socket, const void* bytes, size_t count, int flags) {
            EXPECT_EQ(1000 - most * sends, count) << "the rest and no more";
            ++sends;
            return ::send(socket, bytes, std::min(count, most), flags);
        };
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(1000), sendWhole(markedReply(text("body")))});
        Hooked hooked(calls);
        expectMarkedReply(exchangeWith(peer, large), text("body"));
        EXPECT_EQ((1000 + most - 1) / most, sends);
        EXPECT_TRUE(sameBytes(large, peer.received()));
    }
}

TEST(Exchange, AnErrorOrNothingAfterAShortSendIsASendFailure)
{
    const struct {
        ssize_t second;
        int error;
    } rows[] = {{-1, ECONNRESET}, {0, ENOBUFS}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        int sends = 0;
        SocketCalls calls;
        calls.send = [&](int socket, const void* bytes, size_t count, int flags) -> ssize_t {
            if (sends++ == 0) return ::send(socket, bytes, std::min<size_t>(count, 3), flags);
            errno = row.error;
            return row.second;
        };
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(3)});
        Hooked hooked(calls);
        Exchange result = exchange(peer.clientSocket(), request);
        EXPECT_EQ(-1, result.rc);
        expectReasons(result, row.error, Untouched);
        EXPECT_EQ(2, sends);
    }
}

TEST(Exchange, ARequestOfOneByteIsSent)
{
    const Bytes one = text("x");
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(1), sendWhole(markedReply(text("body")))});
    expectMarkedReply(exchangeWith(peer, one), text("body"));
    EXPECT_TRUE(sameBytes(one, peer.received()));
}

TEST(Exchange, RequestsOfAMegabytePassThroughASmallSendBuffer)
{
    const Bytes large = numbered(1024 * 1024 + 3);
    ScriptedPeer peer({{expectBytes(large.size()), sendWhole(markedReply(text("body")))}});
    int client = connectToPeer(peer);
    int small = 4096;
    ASSERT_EQ(0, setsockopt(client, SOL_SOCKET, SO_SNDBUF, &small, sizeof small));
    Exchange result = exchange(client, large);
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    expectMarkedReply(result, text("body"));
    EXPECT_TRUE(sameBytes(large, peer.received()));
}

// ---- Signals ------------------------------------------------------------------------------------------------------

TEST(Exchange, InterruptedCallsAreRepeated)
{
    int sends = 0;
    int waits = 0;
    int receives = 0;
    SocketCalls calls;
    calls.send = [&sends](int socket, const void* bytes, size_t count, int flags) -> ssize_t {
        if (++sends <= 3) return errno = EINTR, -1;
        return ::send(socket, bytes, count, flags);
    };
    calls.select = [&waits](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        if (++waits <= 3) return errno = EINTR, -1;
        return ::select(count, reading, writing, exceptional, timeout);
    };
    calls.recv = [&receives](int socket, void* bytes, size_t count, int flags) -> ssize_t {
        if (++receives % 4 != 0) return errno = EINTR, -1;
        return ::recv(socket, bytes, std::min<size_t>(count, 10), flags);
    };
    ScriptedPeer peer =
        ScriptedPeer::onSocketPair({expectBytes(request.size()), sendWhole(markedReply(numbered(25)))});
    Hooked hooked(calls);
    expectMarkedReply(exchangeWith(peer), numbered(25));
    EXPECT_EQ(4, sends);
    EXPECT_EQ(4, waits);
    EXPECT_EQ(4 * (4 + 3), receives);  // 34 bytes and 25 bytes, 10 at a time, each at the fourth try
}

TEST(Exchange, SignalsDuringEveryWaitGoUnnoticed)
{
    Interruptions interruptions;
    int waitsInterrupted = 0;
    int receivesInterrupted = 0;
    SocketCalls calls;
    calls.select = [&](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        int rc = ::select(count, reading, writing, exceptional, timeout);
        if (rc == -1 && errno == EINTR) ++waitsInterrupted;
        return rc;
    };
    calls.recv = [&](int socket, void* bytes, size_t count, int flags) {
        ssize_t rc = ::recv(socket, bytes, count, flags);
        if (rc == -1 && errno == EINTR) ++receivesInterrupted;
        return rc;
    };
    PeerStep interrupt = doThis([&interruptions] { EXPECT_TRUE(interruptions.interruptSleep(5)); });

    const Bytes body = numbered(9);
    const Bytes whole = markedReply(body);
    ScriptedPeer peer({{expectBytes(request.size()), interrupt,             // waiting for the reply
                        sendWhole(slice(whole, 0, 1)), interrupt,           // first byte of the header is there
                        sendWhole(slice(whole, 1, 20)), interrupt,          // in the middle of the header
                        sendWhole(slice(whole, 21, 13)), interrupt,         // in front of the body
                        sendWhole(slice(whole, 34, 4)), interrupt,          // in the middle of the body
                        sendWhole(slice(whole, 38, 5))}});
    int client = connectToPeer(peer);
    {
        Hooked hooked(calls);
        expectMarkedReply(exchange(client, request), body);
    }
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_EQ(25, interruptions.count());
    EXPECT_GE(waitsInterrupted, 1);
    EXPECT_GE(receivesInterrupted, 4);
}

TEST(Exchange, SignalsDuringALargeSendGoUnnoticed)
{
    const Bytes large = numbered(1024 * 1024);
    Interruptions interruptions;
    int shortSends = 0;
    int interruptedSends = 0;
    SocketCalls calls;
    calls.send = [&](int socket, const void* bytes, size_t count, int flags) {
        ssize_t rc = ::send(socket, bytes, count, flags);
        if (rc == -1 && errno == EINTR) ++interruptedSends;
        if (rc > 0 && static_cast<size_t>(rc) < count) ++shortSends;
        return rc;
    };
    PeerStep interrupt = doThis([&interruptions] { EXPECT_TRUE(interruptions.interruptSleep(5)); });
    ScriptedPeer peer({{interrupt,                  // the first send is cut short, the next ones cannot send anything
                        expectBytes(256 * 1024), interrupt, expectBytes(768 * 1024),
                        sendWhole(markedReply(text("body")))}});
    int client = connectToPeer(peer);
    int small = 4096;
    ASSERT_EQ(0, setsockopt(client, SOL_SOCKET, SO_SNDBUF, &small, sizeof small));
    {
        Hooked hooked(calls);
        expectMarkedReply(exchange(client, large), text("body"));
    }
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(large, peer.received()));
    EXPECT_GE(shortSends, 1);
    EXPECT_GE(interruptedSends, 1);
}

// ---- SIGPIPE ------------------------------------------------------------------------------------------------------

namespace {

void pipeHandler(int, siginfo_t*, void*) {}
void otherPipeHandler(int) {}

bool sameMembers(const sigset_t& left, const sigset_t& right)
{
    for (int signal = 1; signal < 65; ++signal)
        if (sigismember(&left, signal) != sigismember(&right, signal)) return false;
    return true;
}

}  // namespace

TEST(Exchange, SigpipeIsIgnoredWhileSendingAndRestoredWhole)
{
    SigpipeKeeper keeper;
    struct sigaction mine {};
    mine.sa_sigaction = pipeHandler;
    mine.sa_flags = SA_SIGINFO | SA_NODEFER | SA_RESTART;
    sigemptyset(&mine.sa_mask);
    sigaddset(&mine.sa_mask, SIGUSR2);
    sigaddset(&mine.sa_mask, SIGHUP);
    ASSERT_EQ(0, sigaction(SIGPIPE, &mine, nullptr));

    int sends = 0;
    SocketCalls calls;
    calls.send = [&sends](int socket, const void* bytes, size_t count, int flags) {
        ++sends;
        EXPECT_EQ(SIG_IGN, dispositionOfSigpipe().sa_handler);
        return ::send(socket, bytes, count, flags);
    };
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(request.size()), sendWhole(markedReply({}))});
    Hooked hooked(calls);
    exchangeWith(peer);
    EXPECT_EQ(1, sends);

    struct sigaction after = dispositionOfSigpipe();
    EXPECT_EQ(pipeHandler, after.sa_sigaction);
    constexpr unsigned int Visible = SA_SIGINFO | SA_NODEFER | SA_RESTART | SA_ONSTACK | SA_RESETHAND;
    EXPECT_EQ(static_cast<unsigned int>(mine.sa_flags), static_cast<unsigned int>(after.sa_flags) & Visible);
    EXPECT_TRUE(sameMembers(mine.sa_mask, after.sa_mask));
}

TEST(Exchange, DefaultSigpipeIsRestored)
{
    SigpipeKeeper keeper;
    setSigpipe(SIG_DFL);
    answeredBy(markedReply({}));
    EXPECT_EQ(SIG_DFL, dispositionOfSigpipe().sa_handler);
}

TEST(Exchange, SigpipeIsRestoredAfterAFailedSend)
{
    SigpipeKeeper keeper;
    setSigpipe(otherPipeHandler);
    EXPECT_EQ(-1, exchange(-1, request).rc);
    EXPECT_EQ(otherPipeHandler, dispositionOfSigpipe().sa_handler);
}

TEST(Exchange, IgnoredSigpipeIsNotRestored)
{
    // Another thread that is just sending has SIGPIPE ignored, and gives it back before this one is done: it must stay
    // as that thread left it.
    SigpipeKeeper keeper;
    setSigpipe(SIG_IGN);
    int sends = 0;
    SocketCalls calls;
    calls.send = [&sends](int socket, const void* bytes, size_t count, int flags) {
        ++sends;
        setSigpipe(otherPipeHandler);
        return ::send(socket, bytes, count, flags);
    };
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(request.size()), sendWhole(markedReply({}))});
    Hooked hooked(calls);
    exchangeWith(peer);
    EXPECT_EQ(1, sends);
    EXPECT_EQ(otherPipeHandler, dispositionOfSigpipe().sa_handler);
}

TEST(Exchange, IgnoredSigpipeStaysIgnored)
{
    SigpipeKeeper keeper;
    setSigpipe(SIG_IGN);
    answeredBy(markedReply({}));
    EXPECT_EQ(SIG_IGN, dispositionOfSigpipe().sa_handler);
}

TEST(Exchange, NoSignalIsRaisedEvenWhereAnotherThreadGaveSigpipeBack)
{
    SigpipeKeeper keeper;
    setSigpipe(SIG_DFL);
    int sends = 0;
    SocketCalls calls;
    calls.send = [&sends](int socket, const void* bytes, size_t count, int flags) {
        ++sends;
        setSigpipe(SIG_DFL);
        return ::send(socket, bytes, count, flags);
    };
    ScriptedPeer peer = ScriptedPeer::onSocketPair({closeLink()});
    peer.finish();
    Hooked hooked(calls);
    Exchange result = exchange(peer.clientSocket(), request);
    EXPECT_EQ(-1, result.rc);
    EXPECT_EQ(EPIPE, result.reasons.socketErrno);
    EXPECT_EQ(1, sends);
}

// ---- Descriptors beyond an fd_set ---------------------------------------------------------------------------------

TEST(Exchange, DescriptorsBeyondAnFdSetWork)
{
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    rlimit raised = limit;
    raised.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 4200);
    raised.rlim_max = std::max(raised.rlim_max, raised.rlim_cur);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &raised));
    for (int high : {1023, 1024, 1025, 1087, 1088, 1500, 4096}) {
        SCOPED_TRACE(high);
        ScriptedPeer peer =
            ScriptedPeer::onSocketPair({expectBytes(request.size()), sendByteByByte(markedReply(text("body")))});
        ASSERT_EQ(high, dup2(peer.clientSocket(), high));
        Exchange result = exchange(high, request);
        close(high);
        peer.finish();
        EXPECT_EQ("", peer.problem());
        expectMarkedReply(result, text("body"));
    }
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
}

// ---- Memory -------------------------------------------------------------------------------------------------------

TEST(Exchange, WithoutMemoryForTheHeaderTheRequestStays)
{
    TraceFile trace(1);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(5000), sendWhole(markedReply(text("body")))});
    GatewayRequest header{};
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    char name[] = "Admin";
    char* data = static_cast<char*>(std::calloc(5000, 1));
    char* before = data;
    Injected run = withFailing(
        failingMalloc, ENOMEM, [&] { return flow(peer.clientSocket(), 5000, &data, name, &header, &reasons); }, 0, 34);
    peer.finish();
    EXPECT_EQ(1, run.hits);
    EXPECT_EQ(-111, run.result);
    EXPECT_EQ(before, data);
    EXPECT_EQ(Untouched, reasons.socketErrno);
    EXPECT_EQ(Untouched, reasons.gatewayRc);
    std::free(data);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3231, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flowFailed to allocate 34 bytes.", lines[0].message);
}

TEST(Exchange, WithoutMemoryForTheBodyNothingIsLeft)
{
    TraceFile trace(1);
    ScriptedPeer peer =
        ScriptedPeer::onSocketPair({expectBytes(request.size()), sendWhole(markedReply(numbered(54321)))});
    Exchange result;
    Injected run = withFailing(
        failingMalloc, ENOMEM,
        [&] {
            result = exchange(peer.clientSocket(), request);
            return result.rc;
        },
        0, 54321);
    peer.closeClientSocket();
    EXPECT_EQ(1, run.hits);
    EXPECT_EQ(-111, run.result);
    EXPECT_TRUE(result.dataNull);
    expectNoReasons(result);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3236, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flow Failed to allocate 54321 bytes.", lines[0].message);
}

// ---- Receiving ----------------------------------------------------------------------------------------------------

namespace {

struct Received {
    int rc;
    Bytes bytes;
};

Received receive(int socket, int count)
{
    std::vector<char> buffer(static_cast<std::size_t>(count) + 4, '\x5A');
    errno = 0;
    Received result{readFromSocket(socket, count, buffer.data()), {}};
    for (std::size_t i = static_cast<std::size_t>(count); i < buffer.size(); ++i)
        EXPECT_EQ('\x5A', buffer[i]) << "received behind the end";
    result.bytes.assign(buffer.begin(), buffer.begin() + count);
    return result;
}

}  // namespace

TEST(Receiving, TakesExactlyWhatIsAskedFor)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({sendWhole(text("abcdefgh"))});
    Received first = receive(peer.clientSocket(), 3);
    Received second = receive(peer.clientSocket(), 5);
    EXPECT_EQ(0, first.rc);
    EXPECT_TRUE(sameBytes(text("abc"), first.bytes));
    EXPECT_EQ(0, second.rc);
    EXPECT_TRUE(sameBytes(text("defgh"), second.bytes));
}

TEST(Receiving, PutsPiecesTogether)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({sendPieces({text("a"), text("bcd"), text("ef")})});
    Received all = receive(peer.clientSocket(), 6);
    EXPECT_EQ(0, all.rc);
    EXPECT_TRUE(sameBytes(text("abcdef"), all.bytes));
}

TEST(Receiving, CloseBeforeTheFirstByteIsMinusOne)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({closeLink()});
    EXPECT_EQ(-1, receive(peer.clientSocket(), 4).rc);
}

TEST(Receiving, CloseBeforeTheFirstByteIsMinusOneWhateverErrnoSays)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({closeLink()});
    char buffer[4];
    errno = EXDEV;
    EXPECT_EQ(-1, readFromSocket(peer.clientSocket(), 4, buffer));
    EXPECT_EQ(EXDEV, errno);
}

TEST(Receiving, CloseInTheMiddleNeverPassesForSuccess)
{
    for (std::size_t sent = 1; sent < 4; ++sent) {
        ScriptedPeer peer = ScriptedPeer::onSocketPair({sendWhole(slice(text("abcd"), 0, sent)), closeLink()});
        EXPECT_EQ(-1, receive(peer.clientSocket(), 4).rc) << sent;
    }
}

TEST(Receiving, CloseInTheMiddleTellsTheErrnoThatStands)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({sendWhole(text("ab")), closeLink()});
    char buffer[4];
    errno = EXDEV;
    EXPECT_EQ(EXDEV, readFromSocket(peer.clientSocket(), 4, buffer));
}

TEST(Receiving, FailureIsItsErrno)
{
    TraceFile trace(1);
    char buffer[4];
    EXPECT_EQ(EBADF, readFromSocket(-1, 4, buffer));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3244, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.readFromSocket read returned an error code: errno=" + std::to_string(EBADF),
              lines[0].message);
}

TEST(Receiving, FailureInTheMiddleIsItsErrno)
{
    TraceFile trace(1);
    int receives = 0;
    SocketCalls calls;
    calls.recv = [&receives](int socket, void* bytes, size_t count, int flags) -> ssize_t {
        if (receives++ == 0) return ::recv(socket, bytes, count, flags);
        errno = ETIMEDOUT;
        return -1;
    };
    ScriptedPeer peer = ScriptedPeer::onSocketPair({sendWhole(text("ab"))});
    peer.finish();
    Hooked hooked(calls);
    EXPECT_EQ(ETIMEDOUT, receive(peer.clientSocket(), 4).rc);
    EXPECT_EQ(2, receives);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3242, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.readFromSocket read returned an error code: errno=" + std::to_string(ETIMEDOUT),
              lines[0].message);
}

TEST(Receiving, AsksForTheRestOnly)
{
    std::vector<size_t> asked;
    SocketCalls calls;
    calls.recv = [&asked](int socket, void* bytes, size_t count, int flags) {
        EXPECT_EQ(0, flags);
        asked.push_back(count);
        return ::recv(socket, bytes, std::min<size_t>(count, 4), flags);
    };
    ScriptedPeer peer = ScriptedPeer::onSocketPair({sendWhole(text("abcdefghij"))});
    peer.finish();
    Hooked hooked(calls);
    Received all = receive(peer.clientSocket(), 10);
    EXPECT_EQ(0, all.rc);
    EXPECT_TRUE(sameBytes(text("abcdefghij"), all.bytes));
    EXPECT_EQ((std::vector<size_t>{10, 6, 2}), asked);
}

// ---- Traces -------------------------------------------------------------------------------------------------------

TEST(ExchangeTrace, OfAReplyWithABody)
{
    TraceFile trace(4);
    answeredBy(markedReply(text("body")));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{3225, 3226,                    // entry, the request
                                3230,                          // block of the header
                                3239, 3240, 3243, 3245,        // receiving it
                                3246, 3247, 3232,              // decoding and freeing it
                                3233, 3234, 3235,              // block of the body
                                3239, 3240, 3243, 3245,        // receiving it
                                3250, 3238}),                  // success, exit
              numbersOf(lines))
        << trace.text();
    for (const TraceLine& line : lines) {
        std::string kind = "DEBUG";
        if (line.number == 3225 || line.number == 3239 || line.number == 3246) kind = "ENTRY";
        if (line.number == 3238 || line.number == 3245 || line.number == 3247) kind = "EXIT";
        if (line.number == 3226 || line.number == 3243) kind = "DATA";
        if (line.number == 3250) kind = "EVENT";
        EXPECT_EQ(kind, line.kind) << line.text;
    }
}

TEST(ExchangeTrace, OfAReplyWithoutABody)
{
    TraceFile trace(4);
    answeredBy(markedReply({}));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{3225, 3226, 3230, 3239, 3240, 3243, 3245, 3246, 3247, 3232, 3237, 3250, 3238}),
              numbersOf(lines))
        << trace.text();
    ASSERT_EQ(1u, linesNumbered(lines, 3237).size());
    EXPECT_EQ("DEBUG", linesNumbered(lines, 3237)[0].kind);
    EXPECT_EQ(0u, linesNumbered(lines, 3237)[0].message.find(
                      "stapi_krv_socketcomms.flow Managed to read in whole response in one go. data=0x"));
}

TEST(ExchangeTrace, NamesItsArguments)
{
    TraceFile trace(4);
    ScriptedPeer peer =
        ScriptedPeer::onSocketPair({expectBytes(request.size()), sendWhole(markedReply(text("body")))});
    GatewayRequest header{};
    ReasonCodes reasons{};
    char name[] = "Admin";
    char* data = static_cast<char*>(std::malloc(request.size()));
    std::memcpy(data, request.data(), request.size());
    char* requestBlock = data;
    ASSERT_EQ(0, flow(peer.clientSocket(), static_cast<int>(request.size()), &data, name, &header, &reasons));
    peer.finish();
    std::vector<TraceLine> lines = trace.lines();
    auto messageOf = [&lines](int number) {
        std::vector<TraceLine> found = linesNumbered(lines, number);
        return found.empty() ? std::string("missing") : found[0].message;
    };
    const std::string socket = std::to_string(peer.clientSocket());
    EXPECT_EQ(0u, messageOf(3225).find("stapi_krv_socketcomms.flow(socketDesc=" + socket + ", datalen=11, &data="));
    EXPECT_NE(std::string::npos, messageOf(3225).find(", requestName=Admin, header=" + pointerText(&header) +
                                                      ", reasons=" + pointerText(&reasons) + ")"));
    EXPECT_EQ("stapi_krv_socketcomms.flow data=" + pointerText(requestBlock) + " len=11 stopword=00000000",
              messageOf(3226));
    EXPECT_EQ(0u, messageOf(3230).find("stapi_krv_socketcomms.flow Called malloc for 34 bytes. rc=0x"));
    EXPECT_EQ(0u, messageOf(3232).find("stapi_krv_socketcomms.flow Free header data 0x"));
    EXPECT_EQ("stapi_krv_socketcomms.flow Free call data " + pointerText(requestBlock), messageOf(3233));
    EXPECT_EQ(0u, messageOf(3234).find("stapi_krv_socketcomms.flow (re-)malloc call &data 0x"));
    EXPECT_EQ("stapi_krv_socketcomms.flow Called malloc for 4 bytes. rc=" + pointerText(data), messageOf(3235));
    EXPECT_EQ("stapi_krv_socketcomms.flow Successfully sent and received data with Gateway on socket " + socket,
              messageOf(3250));
    EXPECT_EQ(0u, messageOf(3238).find("stapi_krv_socketcomms.flow("));
    EXPECT_NE(std::string::npos, messageOf(3238).find("rc=0")) << messageOf(3238);
    std::free(data);
}

TEST(ExchangeTrace, EntryLineHas24CharactersOfTheNameAtMost)
{
    TraceFile trace(3);
    const std::string name(30, 'n');
    for (std::size_t length : {23u, 24u, 25u, 30u}) {
        trace.forget();
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(request.size())});
        exchangeWith(peer, request, name.substr(0, length).c_str());
        const std::vector<TraceLine> entries = linesNumbered(trace.lines(), 3225);
        ASSERT_EQ(1u, entries.size());
        const std::string shown = ", requestName=" + name.substr(0, std::min<std::size_t>(length, 24)) + ", header=";
        EXPECT_NE(std::string::npos, entries[0].message.find(shown)) << entries[0].message;
    }
}

TEST(ExchangeTrace, ExitLineTellsTheResult)
{
    TraceFile trace(3);
    answeredBy(refusal("Admin", 61444));
    std::vector<TraceLine> exits = linesNumbered(trace.lines(), 3238);
    ASSERT_EQ(1u, exits.size());
    EXPECT_NE(std::string::npos, exits[0].message.find("rc=61444")) << exits[0].message;
    EXPECT_TRUE(linesNumbered(trace.lines(), 3250).empty());
}

TEST(ExchangeTrace, DumpsEveryByteBothWays)
{
    TraceFile trace(4);
    const Bytes body = numbered(50);
    answeredBy(markedReply(body));
    std::vector<TraceLine> sent = linesNumbered(trace.lines(), 3226);
    ASSERT_EQ(1u, sent.size());
    EXPECT_TRUE(sameBytes(request, dumpedBytes(sent[0])));
    std::vector<TraceLine> received = linesNumbered(trace.lines(), 3243);
    ASSERT_EQ(2u, received.size());
    EXPECT_TRUE(sameBytes(slice(markedReply(body), 0, 34), dumpedBytes(received[0])));
    EXPECT_TRUE(sameBytes(body, dumpedBytes(received[1])));
    EXPECT_NE(std::string::npos, received[1].message.find(" len=50 stopword=00000000"));
}

TEST(ExchangeTrace, CountsEveryReceive)
{
    TraceFile trace(4);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({sendPieces({text("ab"), text("c"), text("def")})});
    char buffer[6];
    ASSERT_EQ(0, readFromSocket(peer.clientSocket(), 6, buffer));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{3239, 3240, 3241, 3241, 3243, 3245}), numbersOf(lines)) << trace.text();
    ASSERT_EQ(6u, lines.size());
    const std::string socket = "stapi_krv_socketcomms.readFromSocket recv(socketDesc=" +
                               std::to_string(peer.clientSocket());
    const std::string place = ", dataBuf=" + pointerText(buffer) + ") readData=";
    EXPECT_EQ(socket + ", dataSize=6" + place + "2)", lines[1].message);
    EXPECT_EQ(0u, lines[2].message.find(socket + ", dataSize=")) << lines[2].message;
    EXPECT_NE(std::string::npos, lines[2].message.find(") readData=1, totaldata=3)")) << lines[2].message;
    EXPECT_NE(std::string::npos, lines[3].message.find(") readData=3, totaldata=6)")) << lines[3].message;
    EXPECT_EQ("stapi_krv_socketcomms.readFromSocket data=" + pointerText(buffer) + " len=6 stopword=00000000",
              lines[4].message);
    EXPECT_TRUE(sameBytes(text("abcdef"), dumpedBytes(lines[4])));
    EXPECT_NE(std::string::npos, lines[5].message.find("rc=0")) << lines[5].message;
}

TEST(ExchangeTrace, ACloseInTheMiddleIsTracedWithWhatArrived)
{
    TraceFile trace(4);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({sendWhole(text("ab")), closeLink()});
    peer.finish();
    receive(peer.clientSocket(), 6);
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{3239, 3240, 3241, 3242, 3243, 3245}), numbersOf(lines)) << trace.text();
    ASSERT_EQ(6u, lines.size());
    EXPECT_EQ("*EXC*", lines[3].kind);
    EXPECT_EQ(0u, lines[3].message.find("stapi_krv_socketcomms.readFromSocket read returned an error code: errno="));
    EXPECT_TRUE(sameBytes(text("ab"), dumpedBytes(lines[4])));
}

TEST(ExchangeTrace, ACloseBeforeTheFirstByteIsNoException)
{
    TraceFile trace(4);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({closeLink()});
    peer.finish();
    receive(peer.clientSocket(), 6);
    EXPECT_EQ((std::vector<int>{3239, 3240, 3245}), numbersOf(trace.lines())) << trace.text();
    EXPECT_NE(std::string::npos, linesNumbered(trace.lines(), 3245).at(0).message.find("rc=-1"));
}

TEST(ExchangeTrace, EachKindHasItsLevel)
{
    const struct {
        int level;
        std::vector<int> numbers;
    } rows[] = {{0, {}}, {1, {}}, {2, {3250}}, {3, {3225, 3239, 3245, 3246, 3247, 3250, 3238}}};
    for (const auto& row : rows) {
        TraceFile trace(row.level);
        answeredBy(markedReply({}));
        EXPECT_EQ(row.numbers, numbersOf(trace.lines())) << "level " << row.level;
    }
}
