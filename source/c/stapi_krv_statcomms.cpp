// Requests to the gateway's statistics object, and the parsing of their replies into result-set buffers.
//
// Fills the records that stapi_krv_socketcomms encodes and exchanges. The parsers read reply data through a bounded
// reader and write through the primitives of stapi_krv_resultsetbuffer, with one capacity check before each write.
// Threads: nothing here is shared; a buffer belongs to one gateway token, which one thread uses.

#include "stapi_krv_statcomms.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "stapi_krv_diag.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_socketcomms.h"
#include "stapi_krv_version.h"
#include "stapi_krv_wire.h"

const char version4stapi_krv_statcomms[] = KRVSTATS_VERSION_BANNER;

const char ADMIN_REQUEST_NAME[] = "Admin";
const char ADMIN_CLIENT_COUNTRY[] = "US";
const char ADMIN_CLIENT_LANGUAGE[] = "en";
const char STATS_MBEAN_NAME[] = "DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats";
const char STATS_MBEAN_SIG[] = "java.lang.String";
const char STATS_MBEAN_ACTION_GET_STATS[] = "GET_STATS";
const char STATS_MBEAN_ACTION_STAT_IDS[] = "STAT_IDS";
const char STATS_MBEAN_ACTION_RESOURCE_GROUPS[] = "RESOURCE_GROUPS";
const char STATS_MBEAN_PROTOCOL_VERSION[] = "protocol";

namespace {

constexpr int QUERY_TYPE_TRACE_SIZE = 25;

// Widths of what replies hold and nobody reads: parts of the object stream that the gateway writes.
constexpr size_t ATTRIBUTE_PREFIX = 6;       // stream header, string code
constexpr size_t RESPONSE_PREFIX = 6;        // stream header, object and class codes
constexpr size_t CLASS_DESCRIPTION = 13;     // behind a class name: version, flags, fields, ends
constexpr size_t SHORT_BLOCK_LENGTH = 1;     // behind the code of a short data block
constexpr size_t LONG_BLOCK_LENGTH = 4;      // behind the code of a long data block
constexpr size_t LONG_BLOCK_LENGTH_HIGH = 2; // the part of it that is not read
constexpr size_t RESPONSE_END = 1;
constexpr size_t ELEMENTS_PREFIX = 2;
constexpr size_t ELEMENT_CLASS_VERSION = 8;
constexpr size_t ELEMENT_PREFIX = 5;
constexpr size_t ELEMENT_END = 2;

// Where things stand in a plain statistic element, without the length of its id, and what it takes besides its texts.
constexpr size_t PLAIN_TYPE = ELEMENT_PREFIX;
constexpr size_t PLAIN_ID_LENGTH = PLAIN_TYPE + 1 + SHORT_BLOCK_LENGTH;
constexpr size_t PLAIN_ID = PLAIN_ID_LENGTH + 2;
constexpr size_t PLAIN_VALUE = PLAIN_ID + 2;
constexpr size_t PLAIN_FIXED_SIZE = PLAIN_VALUE + ELEMENT_END;
constexpr uint32_t NEGATIVE_LENGTH = 0x8000;
constexpr size_t ID_LENGTH_SIZE = 2; // in front of an id in a reply with ids

constexpr unsigned int SHORT_BLOCK = 0x77; // "w"
constexpr unsigned int LONG_BLOCK = 0x7A;  // "z"

// What the first block of a chunked element holds besides id and value: their two lengths.
constexpr int ELEMENT_LENGTHS = 4;

int textLength(const char* text)
{
    return text ? static_cast<int>(strlen(text)) : 0;
}

// A counted text in a request: 2 bytes of length in front.
int countedTextLength(const char* text)
{
    return 2 + textLength(text);
}

// Frees what the call before left, so that a reply to the init call that carried data is not lost.
void clearCallData(AdminRequest* request)
{
    free(request->callData);
    request->callData = nullptr;
}

// The fields that every call on the statistics object sets; the rest of the header stays as the init reply left it.
void addressStatsObject(AdminRequest* request, int32_t callType)
{
    clearCallData(request);
    request->header.flowType = FLOW_TYPE_CALL;
    request->header.gatewayRc = 0;
    request->header.requestType = ADMIN_REQUEST_NAME;
    request->callType = callType;
    request->adminRc = 0;
    request->clientCountry = ADMIN_CLIENT_COUNTRY;
    request->clientLanguage = ADMIN_CLIENT_LANGUAGE;
    request->clientVariant = "";
    request->objectName = STATS_MBEAN_NAME;
}

void setCallLength(AdminRequest* request, int callLength)
{
    request->callInfoLength = callLength;
    request->header.datalength = callLength + ADMIN_BODY_FIXED_SIZE;
}

// Bytes of the call's result that the exchange left.
size_t callDataLength(const AdminRequest* request)
{
    return request->callData ? static_cast<size_t>(request->header.datalength) : 0;
}

// Get-attribute reply data: 6 bytes passed over, a 2-byte length, the text. Stores it in the token.
int storeProtocolVersion(const AdminRequest* request, char* protocolVersion)
{
    WireReader reply = readerOver(request->callData, callDataLength(request));
    skip(&reply, ATTRIBUTE_PREFIX);
    const int protocolVerLength = readI16(&reply);
    if (!protocolVersion) {
        traceExc(2204, ".statProtocolVerFailed to allocate %d bytes.\n", protocolVerLength + 1);
        return KRVSTAT_OUT_OF_MEMORY;
    }
    traceDebug(2203, ".statProtocolVer Called malloc for %d bytes. rc=%p\n", protocolVerLength + 1,
        static_cast<void*>(protocolVersion));
    const bool fits = protocolVerLength >= 0 && protocolVerLength < PROTOCOL_VERSION_SIZE;
    const unsigned char* text = fits ? take(&reply, static_cast<size_t>(protocolVerLength)) : nullptr;
    if (!text) {
        traceExc(2204, ".statProtocolVer Bad protocol version, length=%d\n", protocolVerLength);
        return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    }
    memcpy(protocolVersion, text, static_cast<size_t>(protocolVerLength));
    protocolVersion[protocolVerLength] = '\0';
    return 0;
}

// Doubles the buffer's stated length. The block itself holds at least `needed` bytes: one step of doubling is the
// contract, whatever is written next, and the write must land inside.
int growResultSetBuffer(
    char** resultSetBuffer, int* resultSetBufferLen, char** buffer, int totaldatawritten, int64_t needed)
{
    traceEntry(2244,
        ".reallocResultsSetBuffer(*resultSetBuffer=%p, *resultSetBufferLen=%d, *buffer=%p, "
        "totaldatawritten=%d)\n",
        static_cast<void*>(*resultSetBuffer), *resultSetBufferLen, static_cast<void*>(*buffer), totaldatawritten);

    int rc = KRVSTAT_OUT_OF_MEMORY;
    char* const oldBlock = *resultSetBuffer;
    *resultSetBuffer = nullptr;
    if (*resultSetBufferLen >= 0 && *resultSetBufferLen <= INT_MAX / 2) {
        const int newLen = 2 * *resultSetBufferLen;
        const size_t holds = static_cast<size_t>(needed > newLen ? needed : newLen);
        char* newBlock = static_cast<char*>(realloc(oldBlock, holds + RESULT_SET_ROOM));
        if (newBlock) {
            // Without an old block there is nothing that was written: all of the new one must be defined.
            const size_t defined = oldBlock ? holds : 0;
            memset(newBlock + defined, 0, holds + RESULT_SET_ROOM - defined);
            *resultSetBuffer = newBlock;
            *resultSetBufferLen = newLen;
            *buffer = newBlock + totaldatawritten;
            rc = 0;
        }
    }

    traceExit(2245, ".reallocResultsSetBuffer(*resultSetBuffer=%p, *resultSetBufferLen=%d, *buffer=%p) rc=%d)\n",
        static_cast<void*>(*resultSetBuffer), *resultSetBufferLen, static_cast<void*>(*buffer), rc);
    return rc;
}

// One run of a parser: the reply that is read and the buffer that is written.
struct ParseRun {
    WireReader reply;
    char** resultSetBuffer;
    int* resultSetBufferLen;
    char* cursor;
    int totaldatawritten;
    char* lostBlock; // what a failed growth left unreachable
    int rc;          // once it is not 0, nothing more is written
};

void refuse(ParseRun* run)
{
    run->rc = KRVSTAT_GATEWAY_PROTOCOL_ERROR;
}

bool isShort(const ParseRun* run, int count)
{
    return int64_t{run->totaldatawritten} + count > *run->resultSetBufferLen;
}

int grow(ParseRun* run, int count)
{
    char* const oldBlock = *run->resultSetBuffer;
    const int rc = growResultSetBuffer(run->resultSetBuffer, run->resultSetBufferLen, &run->cursor,
        run->totaldatawritten, int64_t{run->totaldatawritten} + count);
    if (rc != 0 && oldBlock) run->lostBlock = oldBlock; // a second failure has no block to lose
    return rc;
}

// The capacity check before a write of `count` bytes. True if the write may be made.
bool makeRoom(ParseRun* run, int count)
{
    if (run->rc == 0 && isShort(run, count)) run->rc = grow(run, count);
    return run->rc == 0;
}

void putInteger(ParseRun* run, int value)
{
    if (!makeRoom(run, static_cast<int>(sizeof(int32_t)))) return;
    run->totaldatawritten += static_cast<int>(sizeof(int32_t));
    addInteger(&run->cursor, value);
}

void putText(ParseRun* run, const unsigned char* text, int length)
{
    if (!makeRoom(run, length)) return;
    run->totaldatawritten += length;
    addChars(&run->cursor, reinterpret_cast<char*>(const_cast<unsigned char*>(text)), length);
}

// Passes over a text with its 2-byte length in front.
void skipText(ParseRun* run)
{
    const int length = readI16(&run->reply);
    if (length < 0) {
        refuse(run);
    } else {
        skip(&run->reply, static_cast<size_t>(length));
    }
}

// A run of bytes whose length is known; refuses what is negative or not there.
const unsigned char* takeText(ParseRun* run, int length)
{
    const unsigned char* text = length < 0 ? nullptr : take(&run->reply, static_cast<size_t>(length));
    if (!text) refuse(run);
    return text;
}

unsigned int peekU8(WireReader* reader)
{
    const unsigned char* p = take(reader, 1);
    if (!p) return 0;
    reader->at = p;
    return *p;
}

// What both kinds of result set begin with. Returns the number of responses that follow in the reply.
int parsePreamble(ParseRun* run, const char* category)
{
    addTerminator(run->cursor);
    const unsigned int arrayFlag = readU8(&run->reply);
    const int numResponses = arrayFlag == 1 ? readI32(&run->reply) : 1;
    if (run->reply.spent) {
        refuse(run);
        return 0;
    }
    addPlatformChars(&run->cursor, const_cast<char*>(category), EYECATCHER_SIZE);
    addInteger(&run->cursor, numResponses);
    run->totaldatawritten = RESULT_SET_PREAMBLE_SIZE;
    return numResponses;
}

//   6 passed over | text | 13 passed over | text | 13 passed over | block code and its length | query element | rc
//
// Writes element and rc, and returns the rc. The run's own rc tells whether there was one.
int parseResponseHeader(ParseRun* run)
{
    skip(&run->reply, RESPONSE_PREFIX);
    skipText(run);
    skip(&run->reply, CLASS_DESCRIPTION);
    skipText(run);
    skip(&run->reply, CLASS_DESCRIPTION);
    skip(&run->reply, readU8(&run->reply) == SHORT_BLOCK ? SHORT_BLOCK_LENGTH : LONG_BLOCK_LENGTH);
    const int length = readI16(&run->reply);
    const unsigned char* queryElement = takeText(run, length);
    const int queryElementRC = readI32(&run->reply);
    if (run->reply.spent) refuse(run);

    putInteger(run, length);
    putText(run, queryElement, length);
    putInteger(run, queryElementRC);
    return queryElementRC;
}

// The rest of a value that did not fit its first block: long blocks, then short ones. Behind a short block only short
// blocks are looked for.
void parseContinuation(ParseRun* run, int statdatalength, int firstPart)
{
    int remainingdata = statdatalength - firstPart;
    traceDebug(2234, ".parseStatsData written %d of %d bytes. Remaining data = %d bytes \n", firstPart, statdatalength,
        remainingdata);
    unsigned int type = peekU8(&run->reply);
    traceDebug(2236, ".parseStatsData block type=%2.8X \n", type);
    while (run->rc == 0 && type == LONG_BLOCK && remainingdata > 0) {
        skip(&run->reply, 1 + LONG_BLOCK_LENGTH_HIGH);
        const int segmentLength = readI16(&run->reply);
        putText(run, takeText(run, segmentLength), segmentLength);
        remainingdata -= segmentLength;
        traceDebug(
            2235, ".parseStatsData written %d bytes. Remaining data = %d bytes \n", segmentLength, remainingdata);
        type = peekU8(&run->reply);
        traceDebug(2236, ".parseStatsData block type=%2.8X \n", type);
    }
    while (run->rc == 0 && type == SHORT_BLOCK && remainingdata > 0) {
        skip(&run->reply, 1);
        const int contlength = static_cast<int>(readU8(&run->reply));
        putText(run, takeText(run, contlength), contlength);
        remainingdata -= contlength;
        traceDebug(2237, ".parseStatsData written %d bytes. Remaining data = %d bytes \n", contlength, remainingdata);
    }
    // The parts of a value from the wire must add up to what was announced: a set that said otherwise would be misread.
    if (run->reply.spent || (remainingdata != 0 && isBounded(&run->reply))) refuse(run);
}

//   5 passed over | block code, its length | id length, id | value length, value, on in further blocks | 2 passed over
void parseStatElement(ParseRun* run)
{
    skip(&run->reply, ELEMENT_PREFIX);
    const unsigned int type = readU8(&run->reply);
    traceDebug(2231, ".parseStatsData block type=%2.8X \n", type);
    const bool chunked = type == LONG_BLOCK;
    int chunklength = 0;
    if (chunked) {
        skip(&run->reply, LONG_BLOCK_LENGTH_HIGH);
        chunklength = readI16(&run->reply);
        traceDebug(2232, ".parseStatsData chunklength=%d \n", chunklength);
    } else {
        skip(&run->reply, SHORT_BLOCK_LENGTH);
    }
    const int statidlength = readI16(&run->reply);
    traceDebug(2233, ".parseStatsData statistic ID length=%d \n", statidlength);
    const unsigned char* statid = takeText(run, statidlength);
    const int statdatalength = readI16(&run->reply);
    traceDebug(2239, ".parseStatsData statistic data length=%d \n", statdatalength);

    const int roomInChunk = chunklength - statidlength - ELEMENT_LENGTHS;
    const bool continued = chunked && statdatalength > roomInChunk;
    const int firstPart = continued ? roomInChunk : statdatalength;
    if (chunklength < 0 || statdatalength < 0) refuse(run);
    const unsigned char* value = takeText(run, firstPart);

    putInteger(run, statidlength);
    putText(run, statid, statidlength);
    putInteger(run, statdatalength);
    putText(run, value, firstPart);
    if (run->rc != 0) return;

    if (continued) {
        parseContinuation(run, statdatalength, firstPart);
    } else {
        traceDebug(2238, ".parseStatsData written %d bytes.  \n", firstPart);
    }
    skip(&run->reply, ELEMENT_END);
    traceDebug(2240, ".parseStatsData running total of parsed data = %d bytes \n", run->totaldatawritten);
}

//   id length, id
void parseId(ParseRun* run)
{
    const int length = readI16(&run->reply);
    const unsigned char* text = takeText(run, length);
    putInteger(run, length);
    putText(run, text, length);
}

// Texts of 8 to 16 bytes, as most ids and values are, take two words that may overlap.
inline void copyShortText(char* to, const unsigned char* from, size_t length)
{
    uint64_t first;
    uint64_t last;
    if (length - sizeof first <= sizeof last) {
        memcpy(&first, from, sizeof first);
        memcpy(&last, from + length - sizeof last, sizeof last);
        memcpy(to, &first, sizeof first);
        memcpy(to + length - sizeof last, &last, sizeof last);
    } else {
        memcpy(to, from, length);
    }
}

// The lengths of a plain element's texts, and what it takes in the reply altogether.
struct PlainShape {
    uint32_t id;
    uint32_t value;
    size_t element;
};

// So many elements in a row were like the one before them that the next one is expected to be.
constexpr int ALIKE_ENOUGH = 4;

// 1 or 0. In arithmetic, since a jump on it would be foretold as badly as the lengths themselves.
inline int isSame(const PlainShape& one, const PlainShape& other)
{
    return ((one.id ^ other.id) | (one.value ^ other.value)) == 0;
}

inline bool hasShape(const PlainShape& shape, const unsigned char* at, size_t ahead)
{
    return shape.element <= ahead && at[PLAIN_TYPE] != LONG_BLOCK && loadU16(at + PLAIN_ID_LENGTH) == shape.id &&
           loadU16(at + PLAIN_ID + shape.id) == shape.value;
}

// False if no plain element lies whole in the bytes ahead.
inline bool readShape(PlainShape* shape, const unsigned char* at, size_t ahead)
{
    if (ahead < PLAIN_FIXED_SIZE || at[PLAIN_TYPE] == LONG_BLOCK) return false;
    shape->id = loadU16(at + PLAIN_ID_LENGTH);
    if (PLAIN_FIXED_SIZE + shape->id > ahead) return false;
    shape->value = loadU16(at + PLAIN_ID + shape->id);
    shape->element = PLAIN_FIXED_SIZE + shape->id + shape->value;
    return shape->element <= ahead && ((shape->id | shape->value) & NEGATIVE_LENGTH) == 0;
}

// Bytes of the reply that can be parsed in one go into the buffer as it is; 0 if that is used up, or each step is traced.
size_t plainBytesAhead(const ParseRun* run)
{
    const int room = *run->resultSetBufferLen - run->totaldatawritten;
    if (room <= 0 || traceLevelExceeds(TRACE_ENTRY)) return 0;
    const size_t left = bytesLeft(&run->reply);
    return left < static_cast<size_t>(room) ? left : static_cast<size_t>(room);
}

// Parses up to `limit` plain elements that lie whole in the reply, fit the buffer as it is, and are not traced. Stops in
// front of any other one, which parseStatElement takes. Returns how many were parsed.
//
// An element takes more bytes in the reply than in the buffer: so one bound serves for both, the smaller of what is left.
// Many an element has the lengths of the one before it. Where that is expected and then checked, the processor need not
// wait for an element's lengths to look at the next one. Where it was wrong lately it is not expected: each time costs more
// than it saves.
int parsePlainElements(ParseRun* run, int limit)
{
    const unsigned char* at = run->reply.at;
    const unsigned char* const stop = at + plainBytesAhead(run);
    char* cursor = run->cursor;

    PlainShape shape = {0, 0, 0};
    int alike = 0;
    int parsed = 0;
    for (; parsed < limit; ++parsed) {
        const size_t ahead = static_cast<size_t>(stop - at);
        if (alike < ALIKE_ENOUGH || !hasShape(shape, at, ahead)) {
            const PlainShape last = shape;
            if (!readShape(&shape, at, ahead)) break;
            alike = (alike + 1) * isSame(shape, last);
        }

        storeWord(cursor, static_cast<int32_t>(shape.id));
        cursor += sizeof(int32_t);
        copyShortText(cursor, at + PLAIN_ID, shape.id);
        cursor += shape.id;
        storeWord(cursor, static_cast<int32_t>(shape.value));
        cursor += sizeof(int32_t);
        copyShortText(cursor, at + PLAIN_VALUE + shape.id, shape.value);
        cursor += shape.value;
        at += shape.element;
    }
    run->totaldatawritten += static_cast<int>(cursor - run->cursor);
    run->cursor = cursor;
    run->reply.at = at;
    return parsed;
}

// The same for ids, which take more bytes in the buffer than in the reply. The next one's length is waited for each time.
int parsePlainIds(ParseRun* run, int limit)
{
    const unsigned char* at = run->reply.at;
    const unsigned char* const stop = at + plainBytesAhead(run);
    char* cursor = run->cursor;
    const char* const end = cursor + (*run->resultSetBufferLen - run->totaldatawritten);

    int parsed = 0;
    for (; parsed < limit; ++parsed) {
        const size_t ahead = static_cast<size_t>(stop - at);
        if (ahead < ID_LENGTH_SIZE) break;
        const uint32_t length = loadU16(at);
        if ((length & NEGATIVE_LENGTH) || ID_LENGTH_SIZE + length > ahead) break;
        if (sizeof(int32_t) + length > static_cast<size_t>(end - cursor)) break;

        storeWord(cursor, static_cast<int32_t>(length));
        cursor += sizeof(int32_t);
        copyShortText(cursor, at + ID_LENGTH_SIZE, length);
        cursor += length;
        at += ID_LENGTH_SIZE + length;
    }
    run->totaldatawritten += static_cast<int>(cursor - run->cursor);
    run->cursor = cursor;
    run->reply.at = at;
    return parsed;
}

void parseStatResponses(ParseRun* run)
{
    const int numResponses = parsePreamble(run, STATS_EYECATCHER);
    traceDebug(2221, ".parseStatsData received %d responses from the Gateway\n", numResponses);
    for (int response = 0; run->rc == 0 && response < numResponses; ++response) {
        const int queryElementRC = parseResponseHeader(run);
        if (queryElementRC < 0) {
            skip(&run->reply, RESPONSE_END);
            continue;
        }
        const int numStats = readI32(&run->reply);
        if (run->reply.spent) refuse(run);
        putInteger(run, numStats);
        traceDebug(2222, ".parseStatsData reading %d stats for result %d\n", numStats, response);
        skip(&run->reply, ELEMENTS_PREFIX);
        skipText(run);
        skip(&run->reply, ELEMENT_CLASS_VERSION);
        if (run->reply.spent) refuse(run);
        for (int stat = 0; run->rc == 0 && stat < numStats; ++stat) {
            stat += parsePlainElements(run, numStats - stat);
            if (stat < numStats) parseStatElement(run);
        }
    }

    // The last check is made whatever happened before, and a growth that succeeds here repairs one that failed.
    if (isShort(run, static_cast<int>(sizeof(int32_t)))) {
        const int growRc = grow(run, static_cast<int>(sizeof(int32_t)));
        if (run->rc != KRVSTAT_GATEWAY_PROTOCOL_ERROR) run->rc = growRc;
    }
    addTerminator(run->cursor);
    traceDebug(2241, ".parseStatsData parsed data total = %d bytes \n", run->totaldatawritten);
}

void parseIdResponses(ParseRun* run)
{
    const int numResponses = parsePreamble(run, IDS_EYECATCHER);
    traceDebug(2225, ".parseIdsData received %d responses from the Gateway\n", numResponses);
    for (int response = 0; run->rc == 0 && response < numResponses; ++response) {
        const int queryElementRC = parseResponseHeader(run);
        if (run->rc != 0) break;
        traceDebug(2226, ".parseIdsData Query rc=%d or (hex=%8.8X)\n", queryElementRC,
            static_cast<unsigned int>(queryElementRC));
        if (queryElementRC < 0) {
            traceDebug(2228, ".parseIdsData Bad query id element(%d), move on to next one\n", response);
            skip(&run->reply, RESPONSE_END);
            continue;
        }
        const int numIds = readI32(&run->reply);
        if (run->reply.spent) refuse(run);
        putInteger(run, numIds);
        traceDebug(2227, ".parseIdsData reading %d IDs for result %d\n", numIds, response);
        for (int id = 0; run->rc == 0 && id < numIds; ++id) {
            id += parsePlainIds(run, numIds - id);
            if (id < numIds) parseId(run);
        }
        skip(&run->reply, RESPONSE_END);
    }
    addTerminator(run->cursor); // lands in the room behind the stated length, where that is used up
}

// What tells the two parsers apart besides their responses.
struct Parser {
    const char* function;
    int entry;
    int exit;
    void (*parseResponses)(ParseRun*);
};

constexpr Parser statsParser = {"parseStatsData", 2220, 2223, parseStatResponses};
constexpr Parser idsParser = {"parseIdsData", 2224, 2229, parseIdResponses};

// Runs a parser over the reply. *lostBlock receives the block that a failed growth left behind, NULL if none did; *end
// where the closing terminator stands, NULL if nothing was written.
int runParser(const Parser& parser, WireReader reply, char** resultSetBuffer, int* resultSetBufferLen, char** lostBlock,
    char** end)
{
    traceEntry(parser.entry, ".%s(rawData=%p, &resultSetBuffer=%p, &resultSetBufferLen=%p)\n", parser.function,
        static_cast<const void*>(reply.at), static_cast<void*>(resultSetBuffer),
        static_cast<void*>(resultSetBufferLen));
    const void* rawData = reply.at;
    int rc;
    *lostBlock = nullptr;
    *end = nullptr;
    if (!rawData || !resultSetBuffer || !*resultSetBuffer || !resultSetBufferLen) {
        rc = KRVSTAT_NULL_BUFFER;
    } else if (*resultSetBufferLen < RESULT_SET_PREAMBLE_SIZE) {
        rc = KRVSTAT_OUT_OF_MEMORY; // the preamble is written without a check
    } else {
        ParseRun run = {reply, resultSetBuffer, resultSetBufferLen, *resultSetBuffer, 0, nullptr, 0};
        parser.parseResponses(&run);
        *lostBlock = run.lostBlock;
        *end = run.cursor;
        rc = run.rc;
    }
    traceExit(parser.exit, ".%s(rawData=%p, &resultSetBuffer=%p, &resultSetBufferLen=%p) rc=%d\n", parser.function,
        rawData, static_cast<void*>(resultSetBuffer), static_cast<void*>(resultSetBufferLen), rc);
    return rc;
}

int parseTrusted(const Parser& parser, char* rawData, char** resultSetBuffer, int* resultSetBufferLen)
{
    char* lostBlock;
    char* end;
    return runParser(
        parser, unboundedReaderOver(rawData), resultSetBuffer, resultSetBufferLen, &lostBlock, &end);
}

// A dump looks at the whole line behind the terminator: it must not show what was never written, nor what an earlier
// answer left there. The room behind the stated length was zeroed when the block was made.
void clearBehindTerminator(char* terminator, const char* statedEnd)
{
    char* const behind = terminator + sizeof(int32_t);
    const ptrdiff_t stated = statedEnd - behind;
    const ptrdiff_t lookedAt = RESULT_SET_ROOM - static_cast<ptrdiff_t>(sizeof(int32_t));
    if (stated > 0) memset(behind, 0, static_cast<size_t>(stated < lookedAt ? stated : lookedAt));
}

// Parses a reply from the wire: bounded, and strict about growth. A set in which any growth failed is no answer, even if
// the last growth succeeded: everything is freed and *buffer is NULL.
int parseReply(const Parser& parser, const AdminRequest* request, char** buffer, int* bufferLen)
{
    if (!request->callData) return KRVSTAT_GATEWAY_PROTOCOL_ERROR;
    char* lostBlock;
    char* end;
    const int rc = runParser(
        parser, readerOver(request->callData, callDataLength(request)), buffer, bufferLen, &lostBlock, &end);
    if (lostBlock) {
        free(lostBlock);
        free(*buffer);
        *buffer = nullptr;
        return KRVSTAT_OUT_OF_MEMORY;
    }
    if (end) clearBehindTerminator(end, *buffer + *bufferLen);
    return rc;
}

} // namespace

int getInitAdminRequest(int socketDesc, AdminRequest* admin, ReasonCodes* reasons)
{
    traceEntry(2214, ".getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p)\n", socketDesc,
        static_cast<void*>(admin), static_cast<void*>(reasons));
    admin->header.eyecatcher = GATEWAY_EYECATCHER;
    admin->header.flowVersion = GATEWAY_FLOW_VERSION;
    admin->header.gatewayRc = 0;
    admin->header.messageId = 0;
    admin->header.flowType = FLOW_TYPE_CALL;
    admin->header.requestTypeLength = textLength(ADMIN_REQUEST_NAME);
    admin->header.requestType = ADMIN_REQUEST_NAME;
    admin->header.security = 0;
    admin->header.datalength = 4;
    admin->callType = ADMIN_CALL_INIT;
    admin->callData = nullptr;
    const int rc = flowAdminRequest(socketDesc, admin, reasons);
    traceExit(2215, ".getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p) rc=%d\n", socketDesc,
        static_cast<void*>(admin), static_cast<void*>(reasons), rc);
    return rc;
}

int calculateCallLength(AdminRequest request)
{
    traceEntry(2216, ".calculateCallLength(invokeAction=%p)\n", static_cast<const void*>(request.invokeAction));
    const int arraySize = static_cast<int>(sizeof OUTBOUND_ARRAY_SIZE);
    const int callLength = countedTextLength(request.clientCountry) + countedTextLength(request.clientLanguage)
        + countedTextLength(request.clientVariant) + countedTextLength(request.objectName)
        + countedTextLength(request.invokeAction) + arraySize + static_cast<int>(sizeof OBJ_ARRAY_HEADER)
        + countedTextLength(request.invokeParms) + arraySize + countedTextLength(request.invokeSigs);
    traceExit(2217, ".calculateCallLength(invokeAction=%p) rc=%d\n",
        static_cast<const void*>(request.invokeAction), callLength);
    return callLength;
}

int calculateGetAttrCallLength(AdminRequest request)
{
    traceEntry(
        2218, ".calculateGetAttrCallLength(attributeName=%p)\n", static_cast<const void*>(request.attributeName));
    const int callLength = countedTextLength(request.clientCountry) + countedTextLength(request.clientLanguage)
        + countedTextLength(request.clientVariant) + countedTextLength(request.objectName)
        + countedTextLength(request.attributeName);
    traceExit(2219, ".calculateGetAttrCallLength(attributeName=%p) rc=%d\n",
        static_cast<const void*>(request.attributeName), callLength);
    return callLength;
}

int statProtocolVer(Internal_GatewayToken_t* gwTokPtr, ReasonCodes* reasons)
{
    traceEntry(
        2200, ".statProtocolVer(gwTokPtr=%p, reasons=%p)\n", static_cast<void*>(gwTokPtr), static_cast<void*>(reasons));
    AdminRequest request = {};
    int rc = getInitAdminRequest(gwTokPtr->socketDescriptor, &request, reasons);
    if (rc == 0) {
        traceDebug(2201, ".statProtocolVer Successfully init'd admin request\n");
        addressStatsObject(&request, ADMIN_CALL_GET_ATTRIBUTE);
        request.attributeName = STATS_MBEAN_PROTOCOL_VERSION;
        setCallLength(&request, calculateGetAttrCallLength(request));
        rc = flowAdminRequest(gwTokPtr->socketDescriptor, &request, reasons);
    }
    if (rc == 0) {
        traceDebug(2202, ".statProtocolVer Successfully got the protocol version from the Gateway\n");
        rc = storeProtocolVersion(&request, gwTokPtr->protocolVersion);
    }
    if (request.callData) {
        traceDebug(2242, ".statProtocolVer Free request callData %p\n", static_cast<void*>(request.callData));
        clearCallData(&request);
    }
    traceExit(2205, ".statProtocolVer(gwTokPtr=%p, reasons=%p) rc=%d\n", static_cast<void*>(gwTokPtr),
        static_cast<void*>(reasons), rc);
    return rc;
}

int statCommsString(
    int socketDesc, char* queryType, char* queryString, char** buffer, int* bufferLen, ReasonCodes* reasons)
{
    char queryTypeText[QUERY_TYPE_TRACE_SIZE] = "";
    strncpy(queryTypeText, queryType, sizeof queryTypeText - 1);
    traceEntry(2208,
        ".statCommsString(socketDesc=%d, queryType=%s, queryString=%p, *buffer=%p, *bufferLen=%d, "
        "reasons=%p)\n",
        socketDesc, queryTypeText, static_cast<void*>(queryString), static_cast<void*>(*buffer), *bufferLen,
        static_cast<void*>(reasons));

    AdminRequest request = {};
    int rc = getInitAdminRequest(socketDesc, &request, reasons);
    if (rc == 0) {
        traceDebug(2209, ".statCommsString Successfully init'd the Admin Request\n");
        addressStatsObject(&request, ADMIN_CALL_INVOKE);
        request.invokeAction = queryType;
        request.invokeParms = queryString;
        request.invokeSigs = STATS_MBEAN_SIG;
        setCallLength(&request, calculateCallLength(request));
        rc = flowAdminRequest(socketDesc, &request, reasons);
    }
    if (rc == 0) {
        traceData(2230, ".statCommsString data=%p len=%d stopword=%8.8X\n", request.callData,
            static_cast<int>(callDataLength(&request)), 0u, 1);
        if (strcmp(queryType, STATS_MBEAN_ACTION_GET_STATS) == 0) {
            rc = parseReply(statsParser, &request, buffer, bufferLen);
            traceDebug(2210, ".statCommsString Successfully called the Gateway for Stats\n");
        } else {
            rc = parseReply(idsParser, &request, buffer, bufferLen);
            traceDebug(2211, ".statCommsString Successfully called the Gateway for IDs\n");
        }
    }
    if (request.callData) {
        traceDebug(2212, ".statCommsString Free request callData %p\n", static_cast<void*>(request.callData));
        clearCallData(&request);
    }

    traceExit(2213,
        ".statCommsString(socketDesc=%d, queryType=%s, queryString=%p, *buffer=%p, *bufferLen=%d, "
        "reasons=%p) rc=%d\n",
        socketDesc, queryTypeText, static_cast<void*>(queryString), static_cast<void*>(*buffer), *bufferLen,
        static_cast<void*>(reasons), rc);
    return rc;
}

int statComms(int socketDesc, char* queryType, char** buffer, int* bufferLen, ReasonCodes* reasons)
{
    traceEntry(2206, ".statComms(socketDesc=%d, queryType=%s, *buffer=%p, *bufferLen=%d, reasons=%p)\n", socketDesc,
        queryType, static_cast<void*>(*buffer), *bufferLen, static_cast<void*>(reasons));
    char noIds[] = "";
    const int rc = statCommsString(socketDesc, queryType, noIds, buffer, bufferLen, reasons);
    traceExit(2207, ".statComms(socketDesc=%d, queryType=%s, *buffer=%p, *bufferLen=%d, reasons=%p) rc=%d\n",
        socketDesc, queryType, static_cast<void*>(*buffer), *bufferLen, static_cast<void*>(reasons), rc);
    return rc;
}

int parseStatsData(char* rawData, char** resultSetBuffer, int* resultSetBufferLen)
{
    return parseTrusted(statsParser, rawData, resultSetBuffer, resultSetBufferLen);
}

int parseIdsData(char* rawData, char** resultSetBuffer, int* resultSetBufferLen)
{
    return parseTrusted(idsParser, rawData, resultSetBuffer, resultSetBufferLen);
}

int reallocResultsSetBuffer(char** resultSetBuffer, int* resultSetBufferLen, char** buffer, int totaldatawritten)
{
    return growResultSetBuffer(resultSetBuffer, resultSetBufferLen, buffer, totaldatawritten, totaldatawritten);
}
