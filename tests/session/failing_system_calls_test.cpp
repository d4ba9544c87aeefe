// Every system call of a conversation fails once, with each error that it can give: the code is the one that its place in
// the conversation has, nothing stays open, no answer is wrong. Interruptions and short counts change nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "krvstats.h"
#include "ready_gateway.h"
#include "socket_calls.h"
#include "stapi_krv_gwytok.h"

using namespace krvtest;

namespace {

// ---- The conversation: open, getStats, close ----------------------------------------------------------------------

// Its requests, in their order.
constexpr int lastGreeting = 2;
constexpr int lastOfOpening = 4;
constexpr int lastOfQuery = 6;

Bytes allReplies()
{
    const Bytes version = hex("B1 B2 B3 B4");
    return handshakeReply() + authInitReply(hex("01 02 03 04 05 06 07 08"), hex("A1 A2 A3 A4"))
        + authConfirmReply(hex("11 12 13 14 15 16 17 18")) + adminInitReply(version)
        + adminCallReply(1, attributeData("1_0")) + adminInitReply(version)
        + adminCallReply(5, statsData("q", 0, {{"a", "1"}, {"b", "two"}})) + closeReply();
}

struct Gained {
    int open = 0;
    int stats = 0;
    std::string answer;
    int close = 0;
};

bool operator==(const Gained& left, const Gained& right)
{
    return left.open == right.open && left.stats == right.stats && left.answer == right.answer
        && left.close == right.close;
}

std::ostream& operator<<(std::ostream& out, const Gained& gained)
{
    return out << "open " << gained.open << ", statistics " << gained.stats << " \"" << gained.answer << "\", close "
               << gained.close;
}

const Gained everythingRight = {0, 0, "a=1 b=two ", 0};

Gained converse(int port)
{
    Gained gained;
    char host[] = "127.0.0.1";
    KRV_GatewayToken_t token = nullptr;
    KRV_ResultSetToken_t set = nullptr;
    char* version = nullptr;
    gained.open = openRemoteGatewayConnection(host, port, &token, &version);
    if (gained.open != 0) return gained;
    gained.stats = getStats(token, &set);
    if (gained.stats == 0) {
        KRV_StatData_t stat = {};
        for (int rc = getFirstStat(set, &stat); rc == 0; rc = getNextStat(set, &stat)) {
            gained.answer.append(stat.statIdPtr, static_cast<std::size_t>(stat.statIdLen)).append("=");
            gained.answer.append(stat.statValuePtr, static_cast<std::size_t>(stat.statValueLen)).append(" ");
        }
    }
    gained.close = closeGatewayConnection(&token);
    return gained;
}

// ---- Injections ---------------------------------------------------------------------------------------------------

enum class Call { Getaddrinfo, Socket, Setsockopt, Ioctl, Connect, Select, Send, Recv, Close };

// The calls of one kind from the number-th on, `times` of them, fail with an error; the bytes that one call may move.
struct Injection {
    Call call = Call::Close;
    int number = -1;
    int times = 1;
    int error = 0;
    std::size_t mostBytes = SIZE_MAX;

    std::map<Call, int> made = {}; // as they are counted
    int hits = 0;
    int request = -1; // the last one that was sent, or begun, when the injection hit
};

bool fails(Injection& injection, Call call)
{
    const int number = injection.made[call]++;
    if (call != injection.call || injection.number < 0 || number < injection.number
        || number >= injection.number + injection.times) return false;
    injection.hits++;
    injection.request = injection.made[Call::Send] - 1;
    errno = injection.error;
    return true;
}

SocketCalls hooksFor(Injection& injection)
{
    SocketCalls hooks;
    Injection* in = &injection;
    hooks.getaddrinfo = [in](const char* host, const char* port, const addrinfo* hints, addrinfo** found) {
        return fails(*in, Call::Getaddrinfo) ? in->error : getaddrinfo(host, port, hints, found);
    };
    hooks.socket = [in](int family, int type, int protocol) {
        return fails(*in, Call::Socket) ? -1 : socket(family, type, protocol);
    };
    hooks.setsockopt = [in](int socket, int level, int option, const void* value, socklen_t length) {
        return fails(*in, Call::Setsockopt) ? -1 : setsockopt(socket, level, option, value, length);
    };
    hooks.ioctl = [in](int socket, unsigned long request, void* argument) {
        return fails(*in, Call::Ioctl) ? -1 : ioctl(socket, request, argument);
    };
    hooks.connect = [in](int socket, const sockaddr* address, socklen_t length) {
        return fails(*in, Call::Connect) ? -1 : connect(socket, address, length);
    };
    hooks.select = [in](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        return fails(*in, Call::Select) ? -1 : select(count, reading, writing, exceptional, timeout);
    };
    hooks.send = [in](int socket, const void* bytes, size_t count, int flags) -> ssize_t {
        return fails(*in, Call::Send) ? -1 : send(socket, bytes, std::min(count, in->mostBytes), flags);
    };
    hooks.recv = [in](int socket, void* bytes, size_t count, int flags) -> ssize_t {
        return fails(*in, Call::Recv) ? -1 : recv(socket, bytes, std::min(count, in->mostBytes), flags);
    };
    hooks.close = [in](int descriptor) { // a close that fails has closed
        const int rc = close(descriptor);
        return fails(*in, Call::Close) ? -1 : rc;
    };
    return hooks;
}

std::size_t openFiles()
{
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator("/proc/self/fd")) files++;
    return files;
}

class FailingSystemCalls : public ::testing::Test {
protected:
    void SetUp() override
    {
        gateway.prepare(allReplies());
        filesOfItsOwn = openFiles();
        ASSERT_EQ(everythingRight, run(clean));
    }

    Gained run(Injection& injection)
    {
        SocketCalls hooks = hooksFor(injection);
        Gained gained;
        {
            Hooked hooked(hooks);
            gained = converse(gateway.port());
        }
        EXPECT_EQ(nullptr, gtListHeadPtr);
        EXPECT_LE(openFiles(), filesOfItsOwn + 1) << "only the gateway's end of the last conversation may still be open";
        return gained;
    }

    // Each call of the kind fails once with each error; expected tells what that must give by the request it was for.
    void failEach(Call call, const std::vector<int>& errors, const std::function<Gained(int request, int error)>& expected)
    {
        ASSERT_GT(clean.made[call], 0) << "nobody makes this call";
        for (int number = 0; number < clean.made[call]; number++) {
            for (int error : errors) {
                Injection injection;
                injection.call = call;
                injection.number = number;
                injection.error = error;
                const Gained gained = run(injection);
                EXPECT_EQ(1, injection.hits) << "call " << number << ", error " << error;
                EXPECT_EQ(expected(injection.request, error), gained) << "call " << number << ", error " << error;
            }
        }
    }

    // Each call of the kind is interrupted, and so are the next ones.
    void interruptEach(Call call, int times)
    {
        ASSERT_GT(clean.made[call], 0) << "nobody makes this call";
        for (int number = 0; number < clean.made[call]; number++) {
            Injection injection;
            injection.call = call;
            injection.number = number;
            injection.times = times;
            injection.error = EINTR;
            EXPECT_EQ(everythingRight, run(injection)) << "call " << number;
            EXPECT_EQ(times, injection.hits) << "call " << number;
        }
    }

    ReadyGateway gateway;
    Injection clean;
    std::size_t filesOfItsOwn = 0;
};

Gained openFails(int rc)
{
    return {rc, 0, "", 0};
}

// What a failure on the way to or from the gateway gives. inQuery: the code outside the greeting.
Gained exchangeFails(int request, int inQuery)
{
    if (request <= lastGreeting) return openFails(KRVSTAT_CONNECT_FAILED);
    if (request <= lastOfOpening) return openFails(inQuery);
    if (request <= lastOfQuery) return {0, inQuery, "", KRVSTAT_GATEWAY_TOKEN_NOT_FOUND};
    return everythingRight; // the goodbye
}

} // namespace

TEST_F(FailingSystemCalls, LookUpOfTheHostIsItsOwnCode)
{
    failEach(Call::Getaddrinfo, {EAI_AGAIN, EAI_BADFLAGS, EAI_FAIL, EAI_FAMILY, EAI_MEMORY, EAI_NONAME, EAI_SERVICE,
                                 EAI_SOCKTYPE, EAI_SYSTEM},
             [](int, int) { return openFails(KRVSTAT_HOST_NOT_RESOLVED); });
}

TEST_F(FailingSystemCalls, SettingUpTheSocketIsAFailedConnect)
{
    const auto connectFailed = [](int, int) { return openFails(KRVSTAT_CONNECT_FAILED); };
    failEach(Call::Socket, {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT}, connectFailed);
    failEach(Call::Setsockopt, {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}, connectFailed);
    // Behind the connect, an errno that has a code of its own gives that code.
    failEach(Call::Ioctl, {EBADF, EFAULT, EINVAL, ENOTTY}, connectFailed);
}

TEST_F(FailingSystemCalls, ConnectHasACodeForTwoErrorsAndOneForTheRest)
{
    failEach(Call::Connect,
             {EACCES, EPERM, EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY, EBADF, ECONNREFUSED, EFAULT, EISCONN,
              ENETUNREACH, ENOTSOCK, EPROTOTYPE, ETIMEDOUT},
             [](int, int error) {
                 if (error == ECONNREFUSED) return openFails(KRVSTAT_CONNECTION_REFUSED);
                 if (error == ENETUNREACH) return openFails(KRVSTAT_NETWORK_UNREACHABLE);
                 return openFails(KRVSTAT_CONNECT_FAILED);
             });
}

TEST_F(FailingSystemCalls, SendAndWaitAreACommsFailure)
{
    const auto commsFailed = [](int request, int) { return exchangeFails(request, KRVSTAT_GATEWAY_COMMS_FAILED); };
    failEach(Call::Send, {EACCES, EAGAIN, EALREADY, EBADF, ECONNRESET, EDESTADDRREQ, EFAULT, EINVAL, EISCONN, EMSGSIZE,
                          ENOBUFS, ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP, EPIPE},
             commsFailed);
    failEach(Call::Select, {EBADF, EINVAL, ENOMEM}, commsFailed);
}

TEST_F(FailingSystemCalls, ReceiveIsAProtocolError)
{
    failEach(Call::Recv, {EAGAIN, EBADF, ECONNREFUSED, ECONNRESET, EFAULT, EINVAL, ENOMEM, ENOTCONN, ENOTSOCK, ETIMEDOUT},
             [](int request, int) { return exchangeFails(request, KRVSTAT_GATEWAY_PROTOCOL_ERROR); });
}

TEST_F(FailingSystemCalls, CloseIsNobodysError)
{
    failEach(Call::Close, {EBADF, EINTR, EIO, ENOSPC, EDQUOT}, [](int, int) { return everythingRight; });
}

TEST_F(FailingSystemCalls, InterruptionsAreNotSeen)
{
    for (Call call : {Call::Select, Call::Send, Call::Recv}) {
        interruptEach(call, 1);
        interruptEach(call, 100);
    }
}

TEST_F(FailingSystemCalls, ShortCountsAreNotSeen)
{
    for (std::size_t mostBytes : {1u, 2u, 7u}) {
        Injection injection;
        injection.mostBytes = mostBytes;
        EXPECT_EQ(everythingRight, run(injection));
        EXPECT_GT(injection.made[Call::Send], clean.made[Call::Send] * 2);
        EXPECT_GT(injection.made[Call::Recv], clean.made[Call::Recv] * 2);
    }
}

TEST_F(FailingSystemCalls, FullDiskUnderTheTraceChangesNoAnswer)
{
    char full[] = "/dev/full";
    ASSERT_EQ(0, setAPITraceFile(full));
    ASSERT_EQ(0, setAPITraceLevel(4));
    EXPECT_EQ(everythingRight, converse(gateway.port()));
    EXPECT_EQ(0, dumpState());
    ASSERT_EQ(0, setAPITraceLevel(0));
    ASSERT_EQ(0, setAPITraceFile(nullptr));
}
