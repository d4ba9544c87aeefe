// See result_sets.h.
#include "result_sets.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace krvtest {

namespace {

Bytes countedHost(const std::string& content)
{
    return hostWord(static_cast<std::int32_t>(content.size())) + text(content);
}

Bytes setOf(const char* category, const std::vector<SetQuery>& queries, bool values)
{
    Bytes bytes = text(category) + hostWord(static_cast<std::int32_t>(queries.size()));
    for (const SetQuery& query : queries) {
        bytes = bytes + countedHost(query.queryElement) + hostWord(query.rc);
        if (query.rc < 0) continue;
        bytes = bytes + hostWord(query.counted ? static_cast<std::int32_t>(query.elements.size()) : query.statedCount);
        for (const SetElement& element : query.elements) {
            bytes = bytes + countedHost(element.id);
            if (values) bytes = bytes + countedHost(element.value);
        }
    }
    return bytes + terminatorBytes();
}

// One line of at most 16 bytes of data: `data` of them belong to it; with none, all 16 are shown in hex.
std::string dumpLine(const unsigned char* at, std::size_t data)
{
    char cell[32];
    std::snprintf(cell, sizeof cell, "0x%08X: ",
                  static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(at) & 0xFFFFFFFFu));
    std::string line = cell;
    for (std::size_t i = 0; i < 16; i++) {
        std::snprintf(cell, sizeof cell, "%02X", at[i]);
        line += data == 0 || i < data ? cell : "  ";
        if (i % 4 == 3 && i != 15) line += " ";
    }
    line += " : ";
    for (std::size_t i = 0; i < data; i++) line += at[i] >= 0x20 && at[i] < 0x7F ? static_cast<char>(at[i]) : '.';
    if (data == 16) line += " ";
    return line + "\n";
}

} // namespace

Bytes idSet(const std::vector<SetQuery>& queries)
{
    return setOf("KRVIDSET", queries, false);
}

Bytes statSet(const std::vector<SetQuery>& queries)
{
    return setOf("KRVSTSET", queries, true);
}

HeldSet::HeldSet(const Bytes& content, int statedLength, std::size_t room, int owner)
{
    const char* eyecatcher = owner == RESULT_SET_OWNER_USER ? USER_RESULT_SET_EYECATCHER : GATEWAY_RESULT_SET_EYECATCHER;
    char name[EYECATCHER_SIZE + 1];
    std::memcpy(name, eyecatcher, sizeof name);
    if (createResultSet(&token, name, owner) != 0) throw std::runtime_error("no result set");
    std::size_t stated = statedLength == ofContent ? content.size() : static_cast<std::size_t>(statedLength);
    if (content.size() > stated + room) throw std::invalid_argument("the content does not fit its block");
    token->rsBuffPtr = static_cast<char*>(std::calloc(stated + room, 1));
    token->rsBuffLen = static_cast<std::int32_t>(stated);
    token->cursor = token->rsBuffPtr;
    std::memcpy(token->rsBuffPtr, content.data(), content.size());
}

HeldSet::~HeldSet()
{
    if (!token) return;
    std::free(token->rsBuffPtr);
    deleteResultSet(&token);
}

std::string setDump(const void* start, std::size_t terminatorAt)
{
    const unsigned char* at = static_cast<const unsigned char*>(start);
    std::string lines;
    for (std::size_t done = 0; done + 16 <= terminatorAt; done += 16) lines += dumpLine(at + done, 16);
    return lines + dumpLine(at + terminatorAt / 16 * 16, terminatorAt % 16);
}

std::string resultSetDump(const Internal_ResultSetToken_t* token, std::size_t terminatorAt)
{
    char header[160];
    std::snprintf(header, sizeof header, "Dump of ResultSet(%p) owner(%x) head(%p) next(%p)\n",
                  static_cast<const void*>(token), static_cast<unsigned int>(token->owner),
                  static_cast<void*>(token->rsBuffPtr), static_cast<void*>(token->cursor));
    std::string rule = std::string(80, '-') + "\n";
    return header + rule + setDump(token->rsBuffPtr, terminatorAt) + rule;
}

Bytes recordBytes(const Internal_ResultSetToken_t* token)
{
    Bytes bytes(sizeof *token);
    std::memcpy(bytes.data(), token, sizeof *token);
    return bytes;
}

} // namespace krvtest
