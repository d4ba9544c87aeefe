// The least that a task can take, without a check and without a choice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "krvstats.h"

namespace krvbench {

inline std::size_t lengthAt(const unsigned char* at)
{
    uint16_t big;
    std::memcpy(&big, at, sizeof big);
    return __builtin_bswap16(big);
}

inline char* putLength(char* to, std::size_t length)
{
    const auto word = static_cast<int32_t>(length);
    std::memcpy(to, &word, sizeof word);
    return to + sizeof word;
}

// Copies 8 to 16 bytes by two words, which may overlap; others as the C library does.
inline char* putText(char* to, const unsigned char* from, std::size_t length)
{
    if (length >= 8 && length <= 16) {
        uint64_t first;
        uint64_t last;
        std::memcpy(&first, from, 8);
        std::memcpy(&last, from + length - 8, 8);
        std::memcpy(to, &first, 8);
        std::memcpy(to + length - 8, &last, 8);
    } else {
        std::memcpy(to, from, length);
    }
    return to + length;
}

// Turns `count` plain statistics of a reply, the first of which stands at `at`, into those of a result set.
inline char* parseMinimally(const unsigned char* at, std::size_t count, char* to)
{
    for (std::size_t i = 0; i < count; ++i) {
        at += 7; // marks, code and length of the block
        const std::size_t id = lengthAt(at);
        to = putText(putLength(to, id), at + 2, id);
        at += 2 + id;
        const std::size_t value = lengthAt(at);
        to = putText(putLength(to, value), at + 2, value);
        at += 2 + value + 2;
    }
    return to;
}

// Where the first statistic of a reply stands: behind the texts that describe it.
inline const unsigned char* firstStatistic(const unsigned char* at)
{
    at += 1 + 6;
    at += 2 + lengthAt(at) + 13;
    at += 2 + lengthAt(at) + 13;
    at += *at == 0x77 ? 2 : 5;
    at += 2 + lengthAt(at) + 4 + 4 + 2;
    return at + 2 + lengthAt(at) + 8;
}

// Looks at `count` statistics of a result set as a walk shows them; calls `look` with each.
template <typename Look>
inline void walkMinimally(char* at, std::size_t count, Look look)
{
    for (std::size_t i = 0; i < count; ++i) {
        KRV_StatData_t stat;
        int32_t length;
        std::memcpy(&length, at, sizeof length);
        stat.statIdLen = length;
        stat.statIdPtr = at + sizeof length;
        at += sizeof length + static_cast<std::size_t>(length);
        std::memcpy(&length, at, sizeof length);
        stat.statValueLen = length;
        stat.statValuePtr = at + sizeof length;
        at += sizeof length + static_cast<std::size_t>(length);
        look(stat);
    }
}

} // namespace krvbench
