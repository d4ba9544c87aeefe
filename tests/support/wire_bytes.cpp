#include "wire_bytes.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace krvtest {

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes hex(std::string_view digits)
{
    Bytes bytes;
    int pending = -1;
    for (char digit : digits) {
        int value = 0;
        if (digit >= '0' && digit <= '9') value = digit - '0';
        else if (digit >= 'A' && digit <= 'F') value = digit - 'A' + 10;
        else if (digit >= 'a' && digit <= 'f') value = digit - 'a' + 10;
        else if (digit == ' ' || digit == '\n') continue;
        else throw std::invalid_argument("not a hex digit");
        if (pending < 0) {
            pending = value;
        } else {
            bytes.push_back(static_cast<unsigned char>(pending * 16 + value));
            pending = -1;
        }
    }
    if (pending >= 0) throw std::invalid_argument("half a byte");
    return bytes;
}

Bytes text(std::string_view characters)
{
    return Bytes(characters.begin(), characters.end());
}

Bytes zeros(std::size_t count)
{
    return Bytes(count, 0);
}

Bytes be16(std::uint32_t value)
{
    return {static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
}

Bytes be32(std::uint32_t value)
{
    return {static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
            static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
}

Bytes be32(std::int32_t value)
{
    return be32(static_cast<std::uint32_t>(value));
}

Bytes counted(std::string_view characters)
{
    return be16(static_cast<std::uint32_t>(characters.size())) + text(characters);
}

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t count)
{
    if (from > bytes.size() || count > bytes.size() - from) throw std::out_of_range("no such slice");
    auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return Bytes(first, first + static_cast<std::ptrdiff_t>(count));
}

std::int32_t wordAt(const Bytes& bytes, std::size_t offset)
{
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 4; ++i) word = word << 8 | bytes.at(offset + i);
    return static_cast<std::int32_t>(word);
}

std::string hexPicture(const Bytes& bytes)
{
    constexpr std::size_t Width = 16;
    std::string picture;
    for (std::size_t line = 0; line < bytes.size(); line += Width) {
        char cell[32];
        std::snprintf(cell, sizeof cell, "%06zx:", line);
        picture += cell;
        std::size_t end = std::min(line + Width, bytes.size());
        for (std::size_t i = line; i < end; ++i) {
            std::snprintf(cell, sizeof cell, " %02X", static_cast<unsigned int>(bytes[i]));
            picture += cell;
        }
        picture += "  ";
        for (std::size_t i = line; i < end; ++i) {
            bool printable = bytes[i] >= 0x20 && bytes[i] < 0x7F;
            picture += printable ? static_cast<char>(bytes[i]) : '.';
        }
        picture += '\n';
    }
    return picture;
}

namespace {

constexpr std::size_t MostShown = 512;  // bytes of a picture in a failure

}  // namespace

testing::AssertionResult sameBytes(const Bytes& expected, const Bytes& actual)
{
    if (expected == actual) return testing::AssertionSuccess();

    auto different = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    auto offset = static_cast<std::size_t>(different.first - expected.begin());
    std::size_t from = offset > MostShown / 2 ? (offset - MostShown / 2) / 16 * 16 : 0;
    auto shown = [from](const Bytes& bytes) {
        if (from >= bytes.size()) return std::string();
        return hexPicture(slice(bytes, from, std::min(MostShown, bytes.size() - from)));
    };
    return testing::AssertionFailure() << "the bytes differ from offset " << offset << " on; shown from offset " << from
                                       << "\nexpected " << expected.size() << " bytes:\n"
                                       << shown(expected) << "got " << actual.size() << " bytes:\n"
                                       << shown(actual);
}

Bytes replyHeader(const ReplyHeader& header)
{
    std::int32_t nameLength =
        header.nameLength == -1 ? static_cast<std::int32_t>(header.name.size()) : header.nameLength;
    return be32(header.eyecatcher) + be32(header.flowVersion) + be32(header.flowType) + be32(header.messageId) +
           be32(header.gatewayRc) + be32(nameLength) + text(header.name) + Bytes{header.security} +
           be32(header.datalength);
}

Bytes reply(std::string_view name, const Bytes& body)
{
    return refusal(name, 0, body);
}

Bytes refusal(std::string_view name, std::int32_t gatewayRc, const Bytes& body)
{
    ReplyHeader header;
    header.name = name;
    header.gatewayRc = gatewayRc;
    header.datalength = static_cast<std::int32_t>(body.size());
    return replyHeader(header) + body;
}

Bytes handshakeReply()
{
    return reply("BASE", {});
}

Bytes closeReply()
{
    return reply("BASE", {});
}

Bytes authInitBody(const Bytes& protocolMap, const Bytes& serverVersion, std::int32_t authRc)
{
    return be32(0) + be32(authRc) + protocolMap + serverVersion;
}

Bytes authConfirmBody(const Bytes& returnMap, std::int32_t authRc)
{
    return be32(1) + be32(authRc) + returnMap;
}

Bytes authInitReply(const Bytes& protocolMap, const Bytes& serverVersion, std::int32_t authRc)
{
    return reply("Auth", authInitBody(protocolMap, serverVersion, authRc));
}

Bytes authConfirmReply(const Bytes& returnMap, std::int32_t authRc)
{
    return reply("Auth", authConfirmBody(returnMap, authRc));
}

Bytes adminInitBody(const Bytes& serverVersion, std::int32_t adminRc)
{
    return be32(0) + be32(adminRc) + serverVersion;
}

Bytes adminCallBody(std::int32_t callType, const Bytes& callData, std::int32_t adminRc, unsigned char exceptionFlag)
{
    return be32(callType) + be32(adminRc) + Bytes{exceptionFlag} + callData;
}

Bytes adminInitReply(const Bytes& serverVersion, std::int32_t adminRc)
{
    return reply("Admin", adminInitBody(serverVersion, adminRc));
}

Bytes adminCallReply(std::int32_t callType, const Bytes& callData, std::int32_t adminRc, unsigned char exceptionFlag)
{
    return reply("Admin", adminCallBody(callType, callData, adminRc, exceptionFlag));
}

Bytes attributeData(std::string_view version)
{
    return Bytes(6, 0x5A) + counted(version);
}

namespace {

// What both kinds of response open with, up to the return code.
Bytes responseStart(std::string_view queryElement, std::int32_t queryRc)
{
    return Bytes(6, 0x5A) + counted("ResponseClass") + Bytes(13, 0x5A) + counted("SuperClass") + Bytes(13, 0x5A) +
           hex("77 5A") +  // a short block and its length
           counted(queryElement) + be32(queryRc);
}

}  // namespace

Bytes idsData(std::string_view queryElement, std::int32_t queryRc, const std::vector<std::string>& ids)
{
    Bytes data = hex("00") + responseStart(queryElement, queryRc);  // no array: one response
    if (queryRc >= 0) {
        data = data + be32(static_cast<std::uint32_t>(ids.size()));
        for (const std::string& id : ids) data = data + counted(id);
    }
    return data + hex("78");  // the end of the block
}

Bytes statsData(std::string_view queryElement, std::int32_t queryRc, const std::vector<Statistic>& statistics)
{
    Bytes data = hex("00") + responseStart(queryElement, queryRc);
    if (queryRc < 0) return data + hex("78");

    data = data + be32(static_cast<std::uint32_t>(statistics.size())) + Bytes(2, 0x5A) + counted("ElementClass") +
           Bytes(8, 0x5A);
    for (const Statistic& statistic : statistics) {
        data = data + Bytes(5, 0x5A) + hex("77 5A") + counted(statistic.id) + counted(statistic.value) + Bytes(2, 0x5A);
    }
    return data;
}

Bytes requestHeader(std::int32_t flowType, std::int32_t messageId, std::string_view name, std::int32_t datalength)
{
    return hex("47 61 74 65") +                             // eyecatcher
           hex("00 70 00 00") +                             // flow version
           be32(flowType) +                                 //
           hex("00 00 00 00") +                             // return code
           be32(messageId) +                                //
           be32(static_cast<std::uint32_t>(name.size())) +  // length of the name
           text(name) +                                     //
           hex("00") +                                      // security
           be32(datalength);
}

Bytes handshakeRequest()
{
    return hex("47 61 74 65"                      // eyecatcher
               "00 70 00 00"                      // flow version
               "00 00 00 05"                      // flow type: handshake
               "00 00 00 00"                      // return code
               "00 00 00 00"                      // message id
               "00 00 00 04"                      // length of the name
               "42 41 53 45"                      // "BASE"
               "00"                               // security
               "00 00 00 12"                      // 18 bytes of body
               "00 02 65 6E"                      // "en"
               "00 02 47 42"                      // "GB"
               "00 00 00 00 00 00 00 00 00 00");  // ten zero bytes
}

Bytes closeRequest()
{
    return hex("47 61 74 65"   // eyecatcher
               "00 70 00 00"   // flow version
               "00 00 00 0A"   // flow type: close
               "00 00 00 00"   // return code
               "FF FF FF FF"   // message id -1
               "00 00 00 04"   // length of the name
               "42 41 53 45"   // "BASE"
               "00"            // security
               "00 00 00 00");  // no body
}

Bytes authInitRequest()
{
    return hex("47 61 74 65"   // eyecatcher
               "00 70 00 00"   // flow version
               "00 00 00 01"   // flow type: authorisation
               "00 00 00 00"   // return code
               "00 00 00 00"   // message id
               "00 00 00 04"   // length of the name
               "41 75 74 68"   // "Auth"
               "00"            // security
               "00 00 00 04"   // 4 bytes of body
               "00 00 00 00");  // call type: init
}

Bytes authConfirmRequest(const Bytes& protocolMap, const Bytes& serverVersion)
{
    return hex("47 61 74 65"    // eyecatcher
               "00 70 00 00"    // flow version
               "00 00 00 01"    // flow type: authorisation
               "00 00 00 00"    // return code
               "00 00 00 00"    // message id
               "00 00 00 04"    // length of the name
               "41 75 74 68"    // "Auth"
               "00"             // security
               "00 00 00 14"    // 20 bytes of body
               "00 00 00 01") +  // call type: confirm
           protocolMap + serverVersion +
           hex("00 00 00 00");  // length of protocol data
}

Bytes adminInitRequest()
{
    return hex("47 61 74 65"      // eyecatcher
               "00 70 00 00"      // flow version
               "00 00 00 01"      // flow type: admin
               "00 00 00 00"      // return code
               "00 00 00 00"      // message id
               "00 00 00 05"      // length of the name
               "41 64 6D 69 6E"   // "Admin"
               "00"               // security
               "00 00 00 04"      // 4 bytes of body
               "00 00 00 00");    // call type: init
}

namespace {

// 60 characters.
constexpr std::string_view StatisticsObject = "DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats";

Bytes objectCallInfo()
{
    return hex("00 02 55 53"            // country "US"
               "00 02 65 6E"            // language "en"
               "00 00"                  // no variant
               "00 3C") +               // 60 bytes:
           text(StatisticsObject);      // name of the object
}

Bytes adminRequest(std::int32_t callType, const Bytes& serverVersion, const Bytes& callInfo)
{
    return requestHeader(1, 0, "Admin", static_cast<std::int32_t>(callInfo.size()) + 12) + be32(callType) +
           serverVersion + be32(static_cast<std::uint32_t>(callInfo.size())) + callInfo;
}

}  // namespace

Bytes getProtocolRequest(const Bytes& serverVersion)
{
    return adminRequest(1, serverVersion, objectCallInfo() + hex("00 08 70 72 6F 74 6F 63 6F 6C"));  // "protocol"
}

Bytes invokeRequest(const Bytes& serverVersion, std::string_view operation, std::string_view argument)
{
    return adminRequest(5, serverVersion,
                        objectCallInfo() + counted(operation) +
                            hex("00 00 00 01"           // one argument
                                "AC ED 00 05 74") +      // stream magic, version 5, a string
                            counted(argument) +         //
                            hex("00 00 00 01"           // one signature
                                "00 10"                 // of 16 bytes
                                "6A 61 76 61 2E 6C 61 6E 67 2E 53 74 72 69 6E 67"));  // "java.lang.String"
}

}  // namespace krvtest
