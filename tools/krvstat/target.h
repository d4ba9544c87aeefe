// Where a gateway is: the texts HOST, HOST:PORT, [IPV6], [IPV6]:PORT and IPV6, read and written.
#ifndef KRVSTAT_TARGET_H
#define KRVSTAT_TARGET_H

#include <string>
#include <string_view>

constexpr int DefaultPort = 7845; // where krvgwsim listens, too, unless it is told otherwise
constexpr const char* DefaultHost = "127.0.0.1";

struct Target {
    std::string host = DefaultHost; // a name or an address, without brackets
    int port = DefaultPort;
};

// Reads text into *target. Returns an empty string, or what is wrong with the text; *target is then as before.
std::string readTarget(std::string_view text, Target* target);

// HOST:PORT, or [IPV6]:PORT.
std::string targetText(const Target& target);

#endif
