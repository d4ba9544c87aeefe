// The names of the fields of a reply.
//
// Encoders note where each field stands in the bytes that they write, so that a misbehaviour can put any value
// into any field of any reply by its name, without the encoders knowing about misbehaviours.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace krvgw {

enum class Field {
    // header
    Eyecatcher, FlowVersion, FlowType, MessageId, GatewayRc, NameLength, Security, DataLength,
    // fixed parts of bodies
    CallType, AuthRc, AdminRc, ExceptionFlag, OpaqueBytes,
    // result of a call
    VersionLength, ArrayFlag, ResponseCount, ClassLength, SuperclassLength, BlockType, BlockLength,
    QueryLength, QueryRc, ElementCount, ElementClassLength, IdLength, ValueLength, SegmentType, SegmentLength,
};

struct FieldRow {
    Field field;
    std::string_view name;
    std::string_view what;
};

// Where a field stands in a message. The width, in bytes, is that of a number (1, 2, 4) or of opaque bytes.
struct FieldMark {
    Field field;
    std::size_t at;
    std::size_t width;
};

// The numbers among the fields: those that a misbehaviour can set by name.
std::span<const FieldRow> fieldTable();
std::optional<Field> fieldByName(std::string_view name);

}  // namespace krvgw
