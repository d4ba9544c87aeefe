#include "fixed_width_reader.h"

namespace krvgwtest {
namespace {

constexpr unsigned char LONG_BLOCK = 0x7A;
constexpr unsigned char SHORT_BLOCK = 0x77;

struct Cursor {
    const Bytes& data;
    std::size_t at = 0;
    bool isPast = false;
};

std::string take(Cursor& cursor, std::int64_t count)
{
    if (cursor.isPast || count < 0 || static_cast<std::size_t>(count) > cursor.data.size() - cursor.at) {
        cursor.isPast = true;
        return "";
    }
    const auto from = cursor.data.begin() + static_cast<std::ptrdiff_t>(cursor.at);
    cursor.at += static_cast<std::size_t>(count);
    return std::string(from, from + static_cast<std::ptrdiff_t>(count));
}

std::int64_t number(Cursor& cursor, int width)
{
    std::uint32_t value = 0;
    for (const char c : take(cursor, width)) value = (value << 8) | static_cast<unsigned char>(c);
    if (width == 2) return static_cast<std::int16_t>(value);
    if (width == 4) return static_cast<std::int32_t>(value);
    return value;
}

unsigned char peek(const Cursor& cursor)
{
    return cursor.isPast || cursor.at >= cursor.data.size() ? 0 : cursor.data[cursor.at];
}

std::string counted(Cursor& cursor)
{
    return take(cursor, number(cursor, 2));
}

std::string readSegments(Cursor& cursor, std::int64_t remaining)
{
    std::string value;
    unsigned char type = peek(cursor);
    while (type == LONG_BLOCK && remaining > 0 && !cursor.isPast) {
        take(cursor, 3);                                 // type, high half of the length
        const std::int64_t length = number(cursor, 2);
        value += take(cursor, length);
        remaining -= length;
        type = peek(cursor);
    }
    while (type == SHORT_BLOCK && remaining > 0 && !cursor.isPast) {
        take(cursor, 1);                                 // type
        const std::int64_t length = number(cursor, 1);
        value += take(cursor, length);
        remaining -= length;
    }
    return value;
}

ReadElement readStatistic(Cursor& cursor)
{
    take(cursor, 5);
    const bool isChunked = peek(cursor) == LONG_BLOCK;
    std::int64_t chunk = 0;
    if (isChunked) {
        take(cursor, 3);
        chunk = number(cursor, 2);
    } else {
        take(cursor, 2);
    }
    ReadElement element{counted(cursor), ""};
    const std::int64_t length = number(cursor, 2);
    const std::int64_t inChunk = chunk - static_cast<std::int64_t>(element.id.size()) - 4;
    if (!isChunked || length <= inChunk) {
        element.value = take(cursor, length);
    } else {
        element.value = take(cursor, inChunk);
        element.value += readSegments(cursor, length - inChunk);
        if (element.value.size() != static_cast<std::size_t>(length)) cursor.isPast = true;
    }
    take(cursor, 2);
    return element;
}

ReadResponse readResponse(Cursor& cursor, ResultKind kind)
{
    take(cursor, 6);
    counted(cursor);
    take(cursor, 13);
    counted(cursor);
    take(cursor, 13);
    take(cursor, peek(cursor) == SHORT_BLOCK ? 2 : 5);

    ReadResponse response;
    response.queryElement = counted(cursor);
    response.rc = static_cast<std::int32_t>(number(cursor, 4));
    if (response.rc >= 0) {
        const std::int64_t count = number(cursor, 4);
        if (kind == ResultKind::Stats) {
            take(cursor, 2);
            counted(cursor);
            take(cursor, 8);
        }
        for (std::int64_t i = 0; i < count && !cursor.isPast; ++i) {
            if (kind == ResultKind::Stats)
                response.elements.push_back(readStatistic(cursor));
            else
                response.elements.push_back({counted(cursor), ""});
        }
    }
    if (response.rc < 0 || kind == ResultKind::Ids) take(cursor, 1);
    return response;
}

}  // namespace

ReadResult readResult(const Bytes& data, ResultKind kind)
{
    Cursor cursor{data};
    ReadResult result;
    result.isArray = number(cursor, 1) == 1;
    const std::int64_t count = result.isArray ? number(cursor, 4) : 1;
    for (std::int64_t i = 0; i < count && !cursor.isPast; ++i) result.responses.push_back(readResponse(cursor, kind));
    result.isWhole = !cursor.isPast && cursor.at == data.size();
    return result;
}

}  // namespace krvgwtest
