/* The trace: numbered, timestamped lines and storage dumps on one shared stream.
 *
 * A trace point is one of the macros below. It tests the level before its arguments are evaluated (one comparison when
 * tracing is off), and the compiler checks its format. Arguments are plain values: nothing in them may write a trace
 * line. A message that begins with a '.' is written behind "stapi_krv_" and the name of the module that the number belongs
 * to. So it holds at most 255 characters; its line ends in exactly one newline, given or not.
 */
#ifndef STAPI_KRV_DIAG_H
#define STAPI_KRV_DIAG_H

#include <stdint.h>
#include <stdio.h>

#include "stapi_krv_lock.h"
#include "stapi_krv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TRACE_MESSAGE_SIZE 256
#define TRACE_FILENAME_SIZE 1024
#define TRACE_TIMESTAMP_SIZE 24
#define TRACE_DATE_SIZE 10

/* Dumps print this many bytes a line. */
#define TRACE_DUMP_WIDTH 16

/* The line template: the fields, laid end to end, are one format string, of which only msg changes. */
typedef struct _formatString {
    char timeStamp[3];
    char pidTid[18];
    char tpid[8];
    char traceType[7];
    char msg[TRACE_MESSAGE_SIZE];
} formatStringType;

extern int32_t statAPITrace; /* level, 0 to 5 */
extern int32_t statAPIDump;  /* reserved; nothing reads or writes it */
extern FILE* statAPITraceHandle;
extern char* statAPITraceFilename; /* TRACE_FILENAME_SIZE bytes, NULL until allocated */
extern const char* defaultTraceFilename;
extern int32_t traceHeaderWrite; /* 1 once the header was written to the present destination */
extern stapilock traceLock;

/* Of the line being written; guarded by traceLock. */
extern formatStringType traceFmtStr;
extern char timeStamp[TRACE_TIMESTAMP_SIZE];
extern ProcessId tracePid;
extern ThreadId traceTid;
extern int32_t iTid;
extern char dateBuf[TRACE_DATE_SIZE];

extern const char version4stapi_krv_diag[];

/* Makes standard error the destination and sets up traceLock and the file-name buffer. 0, -111 or -121. */
int initTrace(void);

/* "dd/mm/yy HH:MM:SS:mmm" in local time into at least TRACE_TIMESTAMP_SIZE bytes. */
void getTimestamp(char* MsgBuf);

/* "dd/mm/yy" in local time into at least TRACE_DATE_SIZE bytes. */
void getTraceDate(char* msgBuf);

/* Stores the calling process and thread where the pointer is not NULL. */
void getPidTid(ProcessId* Pid, ThreadId* Tid);

/* 1 if both name the same thread, else 0. */
int compareTids(ThreadId tid1, ThreadId tid2);

/* Dumps dataLen bytes, or, if dataLen is 0, up to the first place where stopWord stands (host byte order), as lines of
 * width bytes in hex and characters. In stop-word mode whole lines and three bytes beyond are looked at. With neither a
 * length nor a stop word nothing is written. The caller holds traceLock where lines must not interleave. translate has
 * no effect. Returns the number of bytes dumped. */
int traceOutStorage(void* startAddr, unsigned int dataLen, unsigned int stopWord, int width, int translate);

/* One line of a dump: address, hex column, character column, newline. Returns the bytes that belong to the data. */
int writeStorageLineDual(void* startAddr, int width, unsigned int dataLen, unsigned int stopWord, int translate);

/* The hex column. Returns the bytes that belong to the data, width when no end was met. */
int writeStorageLineHex(void* startAddr, int width, unsigned int dataLen, unsigned int stopWord);

/* The character column. Returns the offset at which the data ended, 0 when no end was met. */
int writeStorageLineChar(void* startAddr, int width, unsigned int dataLen, unsigned int stopWord, int translate);

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

#define TRACE_FORMAT(messageIndex) __attribute__((format(printf, messageIndex, (messageIndex) + 1)))

/* The stream that lines go to: the destination, or standard error before there is one. It stays open for who holds
 * traceLock or a pin. */
FILE* traceStream(void);

/* Keep the destination, its stream and its name, from being switched: for writers that do not hold traceLock. Between
 * the two calls nothing may write a trace line or ask for traceLock, whose holder may be waiting for the pin. */
void pinTraceDestination(void);
void unpinTraceDestination(void);

/* Before a fork and, in the parent, behind it: no thread is inside the C library's calendar meanwhile. */
void prepareTraceForFork(void);
void resumeTraceAfterFork(void);

/* In a forked child: makes traceLock and the destination free, whoever of the parent's threads uses them. */
void forgetTraceWriters(void);

/* The name of the present destination. The caller holds traceLock or a pin. */
const char* traceDestination(void);

/* Makes the stream and its name the destination and closes the one before, unless that is standard error. Waits for
 * pins. The caller holds traceLock, and statAPITraceFilename is allocated. */
void changeTraceDestination(FILE* stream, const char* name);

/* A line of 80 "-", as dumps are framed with. */
void writeTraceRule(void);

/* Copies the name of the present destination; takes traceLock. */
void copyTraceDestination(char name[TRACE_FILENAME_SIZE]);

/* What the macros below call once the level test has passed. `line` is a TRACE_LINE. */
void writeTraceLine(int line, const char* message, ...) TRACE_FORMAT(2);
void writeTraceLineUnlocked(int line, const char* message, ...) TRACE_FORMAT(2);
void writeTraceLineWithPreviousTimestamp(int line, const char* message, ...) TRACE_FORMAT(2);
void writeTraceData(int tracePoint, const char* message, void* data, int dataLen, unsigned int stopWord, int translate);

/* A text as an argument of a line: a missing one is named. */
static inline const char* orNull(const char* text)
{
    return text ? text : "NULL";
}

/* Lets the compiler check the format of a DATA message. */
static inline void checkTraceFormat(const char* message, ...) TRACE_FORMAT(1);
static inline void checkTraceFormat(const char* message, ...)
{
    (void)message;
}

/* A library built with KRVSTATS_WITHOUT_TRACE_POINTS has none: what they cost is measured against it. */
static inline int traceLevelExceeds(int threshold)
{
#ifdef KRVSTATS_WITHOUT_TRACE_POINTS
    (void)threshold;
    return 0;
#else
    return __atomic_load_n(&statAPITrace, __ATOMIC_RELAXED) > threshold;
#endif
}

/* A kind of line is written when the level exceeds its threshold. */
enum { TRACE_EXC = 0, TRACE_EVENT = 1, TRACE_ENTRY = 2, TRACE_EXIT = 2, TRACE_DEBUG = 3, TRACE_DATA = 3 };

/* The kinds, in the order of their names in the trace. */
enum { KIND_EXC, KIND_EVENT, KIND_ENTRY, KIND_EXIT, KIND_DEBUG, KIND_DATA, KINDS };

/* A number and a kind in one word: there are hundreds of calls, and each argument less keeps them small. */
#define TRACE_LINE(tracePoint, kind) ((tracePoint)*KINDS + (kind))

#define TRACE_POINT(writer, threshold, ...) \
    do { \
        if (__builtin_expect(traceLevelExceeds(threshold), 0)) writer(__VA_ARGS__); \
    } while (0)

#define traceExc(tracePoint, ...) TRACE_POINT(writeTraceLine, TRACE_EXC, TRACE_LINE(tracePoint, KIND_EXC), __VA_ARGS__)
#define traceEvent(tracePoint, ...) \
    TRACE_POINT(writeTraceLine, TRACE_EVENT, TRACE_LINE(tracePoint, KIND_EVENT), __VA_ARGS__)
#define traceEntry(tracePoint, ...) \
    TRACE_POINT(writeTraceLine, TRACE_ENTRY, TRACE_LINE(tracePoint, KIND_ENTRY), __VA_ARGS__)
#define traceExit(tracePoint, ...) \
    TRACE_POINT(writeTraceLine, TRACE_EXIT, TRACE_LINE(tracePoint, KIND_EXIT), __VA_ARGS__)
#define traceDebug(tracePoint, ...) \
    TRACE_POINT(writeTraceLine, TRACE_DEBUG, TRACE_LINE(tracePoint, KIND_DEBUG), __VA_ARGS__)

/* For code that must not take traceLock. */
#define traceExcUnlocked(tracePoint, ...) \
    TRACE_POINT(writeTraceLineUnlocked, TRACE_EXC, TRACE_LINE(tracePoint, KIND_EXC), __VA_ARGS__)

/* An ENTRY line that shows when the line before it was written. */
#define traceEntryWithPreviousTimestamp(tracePoint, ...) \
    TRACE_POINT(writeTraceLineWithPreviousTimestamp, TRACE_ENTRY, TRACE_LINE(tracePoint, KIND_ENTRY), __VA_ARGS__)

/* A line whose message ends in "data=%p len=%d stopword=%8.8X\n", with the dump of that data behind it. */
#define traceData(tracePoint, message, data, dataLen, stopWord, translate) \
    do { \
        if (traceLevelExceeds(TRACE_DATA)) { \
            checkTraceFormat(message, (void*)(data), dataLen, stopWord); \
            writeTraceData(tracePoint, message, data, dataLen, stopWord, translate); \
        } \
    } while (0)

#ifdef __cplusplus
}
#endif

#endif
