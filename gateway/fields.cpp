// The table of field names, as people write them on the command line.
#include "fields.h"

namespace krvgw {
namespace {

constexpr FieldRow FIELD_TABLE[] = {
    {Field::Eyecatcher, "eyecatcher", "header: the four bytes \"Gate\""},
    {Field::FlowVersion, "flow-version", "header: protocol flow version"},
    {Field::FlowType, "flow-type", "header: kind of flow"},
    {Field::MessageId, "message-id", "header, offset 12: message id"},
    {Field::GatewayRc, "gateway-rc", "header, offset 16: return code"},
    {Field::NameLength, "name-length", "header: length of the request name"},
    {Field::Security, "security", "header: security flag"},
    {Field::DataLength, "data-length", "header: length of the body"},
    {Field::CallType, "call-type", "authorisation and admin bodies: call type"},
    {Field::AuthRc, "auth-rc", "authorisation bodies: result"},
    {Field::AdminRc, "admin-rc", "admin bodies: result"},
    {Field::ExceptionFlag, "exception-flag", "admin bodies after init: the call raised an exception"},
    {Field::VersionLength, "version-length", "attribute: length of the version text"},
    {Field::ArrayFlag, "array-flag", "operations: 1 where a count of responses follows"},
    {Field::ResponseCount, "response-count", "operations: number of responses (array form only)"},
    {Field::ClassLength, "class-length", "each response: length of its class name"},
    {Field::SuperclassLength, "superclass-length", "each response: length of its superclass name"},
    {Field::BlockType, "block-type", "first block of a response or of a statistic: 0x77 or 0x7A"},
    {Field::BlockLength, "block-length", "first block of a response or of a statistic: its length"},
    {Field::QueryLength, "query-length", "each response: length of its query element"},
    {Field::QueryRc, "query-rc", "each response: its return code (the bytes behind it stay)"},
    {Field::ElementCount, "element-count", "each response: number of statistics or ids"},
    {Field::ElementClassLength, "element-class-length", "each response: length of the class name of its statistics"},
    {Field::IdLength, "id-length", "each id: its length"},
    {Field::ValueLength, "value-length", "each value: its length"},
    {Field::SegmentType, "segment-type", "each further block of a long value: 0x77 or 0x7A"},
    {Field::SegmentLength, "segment-length", "each further block of a long value: its length"},
};

}  // namespace

std::span<const FieldRow> fieldTable()
{
    return FIELD_TABLE;
}

std::optional<Field> fieldByName(std::string_view name)
{
    for (const FieldRow& row : FIELD_TABLE)
        if (row.name == name) return row.field;
    return std::nullopt;
}

}  // namespace krvgw
