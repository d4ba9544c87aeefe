// A conversation in three calls, and what they give: open, getStats, close. For tests that let something fail on its way.
#ifndef TESTS_SESSION_SHORT_CONVERSATION_H
#define TESTS_SESSION_SHORT_CONVERSATION_H

#include <filesystem>
#include <ostream>
#include <string>

#include "krvstats.h"
#include "ready_gateway.h"
#include "wire_bytes.h"

namespace krvtest {

// Its requests, in their order, from 0.
constexpr int lastGreeting = 2;
constexpr int lastOfOpening = 4;
constexpr int lastOfQuery = 6;

inline Bytes allReplies()
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

inline bool operator==(const Gained& left, const Gained& right)
{
    return left.open == right.open && left.stats == right.stats && left.answer == right.answer
        && left.close == right.close;
}

inline std::ostream& operator<<(std::ostream& out, const Gained& gained)
{
    return out << "open " << gained.open << ", statistics " << gained.stats << " \"" << gained.answer << "\", close "
               << gained.close;
}

inline const Gained everythingRight = {0, 0, "a=1 b=two ", 0};

inline Gained converse(int port)
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

inline std::size_t openFiles()
{
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator("/proc/self/fd")) files++;
    return files;
}

} // namespace krvtest

#endif
