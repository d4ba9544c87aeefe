// Lets a test stand between the library and the socket calls of the system, and what goes with them.
//
// A program that defines recv is asked before the C library, also by the shared library: so this header defines the
// calls below, each of which goes to the hook that the calling thread has set, or else on to the system. Inside a hook,
// calls go to the system. Include it in exactly one source file of a program. A hook that was never met proves nothing:
// count, and assert the count.
#pragma once

#include <dlfcn.h>
#include <netdb.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <functional>
#include <utility>

struct SocketCalls {
    std::function<int(const char* host, const char* port, const addrinfo* hints, addrinfo** found)> getaddrinfo;
    std::function<void(addrinfo* list)> freeaddrinfo;
    std::function<int(int family, int type, int protocol)> socket;
    std::function<int(int socket, int level, int option, const void* value, socklen_t length)> setsockopt;
    std::function<int(int socket, int level, int option, void* value, socklen_t* length)> getsockopt;
    std::function<int(int socket, unsigned long request, void* argument)> ioctl;
    std::function<int(int socket, const sockaddr* address, socklen_t length)> connect;
    std::function<int(int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout)> select;
    std::function<ssize_t(int socket, const void* bytes, size_t count, int flags)> send;
    std::function<ssize_t(int socket, void* bytes, size_t count, int flags)> recv;
    std::function<int(int descriptor)> close;
    std::function<time_t(time_t* result)> time;
    std::function<int(int signal, const struct sigaction* action, struct sigaction* before)> sigaction;
};

inline thread_local SocketCalls* socketCallHooks = nullptr;

// Sets the calling thread's hooks for as long as it lives.
class Hooked {
public:
    explicit Hooked(SocketCalls& hooks) { socketCallHooks = &hooks; }
    ~Hooked() { socketCallHooks = nullptr; }
    Hooked(const Hooked&) = delete;
    Hooked& operator=(const Hooked&) = delete;
};

namespace socket_calls {

// The next definition of a call behind this program's own.
template <typename Function>
Function* system(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <typename Result, typename Function, typename Hook, typename... Arguments>
Result passOn(Hook SocketCalls::*hook, const char* name, Arguments... arguments)
{
    SocketCalls* hooks = socketCallHooks;
    if (!hooks || !(hooks->*hook)) return system<Function>(name)(arguments...);

    socketCallHooks = nullptr;
    struct Restore {
        SocketCalls* hooks;
        ~Restore() { socketCallHooks = hooks; }
    } restore{hooks};
    return (hooks->*hook)(arguments...);
}

}  // namespace socket_calls

// With 64-bit time on a 32-bit machine, the headers give some calls another name at link time.
#ifdef __USE_TIME_BITS64
#define CALL_SETSOCKOPT "__setsockopt64"
#define CALL_GETSOCKOPT "__getsockopt64"
#define CALL_IOCTL "__ioctl_time64"
#define CALL_SELECT "__select64"
#define CALL_TIME "__time64"
#else
#define CALL_SETSOCKOPT "setsockopt"
#define CALL_GETSOCKOPT "getsockopt"
#define CALL_IOCTL "ioctl"
#define CALL_SELECT "select"
#define CALL_TIME "time"
#endif

extern "C" {

int calledGetaddrinfo(const char* host, const char* port, const addrinfo* hints, addrinfo** found) __asm__("getaddrinfo");
void calledFreeaddrinfo(addrinfo* list) __asm__("freeaddrinfo");
int calledSocket(int family, int type, int protocol) __asm__("socket");
int calledSetsockopt(int socket, int level, int option, const void* value, socklen_t length) __asm__(CALL_SETSOCKOPT);
int calledGetsockopt(int socket, int level, int option, void* value, socklen_t* length) __asm__(CALL_GETSOCKOPT);
int calledIoctl(int socket, unsigned long request, ...) __asm__(CALL_IOCTL);
int calledConnect(int socket, const sockaddr* address, socklen_t length) __asm__("connect");
int calledSelect(int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout)
    __asm__(CALL_SELECT);
ssize_t calledSend(int socket, const void* bytes, size_t count, int flags) __asm__("send");
ssize_t calledRecv(int socket, void* bytes, size_t count, int flags) __asm__("recv");
int calledClose(int descriptor) __asm__("close");
time_t calledTime(time_t* result) __asm__(CALL_TIME);
int calledSigaction(int signal, const struct sigaction* action, struct sigaction* before) __asm__("sigaction");

int calledGetaddrinfo(const char* host, const char* port, const addrinfo* hints, addrinfo** found)
{
    return socket_calls::passOn<int, int(const char*, const char*, const addrinfo*, addrinfo**)>(
        &SocketCalls::getaddrinfo, "getaddrinfo", host, port, hints, found);
}

void calledFreeaddrinfo(addrinfo* list)
{
    socket_calls::passOn<void, void(addrinfo*)>(&SocketCalls::freeaddrinfo, "freeaddrinfo", list);
}

int calledSocket(int family, int type, int protocol)
{
    return socket_calls::passOn<int, int(int, int, int)>(&SocketCalls::socket, "socket", family, type, protocol);
}

int calledSetsockopt(int socket, int level, int option, const void* value, socklen_t length)
{
    return socket_calls::passOn<int, int(int, int, int, const void*, socklen_t)>(
        &SocketCalls::setsockopt, CALL_SETSOCKOPT, socket, level, option, value, length);
}

int calledGetsockopt(int socket, int level, int option, void* value, socklen_t* length)
{
    return socket_calls::passOn<int, int(int, int, int, void*, socklen_t*)>(
        &SocketCalls::getsockopt, CALL_GETSOCKOPT, socket, level, option, value, length);
}

int calledIoctl(int socket, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return socket_calls::passOn<int, int(int, unsigned long, ...)>(&SocketCalls::ioctl, CALL_IOCTL, socket, request,
                                                                   argument);
}

int calledConnect(int socket, const sockaddr* address, socklen_t length)
{
    return socket_calls::passOn<int, int(int, const sockaddr*, socklen_t)>(&SocketCalls::connect, "connect", socket,
                                                                           address, length);
}

int calledSelect(int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout)
{
    const int rc = socket_calls::passOn<int, int(int, fd_set*, fd_set*, fd_set*, timeval*)>(
        &SocketCalls::select, CALL_SELECT, count, reading, writing, exceptional, timeout);
#if defined(__SANITIZE_THREAD__)
    // It does not know this call: the handler of a signal that ended it waits for the next one that it knows.
    const int error = errno;
    usleep(0);
    errno = error;
#endif
    return rc;
}

ssize_t calledSend(int socket, const void* bytes, size_t count, int flags)
{
    return socket_calls::passOn<ssize_t, ssize_t(int, const void*, size_t, int)>(&SocketCalls::send, "send", socket,
                                                                                 bytes, count, flags);
}

ssize_t calledRecv(int socket, void* bytes, size_t count, int flags)
{
    return socket_calls::passOn<ssize_t, ssize_t(int, void*, size_t, int)>(&SocketCalls::recv, "recv", socket, bytes,
                                                                           count, flags);
}

int calledClose(int descriptor)
{
    return socket_calls::passOn<int, int(int)>(&SocketCalls::close, "close", descriptor);
}

time_t calledTime(time_t* result)
{
    return socket_calls::passOn<time_t, time_t(time_t*)>(&SocketCalls::time, CALL_TIME, result);
}

int calledSigaction(int signal, const struct sigaction* action, struct sigaction* before)
{
    return socket_calls::passOn<int, int(int, const struct sigaction*, struct sigaction*)>(
        &SocketCalls::sigaction, "sigaction", signal, action, before);
}

}  // extern "C"
