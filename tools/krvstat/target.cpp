// Tells host and port apart.
//
// An IPv6 address may stand without brackets, but then without a port: of the colons in "::1:7845" none can be told to
// begin a port. So a text with two colons or more is an address as a whole. Host names are only tested for characters
// that no name has; whether one exists is for the resolver to say.

#include "target.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>

namespace {

constexpr int LeastPort = 1;
constexpr int GreatestPort = 65535;

bool isHostCharacter(char c)
{
    const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return isLetter || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
}

// An IPv6 address, with or without a zone as in fe80::1%eth0.
bool isIpv6Address(std::string_view text)
{
    const std::size_t zone = text.find('%');
    if (zone != std::string_view::npos && zone + 1 == text.size()) return false;
    in6_addr ignored;
    return inet_pton(AF_INET6, std::string(text.substr(0, zone)).c_str(), &ignored) == 1;
}

std::string readPort(std::string_view text, int* port)
{
    int value = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, value);
    const bool isNumber = read.ptr == end && text.find('-') == std::string_view::npos && !text.empty();
    if (text.empty()) return "the port behind ':' is missing";
    if (!isNumber || read.ec == std::errc::invalid_argument) return "the port is not a number";
    if (read.ec != std::errc() || value < LeastPort || value > GreatestPort) {
        return fmt::format("the port is not in the range {} to {}", LeastPort, GreatestPort);
    }
    *port = value;
    return "";
}

std::string readBracketed(std::string_view text, Target* target)
{
    const std::size_t close = text.find(']');
    if (close == std::string_view::npos) return "']' is missing";
    const std::string_view host = text.substr(1, close - 1);
    const std::string_view rest = text.substr(close + 1);
    if (!isIpv6Address(host)) return "what stands between '[' and ']' is not an IPv6 address";
    if (!rest.empty() && rest.front() != ':') return "behind ']' only ':' and a port may follow";

    int port = target->port;
    if (!rest.empty()) {
        std::string problem = readPort(rest.substr(1), &port);
        if (!problem.empty()) return problem;
    }
    *target = Target{std::string(host), port};
    return "";
}

std::string readNamed(std::string_view text, Target* target)
{
    const std::size_t colon = text.find(':');
    const std::string_view host = text.substr(0, colon);
    if (host.empty()) return "the host is missing";
    if (!std::all_of(host.begin(), host.end(), isHostCharacter)) {
        return "a host name consists of letters, digits, '.', '-' and '_'";
    }

    int port = target->port;
    if (colon != std::string_view::npos) {
        std::string problem = readPort(text.substr(colon + 1), &port);
        if (!problem.empty()) return problem;
    }
    *target = Target{std::string(host), port};
    return "";
}

} // namespace

std::string readTarget(std::string_view text, Target* target)
{
    if (text.empty()) return "the host is missing";
    if (text.front() == '[') return readBracketed(text, target);
    if (std::count(text.begin(), text.end(), ':') < 2) return readNamed(text, target);
    if (!isIpv6Address(text)) return "it is neither HOST, HOST:PORT, [IPV6]:PORT nor an IPv6 address";
    target->host = std::string(text);
    return "";
}

std::string targetText(const Target& target)
{
    const bool isIpv6 = target.host.find(':') != std::string::npos;
    return isIpv6 ? fmt::format("[{}]:{}", target.host, target.port) : fmt::format("{}:{}", target.host, target.port);
}
