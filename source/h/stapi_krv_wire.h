/* The bounded reader and writer that all bytes from and to the gateway, and out of result sets, pass through.
 *
 * A read or write that would pass the end latches `spent` and leaves nothing: from then on every read gives 0 and every
 * write is dropped, so that callers test once a record. Passing over bytes beyond the end leaves nothing to read, and
 * becomes an error when something is read behind them.
 */
#ifndef STAPI_KRV_WIRE_H
#define STAPI_KRV_WIRE_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _WireReader { /* borrows [at, end): owns nothing, copies nothing */
    const unsigned char* at;
    const unsigned char* end;
    int spent; /* something was read that is not there */
} WireReader;

static inline WireReader readerOver(const void* data, size_t length)
{
    WireReader reader;
    reader.at = (const unsigned char*)data;
    reader.end = reader.at + length;
    reader.spent = 0;
    return reader;
}

/* A reader of data whose length nobody knows: it trusts its content. */
static inline WireReader unboundedReaderOver(const void* data)
{
    WireReader reader;
    reader.at = (const unsigned char*)data;
    reader.end = (const unsigned char*)UINTPTR_MAX;
    reader.spent = 0;
    return reader;
}

static inline int isBounded(const WireReader* reader)
{
    return (uintptr_t)reader->end != UINTPTR_MAX;
}

static inline size_t bytesLeft(const WireReader* reader)
{
    return (size_t)((uintptr_t)reader->end - (uintptr_t)reader->at);
}

/* Moves over `length` bytes and returns where they start, or NULL if they are not all there. */
static inline const unsigned char* take(WireReader* reader, size_t length)
{
    const unsigned char* taken = reader->at;
    if (reader->spent || length > bytesLeft(reader)) {
        reader->spent = 1;
        reader->end = taken;
        return NULL;
    }
    reader->at += length;
    return taken;
}

static inline void skip(WireReader* reader, size_t length)
{
    reader->at = length < bytesLeft(reader) ? reader->at + length : reader->end;
}

static inline unsigned int readU8(WireReader* reader)
{
    const unsigned char* p = take(reader, 1);
    return p ? p[0] : 0u;
}

static inline uint32_t loadU16(const unsigned char* at)
{
    return (uint32_t)at[0] << 8 | at[1];
}

static inline int32_t readI16(WireReader* reader)
{
    const unsigned char* p = take(reader, 2);
    return p ? (int16_t)(uint16_t)loadU16(p) : 0;
}

static inline int32_t readI32(WireReader* reader)
{
    const unsigned char* p = take(reader, 4);
    return p ? (int32_t)((uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | p[3]) : 0;
}

/* A word in the host's own order, as result-set buffers hold it. */
static inline int32_t readHostI32(WireReader* reader)
{
    const unsigned char* p = take(reader, 4);
    int32_t value = 0;
    if (p) memcpy(&value, p, sizeof value);
    return value;
}

/* Opaque bytes; those that are not there count as zeros and are no error. */
static inline void readOpaque(WireReader* reader, void* target, size_t length)
{
    size_t there = bytesLeft(reader) < length ? bytesLeft(reader) : length;
    memset(target, 0, length);
    if (there > 0) memcpy(target, reader->at, there);
    reader->at += there;
}

typedef struct _WireWriter { /* borrows [at, end) */
    unsigned char* at;
    unsigned char* end;
    int spent; /* something was written that had no room */
} WireWriter;

static inline WireWriter writerOver(void* data, size_t length)
{
    WireWriter writer;
    writer.at = (unsigned char*)data;
    writer.end = writer.at + length;
    writer.spent = 0;
    return writer;
}

/* Moves over `length` bytes and returns where they start, or NULL if there is no room for them. */
static inline unsigned char* reserve(WireWriter* writer, size_t length)
{
    unsigned char* place = writer->at;
    if (writer->spent || length > (size_t)(writer->end - writer->at)) {
        writer->spent = 1;
        return NULL;
    }
    writer->at += length;
    return place;
}

static inline void writeBytes(WireWriter* writer, const void* bytes, size_t length)
{
    unsigned char* p = reserve(writer, length);
    if (p && length > 0) memcpy(p, bytes, length);
}

static inline void writeU8(WireWriter* writer, unsigned int value)
{
    unsigned char* p = reserve(writer, 1);
    if (p) p[0] = (unsigned char)value;
}

static inline void writeU16(WireWriter* writer, uint32_t value)
{
    unsigned char* p = reserve(writer, 2);
    if (!p) return;
    p[0] = (unsigned char)(value >> 8);
    p[1] = (unsigned char)value;
}

static inline void writeI32(WireWriter* writer, int32_t value)
{
    unsigned char* p = reserve(writer, 4);
    uint32_t word = (uint32_t)value;
    if (!p) return;
    p[0] = (unsigned char)(word >> 24);
    p[1] = (unsigned char)(word >> 16);
    p[2] = (unsigned char)(word >> 8);
    p[3] = (unsigned char)word;
}

#ifdef __cplusplus
}
#endif

#endif
