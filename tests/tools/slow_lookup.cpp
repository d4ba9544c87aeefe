// A getaddrinfo of a test's own, loaded before that of the C library: "slow.example" takes a minute and is not found
// then, "two.example" has the addresses 127.0.0.9 and 127.0.0.1, all others are looked up as usual.

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

namespace {

using Getaddrinfo = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

Getaddrinfo usual()
{
    return reinterpret_cast<Getaddrinfo>(dlsym(RTLD_NEXT, "getaddrinfo"));
}

} // namespace

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** found)
{
    if (node != nullptr && std::strcmp(node, "slow.example") == 0) {
        sleep(60);
        return EAI_NONAME;
    }
    if (node == nullptr || std::strcmp(node, "two.example") != 0) return usual()(node, service, hints, found);
    addrinfo* second = nullptr;
    int problem = usual()("127.0.0.9", service, hints, found);
    if (problem == 0) problem = usual()("127.0.0.1", service, hints, &second);
    if (problem == 0) (*found)->ai_next = second;
    return problem;
}
