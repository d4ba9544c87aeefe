// Every system call of a conversation fails once, with each error that it can give: the code is the one that its place in
// the conversation has, nothing stays open, no answer is wrong. Interruptions and short counts change nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <vector>

#include "krvstats.h"
#include "krvstats_ext.h"
#include "ready_gateway.h"
#include "short_conversation.h"
#include "socket_calls.h"
#include "stapi_krv_gwytok.h"

using namespace krvtest;

namespace {

// ---- Injections ---------------------------------------------------------------------------------------------------

enum class Call { Getaddrinfo, Socket, Setsockopt, Getsockopt, Ioctl, Connect, Select, Send, Recv, Close, Sigaction };

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
    hooks.getsockopt = [in](int socket, int level, int option, void* value, socklen_t* length) {
        return fails(*in, Call::Getsockopt) ? -1 : getsockopt(socket, level, option, value, length);
    };
    hooks.sigaction = [in](int signal, const struct sigaction* action, struct sigaction* before) {
        return fails(*in, Call::Sigaction) ? -1 : sigaction(signal, action, before);
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

class FailingSystemCalls : public ::testing::Test {
protected:
    void SetUp() override
    {
        gateway.prepare(allReplies());
        filesOfItsOwn = openFiles();
        ASSERT_EQ(everythingRight, run(clean));
    }

    void TearDown() override { setCallDeadline(0); }

    // From now on calls have a deadline, and other ways to wait. It is never reached.
    void setDeadline()
    {
        ASSERT_EQ(0, setCallDeadline(600000));
        clean = Injection();
        ASSERT_EQ(everythingRight, run(clean));
    }

    Gained run(Injection& injection)
    {
        std::signal(SIGPIPE, SIG_DFL); // the run before may have failed to give it back
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

// Besides EINTR, and EAGAIN, which before a deadline says that there is something to wait for.
const std::vector<int> sendErrors = {EACCES,   EALREADY, EBADF,  ECONNRESET, EDESTADDRREQ, EFAULT,   EINVAL, EISCONN,
                                     EMSGSIZE, ENOBUFS,  ENOMEM, ENOTCONN,   ENOTSOCK,     EOPNOTSUPP, EPIPE};
const std::vector<int> selectErrors = {EBADF, EINVAL, ENOMEM};
const std::vector<int> recvErrors = {EBADF,  ECONNREFUSED, ECONNRESET, EFAULT,   EINVAL,
                                     ENOMEM, ENOTCONN,     ENOTSOCK,   ETIMEDOUT};

Gained commsFailed(int request, int)
{
    return exchangeFails(request, KRVSTAT_GATEWAY_COMMS_FAILED);
}

Gained protocolFailed(int request, int)
{
    return exchangeFails(request, KRVSTAT_GATEWAY_PROTOCOL_ERROR);
}

} // namespace

TEST_F(FailingSystemCalls, LookUpOfTheHostIsItsOwnCode)
{
    failEach(Call::Getaddrinfo, {EAI_ADDRFAMILY, EAI_AGAIN, EAI_BADFLAGS, EAI_FAIL, EAI_FAMILY, EAI_MEMORY, EAI_NODATA,
                                 EAI_NONAME, EAI_SERVICE, EAI_SOCKTYPE, EAI_SYSTEM},
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
             {EACCES, EPERM, EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY, EBADF, ECONNREFUSED, EFAULT,
              EHOSTUNREACH, EINTR, EISCONN, ENETUNREACH, ENOTSOCK, EPROTOTYPE, ETIMEDOUT},
             [](int, int error) {
                 if (error == ECONNREFUSED) return openFails(KRVSTAT_CONNECTION_REFUSED);
                 if (error == ENETUNREACH) return openFails(KRVSTAT_NETWORK_UNREACHABLE);
                 return openFails(KRVSTAT_CONNECT_FAILED);
             });
}

// The wait finds a socket that has no error and is not connected either: the greeting fails.
TEST_F(FailingSystemCalls, ConnectThatSaysItIsOnItsWayAndIsNotFailsInTheGreeting)
{
    failEach(Call::Connect, {EINPROGRESS}, [](int, int) { return openFails(KRVSTAT_CONNECT_FAILED); });
}

TEST_F(FailingSystemCalls, ConnectErrorThatCannotBeReadCountsAsNone)
{
    failEach(Call::Getsockopt, {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}, [](int, int) { return everythingRight; });
}

TEST_F(FailingSystemCalls, SendAndWaitAreACommsFailure)
{
    failEach(Call::Send, sendErrors, commsFailed);
    failEach(Call::Send, {EAGAIN}, commsFailed);
    failEach(Call::Select, selectErrors, commsFailed);
}

TEST_F(FailingSystemCalls, ReceiveIsAProtocolError)
{
    failEach(Call::Recv, recvErrors, protocolFailed);
    failEach(Call::Recv, {EAGAIN}, protocolFailed);
}

TEST_F(FailingSystemCalls, HaveTheSameCodesBeforeADeadline)
{
    setDeadline();
    failEach(Call::Send, sendErrors, commsFailed);
    failEach(Call::Select, selectErrors, commsFailed);
    failEach(Call::Recv, recvErrors, protocolFailed);
}

TEST_F(FailingSystemCalls, CallsThatWouldBlockBeforeADeadlineAreWaitedFor)
{
    setDeadline();
    const auto right = [](int, int) { return everythingRight; };
    failEach(Call::Send, {EAGAIN}, right);
    failEach(Call::Recv, {EAGAIN}, right);
}

TEST_F(FailingSystemCalls, CloseIsNobodysError)
{
    failEach(Call::Close, {EBADF, EINTR, EIO, ENOSPC, EDQUOT}, [](int, int) { return everythingRight; });
}

TEST_F(FailingSystemCalls, SignalThatCannotBeIgnoredIsNobodysError)
{
    failEach(Call::Sigaction, {EFAULT, EINVAL}, [](int, int) { return everythingRight; });
}

TEST_F(FailingSystemCalls, InterruptionsAreNotSeen)
{
    for (Call call : {Call::Select, Call::Send, Call::Recv}) {
        interruptEach(call, 1);
        interruptEach(call, 100);
    }
}

TEST_F(FailingSystemCalls, InterruptionsAreNotSeenBeforeADeadline)
{
    setDeadline();
    for (Call call : {Call::Select, Call::Send, Call::Recv}) {
        interruptEach(call, 1);
        interruptEach(call, 100);
    }
}

TEST_F(FailingSystemCalls, ShortCountsAreNotSeen)
{
    for (bool limited : {false, true}) {
        if (limited) setDeadline();
        for (std::size_t mostBytes : {1u, 2u, 7u}) {
            Injection injection;
            injection.mostBytes = mostBytes;
            EXPECT_EQ(everythingRight, run(injection));
            EXPECT_GT(injection.made[Call::Send], clean.made[Call::Send] * 2);
            EXPECT_GT(injection.made[Call::Recv], clean.made[Call::Recv] * 2);
        }
    }
}
