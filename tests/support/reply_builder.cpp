// See reply_builder.h.
#include "reply_builder.h"

#include <algorithm>

namespace krvtest {

namespace {

// 32 bits, wherever the generator's own type is wider.
std::uint32_t draw(std::mt19937& random)
{
    return static_cast<std::uint32_t>(random());
}

struct Encoder {
    Bytes bytes;
    std::mt19937 filler;
};

void putByte(Encoder& out, unsigned int value)
{
    out.bytes.push_back(static_cast<unsigned char>(value));
}

void putFiller(Encoder& out, int count)
{
    static const unsigned char tempting[] = {blockLong, blockShort, 0, 1, 0xFF, 0x0E, 0x0F};
    for (int i = 0; i < count; i++) {
        std::uint32_t drawn = draw(out.filler);
        putByte(out, drawn % 3 == 0 ? tempting[drawn / 3 % sizeof tempting] : drawn / 3);
    }
}

void putLength(Encoder& out, int value)
{
    putByte(out, static_cast<unsigned int>(value) >> 8 & 0xFF);
    putByte(out, static_cast<unsigned int>(value) & 0xFF);
}

void putWord(Encoder& out, std::int32_t value)
{
    putLength(out, static_cast<int>(static_cast<std::uint32_t>(value) >> 16));
    putLength(out, static_cast<int>(static_cast<std::uint32_t>(value) & 0xFFFF));
}

void putText(Encoder& out, const std::string& text)
{
    out.bytes.insert(out.bytes.end(), text.begin(), text.end());
}

void putCounted(Encoder& out, const std::string& text)
{
    putLength(out, static_cast<int>(text.size()));
    putText(out, text);
}

void putSegment(Encoder& out, const ValueSegment& segment)
{
    putByte(out, static_cast<unsigned int>(segment.typeByte < 0 ? segment.form : segment.typeByte));
    if (segment.form == blockLong) {
        putFiller(out, 2);
        putLength(out, static_cast<int>(segment.bytes.size()));
    } else {
        putByte(out, static_cast<unsigned int>(segment.bytes.size()));
    }
    putText(out, segment.bytes);
}

void putElement(Encoder& out, const StatElement& element)
{
    std::size_t whole = element.firstPart.size();
    for (const ValueSegment& segment : element.continuation) whole += segment.bytes.size();

    putFiller(out, 5);
    if (element.chunked) {
        putByte(out, blockLong);
        putFiller(out, 2);
        putLength(out, element.statedChunkLength >= 0
                           ? element.statedChunkLength
                           : static_cast<int>(element.id.size() + element.firstPart.size() + 4));
    } else {
        putByte(out, element.plainType);
        putFiller(out, 1);
    }
    putCounted(out, element.id);
    putLength(out, element.statedValueLength >= 0 ? element.statedValueLength : static_cast<int>(whole));
    putText(out, element.firstPart);
    for (const ValueSegment& segment : element.continuation) putSegment(out, segment);
    putFiller(out, 2);
}

void putResponse(Encoder& out, ReplyKind kind, const Response& response)
{
    putFiller(out, 6);
    putCounted(out, response.firstSkipped);
    putFiller(out, 13);
    putCounted(out, response.secondSkipped);
    putFiller(out, 13);
    putByte(out, response.headType);
    putFiller(out, response.headType == blockShort ? 1 : 4);
    putCounted(out, response.queryElement);
    putWord(out, response.rc);
    if (response.rc < 0) {
        putFiller(out, 1);
        return;
    }
    std::size_t elements = kind == ReplyKind::Statistics ? response.statistics.size() : response.ids.size();
    putWord(out, response.counted ? static_cast<std::int32_t>(elements) : response.statedCount);
    if (kind == ReplyKind::Statistics) {
        putFiller(out, 2);
        putCounted(out, response.bodySkipped);
        putFiller(out, 8);
        for (const StatElement& element : response.statistics) putElement(out, element);
    } else {
        for (const std::string& id : response.ids) putCounted(out, id);
        putFiller(out, 1);
    }
}

int below(std::mt19937& random, int limit)
{
    return static_cast<int>(draw(random) % static_cast<std::uint32_t>(limit));
}

// Short lengths mostly, none and the longest now and then.
int randomLength(std::mt19937& random, int most)
{
    switch (below(random, 8)) {
    case 0: return 0;
    case 1: return most;
    case 2: return below(random, most + 1);
    default: return below(random, std::min(most, 24) + 1);
    }
}

std::string randomText(std::mt19937& random, int most)
{
    std::string text = letters(static_cast<std::size_t>(randomLength(random, most)), draw(random) % 1000);
    for (char& each : text)
        if (draw(random) % 16 == 0) each = static_cast<char>(draw(random) % 256);
    return text;
}

StatElement randomElement(std::mt19937& random, int mostLength)
{
    StatElement element;
    element.id = randomText(random, mostLength);
    std::string value = randomText(random, mostLength);
    element.firstPart = value;
    int form = below(random, 3);
    if (form == 0) { // plain, in a block of any other type
        element.plainType = static_cast<unsigned char>(below(random, 255));
        if (element.plainType >= blockLong) element.plainType++;
        return element;
    }
    element.chunked = true;
    // the chunk's length has 16 bits with a sign
    if (element.id.size() + value.size() + 4 > 32767) {
        element.id.resize(element.id.size() / 4);
        value.resize(value.size() / 2);
        element.firstPart = value;
    }
    if (form == 1 || value.empty()) { // fits, exactly or with more behind it in the same chunk
        element.statedChunkLength =
            std::min(32767, static_cast<int>(element.id.size() + value.size()) + 4 + below(random, 3));
        return element;
    }
    std::size_t at = static_cast<std::size_t>(below(random, static_cast<int>(value.size())));
    element.firstPart = value.substr(0, at);
    bool shortSeen = false;
    while (at < value.size()) {
        std::size_t left = value.size() - at;
        ValueSegment segment;
        std::size_t length;
        if (shortSeen || draw(random) % 3 == 0) {
            segment.form = blockShort;
            if (shortSeen) segment.typeByte = below(random, 256);
            shortSeen = true;
            length = std::min<std::size_t>(left, static_cast<std::size_t>(1 + below(random, 255)));
        } else {
            length = std::min<std::size_t>(left, static_cast<std::size_t>(below(random, static_cast<int>(left) + 1)));
            if (draw(random) % 4 == 0) length = left;
        }
        segment.bytes = value.substr(at, length);
        element.continuation.push_back(segment);
        at += length;
    }
    return element;
}

} // namespace

Bytes encodeReply(const Reply& reply)
{
    Encoder out{{}, std::mt19937(reply.fillerSeed)};
    putByte(out, static_cast<unsigned int>(reply.arrayFlag));
    if (reply.arrayFlag == 1)
        putWord(out, reply.counted ? static_cast<std::int32_t>(reply.responses.size()) : reply.statedCount);
    for (const Response& response : reply.responses) putResponse(out, reply.kind, response);
    return out.bytes;
}

StatElement plainElement(const std::string& id, const std::string& value)
{
    StatElement element;
    element.id = id;
    element.firstPart = value;
    return element;
}

StatElement chunkedElement(const std::string& id, const std::string& firstPart,
                           const std::vector<ValueSegment>& continuation)
{
    StatElement element = plainElement(id, firstPart);
    element.chunked = true;
    element.continuation = continuation;
    return element;
}

Response statsResponse(const std::string& queryElement, std::int32_t rc, const std::vector<StatElement>& statistics)
{
    Response response;
    response.queryElement = queryElement;
    response.rc = rc;
    response.statistics = statistics;
    return response;
}

Response idsResponse(const std::string& queryElement, std::int32_t rc, const std::vector<std::string>& ids)
{
    Response response;
    response.queryElement = queryElement;
    response.rc = rc;
    response.ids = ids;
    return response;
}

std::string letters(std::size_t length, unsigned int start)
{
    std::string text(length, ' ');
    for (std::size_t i = 0; i < length; i++) {
        std::size_t place = i + start;
        text[i] = static_cast<char>('!' + (place + place / 89) % 89);
    }
    return text;
}

Reply randomReply(std::mt19937& random, ReplyKind kind, const ReplyShape& shape)
{
    Reply reply;
    reply.kind = kind;
    reply.fillerSeed = draw(random);
    int responses = below(random, shape.mostResponses + 1);
    if (draw(random) % 3 == 0) { // a single response: any flag but 1
        reply.arrayFlag = below(random, 255);
        if (reply.arrayFlag >= 1) reply.arrayFlag++;
        responses = 1;
    } else if (draw(random) % 16 == 0) {
        reply.counted = false;
        reply.statedCount = -1 - below(random, 1000);
        responses = 0;
    }
    for (int i = 0; i < responses; i++) {
        Response response;
        response.firstSkipped = randomText(random, shape.mostLength);
        response.secondSkipped = randomText(random, shape.mostLength);
        response.bodySkipped = randomText(random, shape.mostLength);
        response.queryElement = randomText(random, shape.mostLength);
        response.headType = static_cast<unsigned char>(draw(random) % 2 == 0 ? blockShort : draw(random) % 256);
        if (draw(random) % 4 == 0) {
            response.rc = -1 - below(random, 100000);
        } else {
            response.rc = draw(random) % 4 == 0 ? below(random, 100000) : 0;
            int elements = below(random, shape.mostElements + 1);
            if (draw(random) % 16 == 0) {
                response.counted = false;
                response.statedCount = -1 - below(random, 1000);
                elements = 0;
            }
            for (int j = 0; j < elements; j++) {
                if (kind == ReplyKind::Statistics)
                    response.statistics.push_back(randomElement(random, shape.mostLength));
                else
                    response.ids.push_back(randomText(random, shape.mostLength));
            }
        }
        reply.responses.push_back(response);
    }
    return reply;
}

} // namespace krvtest
