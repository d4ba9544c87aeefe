// Bodies only; the header is put in front by makeReply.
#include "replies.h"

#include "javastream.h"

namespace krvgw {
namespace {

constexpr std::uint32_t CALL_INIT = 0;
constexpr std::uint32_t CALL_GET_ATTRIBUTE = 1;
constexpr std::uint32_t CALL_INVOKE = 5;

void putAdminStart(Message& body, std::uint32_t callType, bool isException)
{
    put32(body, callType, Field::CallType);
    put32(body, 0, Field::AdminRc);
    put8(body, isException ? 1 : 0, Field::ExceptionFlag);
}

void putOpaque(Message& body, const Bytes& opaque)
{
    body.marks.push_back({Field::OpaqueBytes, body.bytes.size(), opaque.size()});
    putBytes(body, opaque);
}

}  // namespace

Message handshakeReplyBody()
{
    Message body;
    putUtf(body, "en");
    putUtf(body, "GB");
    putBytes(body, Bytes(10, 0));
    return body;
}

Message authReplyBody(std::uint32_t callType, const Bytes& opaque)
{
    Message body;
    put32(body, callType, Field::CallType);
    put32(body, 0, Field::AuthRc);
    putOpaque(body, opaque);
    return body;
}

Message initReplyBody(const Bytes& opaque)
{
    Message body;
    put32(body, CALL_INIT, Field::CallType);
    put32(body, 0, Field::AdminRc);
    putOpaque(body, opaque);
    return body;
}

Message attributeReplyBody(std::string_view text)
{
    Message body;
    putAdminStart(body, CALL_GET_ATTRIBUTE, false);
    put8(body, 0, Field::ArrayFlag);
    putStringStream(body, text, Field::VersionLength);
    return body;
}

Message operationReplyBody(Operation operation, const Result& result)
{
    Message body;
    putAdminStart(body, CALL_INVOKE, false);
    put8(body, result.isArray ? 1 : 0, Field::ArrayFlag);
    if (result.isArray) put32(body, static_cast<std::uint32_t>(result.responses.size()), Field::ResponseCount);
    for (const Response& response : result.responses) {
        if (operation == Operation::GetStats)
            putStatsResponse(body, response);
        else
            putIdsResponse(body, response);
    }
    return body;
}

Message exceptionReplyBody(std::uint32_t callType, std::string_view reason)
{
    Message body;
    putAdminStart(body, callType, true);
    put8(body, 0, Field::ArrayFlag);
    putStringStream(body, reason, Field::VersionLength);
    return body;
}

}  // namespace krvgw
