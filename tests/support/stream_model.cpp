// See stream_model.h.
#include "stream_model.h"

#include <stdexcept>

namespace krvtest {

namespace {

constexpr int outOfMemory = -111;
constexpr int badReply = -122;
constexpr std::int32_t eyecatcher = 0x47617465;
constexpr std::int32_t flowVersionOfFirstRequest = 0x700000;

bool takeBytes(Stream& stream, std::size_t count, Bytes& taken)
{
    if (stream.bytes.size() - stream.at < count) {
        stream.at = stream.bytes.size();
        return false;
    }
    taken = slice(stream.bytes, stream.at, count);
    stream.at += count;
    return true;
}

int signedShortAt(const Bytes& bytes, std::size_t offset)
{
    const int value = bytes.at(offset) * 256 + bytes.at(offset + 1);
    return value >= 32768 ? value - 65536 : value;
}

// The fixed part of an admin reply. isInit: the reply to an init call.
ModelCall modelAdminReply(Stream& stream, std::int32_t requestFlowVersion, std::int32_t& replyFlowVersion)
{
    ModelReply reply = modelReply(stream, 5);
    replyFlowVersion = reply.flowVersion;
    if (reply.rc != 0) return {reply.rc, {}};
    if (!reply.body) return {requestFlowVersion != 0 ? -3 : badReply, {}}; // its place is the result's in a reply
    const Bytes& body = *reply.body;
    if (body.size() < 8) return {badReply, {}};
    if (wordAt(body, 4) != 0) return {-3, {}};
    if (wordAt(body, 0) == 0) return {0, {}}; // an init reply
    if (body.size() < 9) return {badReply, {}};
    if (body[8] != 0) return {-3, {}};
    return {0, slice(body, 9, body.size() - 9)};
}

// The API's code for what a call on the statistics object came to.
int commsCode(int rc)
{
    if (rc == 0) return 0;
    return rc == -1 ? -102 : badReply;
}

// The API's code for what connecting came to.
int connectCode(int rc)
{
    switch (rc) {
    case 0: return 0;
    case -101: return -132;
    case -103: return -134;
    case -104: return -135;
    case -105: return -136;
    default: return -118;
    }
}

} // namespace

ModelReply modelReply(Stream& stream, std::size_t nameSize)
{
    Bytes header;
    if (!takeBytes(stream, nameSize + 29, header)) return {badReply, 0, {}};
    if (wordAt(header, 0) != eyecatcher) return {badReply, 0, {}};
    const std::int32_t nameLength = wordAt(header, 20);
    if (nameLength < 0 || nameLength > static_cast<std::int32_t>(nameSize)) return {badReply, 0, {}};

    ModelReply reply;
    reply.flowVersion = wordAt(header, 4);
    const std::int32_t bodySize = wordAt(header, 25 + static_cast<std::size_t>(nameLength));
    if (bodySize > 0) {
        if (static_cast<std::size_t>(bodySize) > stream.mostBody) return {outOfMemory, 0, {}};
        Bytes body;
        if (!takeBytes(stream, static_cast<std::size_t>(bodySize), body)) return {badReply, 0, {}};
        reply.body = body;
    }
    reply.rc = wordAt(header, 16);
    return reply;
}

int modelAuthorisation(Stream& stream)
{
    for (int step = 0; step < 2; step++) {
        ModelReply reply = modelReply(stream, 4);
        if (reply.rc != 0) return reply.rc;
        if (!reply.body) continue; // the request's eyecatcher stands for the call type: not an init reply
        if (reply.body->size() < 8) return badReply;
        if (wordAt(*reply.body, 0) == 0 && wordAt(*reply.body, 4) != 0) return -2;
    }
    return 0;
}

ModelCall modelAdminCalls(Stream& stream)
{
    std::int32_t flowVersion = 0;
    ModelCall init = modelAdminReply(stream, flowVersionOfFirstRequest, flowVersion);
    if (init.rc != 0) return {init.rc, {}};
    std::int32_t unused = 0;
    return modelAdminReply(stream, flowVersion, unused);
}

ModelVersion modelVersion(Stream& stream)
{
    ModelCall call = modelAdminCalls(stream);
    if (call.rc != 0) return {call.rc, ""};
    if (!call.data || call.data->size() < 8) return {badReply, ""};
    const int length = signedShortAt(*call.data, 6);
    if (length < 0 || length >= 64) return {badReply, ""};
    if (call.data->size() < 8 + static_cast<std::size_t>(length)) return {badReply, ""};
    return {0, std::string(call.data->begin() + 8, call.data->begin() + 8 + length)};
}

ModelVersion modelOpen(Stream& stream)
{
    if (modelReply(stream, 4).rc != 0) return {-118, ""};
    const int rc = modelAuthorisation(stream);
    if (rc != 0) return {connectCode(rc), ""};
    ModelVersion version = modelVersion(stream);
    version.rc = commsCode(version.rc);
    return version;
}

ModelAnswer modelQuery(Stream& stream, ReplyKind kind, int capacity)
{
    ModelCall call = modelAdminCalls(stream);
    if (call.rc != 0) return {commsCode(call.rc), {}};
    if (!call.data) return {badReply, {}};
    std::optional<DecodedReply> decoded = strictlyDecoded(kind, *call.data, capacity);
    if (!decoded) return {badReply, {}};
    return {0, *decoded};
}

std::optional<DecodedReply> strictlyDecoded(ReplyKind kind, const Bytes& data, int capacity)
{
    try {
        const DecodedReply decoded = decodeReply(kind, data, capacity);
        if (!decoded.addsUp) return std::nullopt;
        return decoded;
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

} // namespace krvtest
