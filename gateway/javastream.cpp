// The pictures of what is written stand in the header.
#include "javastream.h"

#include <algorithm>

namespace krvgw {
namespace {

constexpr std::uint32_t STREAM_MAGIC = 0xACED;
constexpr std::uint32_t STREAM_VERSION = 5;
constexpr std::uint32_t TC_NULL = 0x70;
constexpr std::uint32_t TC_REFERENCE = 0x71;
constexpr std::uint32_t TC_CLASSDESC = 0x72;
constexpr std::uint32_t TC_OBJECT = 0x73;
constexpr std::uint32_t TC_STRING = 0x74;
constexpr std::uint32_t TC_BLOCKDATA = 0x77;
constexpr std::uint32_t TC_ENDBLOCKDATA = 0x78;
constexpr std::uint32_t TC_BLOCKDATALONG = 0x7A;
constexpr std::uint32_t EXTERNALIZABLE_WITH_BLOCK_DATA = 0x0C;

constexpr std::uint32_t BASE_HANDLE = 0x7E0000;
constexpr std::uint32_t STATISTIC_CLASS_HANDLE = BASE_HANDLE + 3;   // behind class, superclass and response

constexpr std::size_t SHORT_BLOCK = 255;
constexpr std::size_t FULL_BLOCK = 1024;

struct ClassRow {
    std::string_view name;
    std::uint64_t serialVersionUid;
};

constexpr ClassRow STATS_RESPONSE_CLASS = {"com.qal.krv.stats.StatsQueryResponse", 0x1B2C3D4E5F607182};
constexpr ClassRow IDS_RESPONSE_CLASS = {"com.qal.krv.stats.IdsQueryResponse", 0x2C3D4E5F60718293};
constexpr ClassRow RESPONSE_SUPERCLASS = {"com.qal.krv.stats.QueryResponse", 0x3D4E5F60718293A4};
constexpr ClassRow STATISTIC_CLASS = {"com.qal.krv.stats.Statistic", 0x4E5F60718293A4B5};

void putBlockHeader(Message& message, bool isLong, std::size_t size, Field type, Field length)
{
    put8(message, isLong ? TC_BLOCKDATALONG : TC_BLOCKDATA, type);
    if (isLong)
        put32(message, static_cast<std::uint32_t>(size), length);
    else
        put8(message, static_cast<std::uint32_t>(size), length);
}

void putUndividedBlock(Message& message, const Message& content)
{
    putBlockHeader(message, content.bytes.size() > SHORT_BLOCK, content.bytes.size(), Field::BlockType,
                   Field::BlockLength);
    putMessage(message, content);
}

// From the class name to the end of the class annotation: what stands behind TC_CLASSDESC.
void putClassDescription(Message& message, const ClassRow& row, Field nameLength)
{
    putUtf(message, row.name, nameLength);
    put64(message, row.serialVersionUid);
    put8(message, EXTERNALIZABLE_WITH_BLOCK_DATA);
    put16(message, 0);
    put8(message, TC_ENDBLOCKDATA);
}

void putStreamStart(Message& message)
{
    put16(message, STREAM_MAGIC);
    put16(message, STREAM_VERSION);
}

void putResponseClass(Message& message, const ClassRow& row)
{
    putStreamStart(message);
    put8(message, TC_OBJECT);
    put8(message, TC_CLASSDESC);
    putClassDescription(message, row, Field::ClassLength);
    put8(message, TC_CLASSDESC);
    putClassDescription(message, RESPONSE_SUPERCLASS, Field::SuperclassLength);
    put8(message, TC_NULL);
}

// Query element, return code and, where there is a body, its number of elements.
Message responseBlock(const Response& response)
{
    Message content;
    putUtf(content, response.queryElement, Field::QueryLength);
    put32(content, static_cast<std::uint32_t>(response.rc), Field::QueryRc);
    if (response.rc >= 0)
        put32(content, static_cast<std::uint32_t>(response.elements.size()), Field::ElementCount);
    return content;
}

// The cuts as asked for, as far as there is content; then as Java cuts. Once a short block has stood behind the
// first one, readers take all that follow as short ones.
std::vector<BlockCut> cutsOf(const Statistic& statistic, std::size_t size)
{
    const std::size_t undivided = statistic.id.size() + 4;     // id with its length, length of the value
    std::vector<BlockCut> cuts;
    std::size_t rest = size;
    for (std::size_t i = 0; rest > 0; ++i) {
        BlockCut cut{};
        if (i < statistic.cuts.size()) {
            cut = statistic.cuts[i];
        } else if (i > 1 && !cuts.back().isLong) {
            cut = {false, SHORT_BLOCK};
        } else {
            const std::size_t most = i == 0 ? std::max(FULL_BLOCK, undivided) : FULL_BLOCK;
            cut = {rest > SHORT_BLOCK, most};
        }
        cut.size = std::min(cut.size, rest);
        cuts.push_back(cut);
        rest -= cut.size;
    }
    return cuts;
}

void putStatisticBlocks(Message& message, const Statistic& statistic)
{
    Message content;
    putUtf(content, statistic.id, Field::IdLength);
    putUtf(content, statistic.value, Field::ValueLength);

    std::size_t done = 0;
    for (const BlockCut& cut : cutsOf(statistic, content.bytes.size())) {
        putBlockHeader(message, cut.isLong, cut.size, done == 0 ? Field::BlockType : Field::SegmentType,
                       done == 0 ? Field::BlockLength : Field::SegmentLength);
        putPart(message, content, done, cut.size);
        done += cut.size;
    }
}

void putStatistics(Message& message, const std::vector<Statistic>& statistics)
{
    bool isFirst = true;
    for (const Statistic& statistic : statistics) {
        put8(message, TC_OBJECT);
        if (isFirst) {
            put8(message, TC_CLASSDESC);
            putClassDescription(message, STATISTIC_CLASS, Field::ElementClassLength);
            put8(message, TC_NULL);
        } else {
            put8(message, TC_REFERENCE);
            put32(message, STATISTIC_CLASS_HANDLE);
        }
        putStatisticBlocks(message, statistic);
        put8(message, TC_ENDBLOCKDATA);
        isFirst = false;
    }
}

void putPlaceOfStatistics(Message& message)
{
    constexpr std::size_t ZEROS = 5;
    put8(message, TC_NULL);
    put8(message, TC_STRING);
    putUtf(message, STATISTIC_CLASS.name, Field::ElementClassLength);
    put8(message, TC_BLOCKDATA);
    put8(message, ZEROS);
    putBytes(message, Bytes(ZEROS, 0));
}

}  // namespace

void putStatsResponse(Message& message, const Response& response)
{
    putResponseClass(message, STATS_RESPONSE_CLASS);
    putUndividedBlock(message, responseBlock(response));
    if (response.rc >= 0 && response.elements.empty()) putPlaceOfStatistics(message);
    if (response.rc >= 0) putStatistics(message, response.elements);
    put8(message, TC_ENDBLOCKDATA);
}

void putIdsResponse(Message& message, const Response& response)
{
    putResponseClass(message, IDS_RESPONSE_CLASS);
    Message content = responseBlock(response);
    if (response.rc >= 0)
        for (const Statistic& element : response.elements) putUtf(content, element.id, Field::IdLength);
    putUndividedBlock(message, content);
    put8(message, TC_ENDBLOCKDATA);
}

void putStringStream(Message& message, std::string_view text, Field lengthField)
{
    putStreamStart(message);
    put8(message, TC_STRING);
    putUtf(message, text, lengthField);
}

}  // namespace krvgw
