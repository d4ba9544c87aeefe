// Bytes of the gateway's protocol, put together by hand: what a client must send and what a gateway may answer.
//
// Nothing here uses the library: tests compare its bytes with these. Integers are big-endian on the wire.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace krvtest {

using Bytes = std::vector<unsigned char>;

Bytes operator+(Bytes left, const Bytes& right);

// "47 61 74 65": pairs of hex digits, blanks between them are free.
Bytes hex(std::string_view digits);

Bytes text(std::string_view characters);
Bytes zeros(std::size_t count);
Bytes be16(std::uint32_t value);
Bytes be32(std::uint32_t value);
Bytes be32(std::int32_t value);

// A text behind its 2-byte length.
Bytes counted(std::string_view characters);

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t count);

// The 4-byte integer that stands at an offset, which must be inside.
std::int32_t wordAt(const Bytes& bytes, std::size_t offset);

// Lines of 16 bytes with their offset.
std::string hexPicture(const Bytes& bytes);

// Fails with both pictures and the first offset that differs.
testing::AssertionResult sameBytes(const Bytes& expected, const Bytes& actual);

// ---- Replies ------------------------------------------------------------------------------------------------------

// The header of a reply. A client reads as many name bytes as it sent itself: a well-formed reply carries a name of the
// request's length ("BASE" to handshake and close, "Auth", "Admin").
struct ReplyHeader {
    std::uint32_t eyecatcher = 0x47617465;  // offset 0, "Gate"
    std::int32_t flowVersion = 0x700000;    // offset 4
    std::int32_t flowType = 1;              // offset 8
    std::int32_t messageId = 0;             // offset 12
    std::int32_t gatewayRc = 0;             // offset 16
    std::int32_t nameLength = -1;           // offset 20; -1: the name's own
    std::string name = "Admin";             // offset 24
    unsigned char security = 0;             // behind the name
    std::int32_t datalength = 0;            // behind the security byte
};

Bytes replyHeader(const ReplyHeader& header);

// A well-formed reply: the header with this name and the body's length, and the body.
Bytes reply(std::string_view name, const Bytes& body);

// The same with a return code of the gateway.
Bytes refusal(std::string_view name, std::int32_t gatewayRc, const Bytes& body = {});

Bytes handshakeReply();
Bytes closeReply();

// Bodies and whole replies of the authorisation. protocolMap and returnMap have 8 bytes, serverVersion 4.
Bytes authInitBody(const Bytes& protocolMap, const Bytes& serverVersion, std::int32_t authRc = 0);
Bytes authConfirmBody(const Bytes& returnMap, std::int32_t authRc = 0);
Bytes authInitReply(const Bytes& protocolMap, const Bytes& serverVersion, std::int32_t authRc = 0);
Bytes authConfirmReply(const Bytes& returnMap, std::int32_t authRc = 0);

// Bodies and whole replies of admin calls. callType is that of the reply: 1 get attribute, 5 invoke.
Bytes adminInitBody(const Bytes& serverVersion, std::int32_t adminRc = 0);
Bytes adminCallBody(std::int32_t callType, const Bytes& callData, std::int32_t adminRc = 0,
                    unsigned char exceptionFlag = 0);
Bytes adminInitReply(const Bytes& serverVersion, std::int32_t adminRc = 0);
Bytes adminCallReply(std::int32_t callType, const Bytes& callData, std::int32_t adminRc = 0,
                     unsigned char exceptionFlag = 0);

// The data of a get-attribute reply: six bytes nobody reads, a 2-byte length, the text.
Bytes attributeData(std::string_view version);

// ---- Data of an invoke reply: one response, everything that is skipped filled with 0x5A ---------------------------

struct Statistic {
    std::string id;
    std::string value;
};

// With these ids, or, where queryRc is negative, without a body.
Bytes idsData(std::string_view queryElement, std::int32_t queryRc, const std::vector<std::string>& ids);

// With these statistics, each a plain element.
Bytes statsData(std::string_view queryElement, std::int32_t queryRc, const std::vector<Statistic>& statistics);

// ---- Requests -----------------------------------------------------------------------------------------------------

// The header that every request opens with: messageId travels at offset 16, behind a zero return code.
Bytes requestHeader(std::int32_t flowType, std::int32_t messageId, std::string_view name, std::int32_t datalength);

Bytes handshakeRequest();
Bytes closeRequest();
Bytes authInitRequest();
Bytes authConfirmRequest(const Bytes& protocolMap, const Bytes& serverVersion);
Bytes adminInitRequest();
Bytes getProtocolRequest(const Bytes& serverVersion);
Bytes invokeRequest(const Bytes& serverVersion, std::string_view operation, std::string_view argument);

}  // namespace krvtest
