#include "lookup.h"

#include "leftbehind.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

namespace {

constexpr std::size_t MostAddresses = 8;

// Shared by the one who waits and the thread, whoever leaves last.
struct Lookup {
    std::mutex lock;
    std::condition_variable isAnswered;
    bool done = false;
    std::vector<std::string> addresses;
};

bool isAddress(const std::string& host)
{
    in_addr ignored4;
    in6_addr ignored6;
    return inet_pton(AF_INET, host.c_str(), &ignored4) == 1 || host.find('%') != std::string::npos ||
           inet_pton(AF_INET6, host.c_str(), &ignored6) == 1;
}

std::vector<std::string> askResolver(const std::string& host)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    std::vector<std::string> addresses;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return addresses;
    for (const addrinfo* each = found; each != nullptr && addresses.size() < MostAddresses; each = each->ai_next) {
        char text[NI_MAXHOST];
        if (getnameinfo(each->ai_addr, each->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) continue;
        if (std::find(addresses.begin(), addresses.end(), text) == addresses.end()) addresses.emplace_back(text);
    }
    freeaddrinfo(found);
    return addresses;
}

void resolve(const std::shared_ptr<Lookup>& lookup, const std::string& host)
{
    std::vector<std::string> addresses = askResolver(host);
    const std::lock_guard<std::mutex> guard(lookup->lock);
    lookup->addresses = std::move(addresses);
    lookup->done = true;
    lookup->isAnswered.notify_one();
}

} // namespace

LookupEnd lookUp(const std::string& host, Deadline deadline, std::vector<std::string>* addresses)
{
    if (isAddress(host)) {
        *addresses = {host};
        return LookupEnd::Found;
    }
    const auto lookup = std::make_shared<Lookup>();
    std::thread asker(resolve, lookup, host);

    std::unique_lock<std::mutex> guard(lookup->lock);
    if (!lookup->isAnswered.wait_until(guard, deadline.at, [&] { return lookup->done; })) {
        noteThreadLeftBehind();
        asker.detach();
        return LookupEnd::Late;
    }
    *addresses = lookup->addresses;
    guard.unlock();
    asker.join();
    return addresses->empty() ? LookupEnd::Unknown : LookupEnd::Found;
}
