// The trace: numbered, timestamped lines and storage dumps on one shared stream.
//
// Builds each line under traceLock from the shared template and flushes it, so that the trace is complete up to the last
// line if the process dies. errno comes out of every trace call as it went in, so that a trace point can stand between a
// system call and the use of its errno.

#include "stapi_krv_diag.h"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sched.h>
#include <unistd.h>

#include "stapi_krv_caller.h"
#include "stapi_krv_pipesignal.h"
#include "stapi_krv_version.h"

const char version4stapi_krv_diag[] = KRVSTATS_VERSION_BANNER;

// Process-wide state of the trace.
int32_t statAPITrace = 0;
int32_t statAPIDump = 0;
FILE* statAPITraceHandle = nullptr;
char* statAPITraceFilename = nullptr;
const char* defaultTraceFilename = "stderr";
int32_t traceHeaderWrite = 0;
stapilock traceLock = {};

formatStringType traceFmtStr = {
    {'%', 's', ' '},
    {'[', '0', 'x', '%', '8', '.', '8', 'X', ',', '0', 'x', '%', '8', '.', '8', 'X', ']', ' '},
    {'[', '%', '4', '.', '4', 'd', ']', ' '},
    {'%', '-', '6', '.', '6', 's', ' '},
    "",
};
char timeStamp[TRACE_TIMESTAMP_SIZE] = "";
ProcessId tracePid = 0;
ThreadId traceTid = 0;
int32_t iTid = 0;
char dateBuf[TRACE_DATE_SIZE] = "";

namespace {

// The template in front of the message: its four constant fields.
constexpr size_t templateSize = offsetof(formatStringType, msg);

// The same fields filled in: 21 + 1, 24, 7 and 7 characters, with some to spare.
constexpr size_t prefixSize = 96;

struct ClockReading {
    tm local;
    int milliseconds;
};

ClockReading readClock()
{
    ClockReading reading = {};
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &reading.local);
    reading.milliseconds = static_cast<int>(now.tv_nsec / 1000000);
    return reading;
}

// A thread id is printed by its low 32 bits.
int32_t narrowTid(ThreadId tid)
{
    return static_cast<int32_t>(static_cast<uint32_t>(tid));
}

int tracePointOf(int line)
{
    return line / KINDS;
}

constexpr char kindNames[KINDS][6] = {"*EXC*", "EVENT", "ENTRY", "EXIT", "DEBUG", "DATA"};

// Each module's lowest number, from above.
struct TraceBlock {
    int lowest;
    char module[16];
};

constexpr TraceBlock traceBlocks[] = {
    {3200, "socketcomms"},
    {3100, "lock"},
    {3000, "gwycon"},
    {2300, "statquery"},
    {2200, "statcomms"},
    {2100, "resultsetbuffer"},
    {2000, "gwytok"},
    {0, "impl"},
};

// Writes where a line of this number comes from. Returns the length.
size_t nameOrigin(char* text, int tracePoint)
{
    const TraceBlock* block = traceBlocks;
    while (tracePoint < block->lowest) ++block;
    return static_cast<size_t>(stpcpy(stpcpy(text, "stapi_krv_"), block->module) - text);
}

// Puts a message into a template, with exactly one newline at its end.
void setMessage(formatStringType* format, int tracePoint, const char* message)
{
    size_t length = message[0] == '.' ? nameOrigin(format->msg, tracePoint) : 0;
    const size_t messageLength = strnlen(message, TRACE_MESSAGE_SIZE - 1 - length);
    memcpy(format->msg + length, message, messageLength);
    length += messageLength;
    if (length == 0 || format->msg[length - 1] != '\n') {
        if (length == TRACE_MESSAGE_SIZE - 1) --length;
        format->msg[length++] = '\n';
    }
    format->msg[length] = '\0';
}

// Writes one line by one call, so that lines of several processes on one stream stay whole: the filled-in prefix (which
// holds no conversions any more) and the message are joined into the format for the message's own arguments.
void printLine(
    const formatStringType* format, const char* when, ProcessId pid, int32_t tid, int line, va_list arguments)
{
    formatStringType prefixFormat = *format;
    prefixFormat.msg[0] = '\0';
    char joined[prefixSize + TRACE_MESSAGE_SIZE];
    const int prefixLength = snprintf(joined, prefixSize, reinterpret_cast<const char*>(&prefixFormat), when, pid, tid,
        tracePointOf(line), kindNames[line % KINDS]);
    memcpy(joined + prefixLength, format->msg, strlen(format->msg) + 1);

    FILE* stream = traceStream();
    vfprintf(stream, joined, arguments);
    fflush(stream);
}

enum class Stamp { Fresh, Previous };

// Writes a line from the shared template; the caller holds traceLock.
void writeSharedLine(Stamp stamp, int line, const char* message, va_list arguments)
{
    setMessage(&traceFmtStr, tracePointOf(line), message);
    if (stamp == Stamp::Fresh) getTimestamp(timeStamp);
    getPidTid(&tracePid, &traceTid);
    iTid = narrowTid(traceTid);
    printLine(&traceFmtStr, timeStamp, tracePid, iTid, line, arguments);
}

void writeUnderLock(Stamp stamp, int line, const char* message, va_list arguments)
{
    const int callersErrno = errno;
    PipeSignal held;
    holdPipeSignal(&held);
    requestLock(&traceLock);
    writeSharedLine(stamp, line, message, arguments);
    releaseLock(&traceLock);
    releasePipeSignal(&held);
    errno = callersErrno;
}

__attribute__((format(printf, 2, 3))) void writeSharedLine(int line, const char* message, ...)
{
    va_list arguments;
    va_start(arguments, message);
    writeSharedLine(Stamp::Fresh, line, message, arguments);
    va_end(arguments);
}

// Threads inside the C library's calendar, and forks about to happen: the calendar has a lock that the child of a fork
// would inherit as it is, and nobody there could free it. Both sides give up in the end, as the one that is waited for may
// be the waiting thread itself, interrupted by a signal.
int calendarUsers = 0;
int forks = 0;
constexpr int YIELDS = 100; // then sleeps of a millisecond
constexpr int MOST_TURNS = 1100;

void giveWay(int turn)
{
    constexpr timespec millisecond = {0, 1000000};
    if (turn < YIELDS) {
        sched_yield();
    } else {
        nanosleep(&millisecond, nullptr);
    }
}

void leaveCalendar()
{
    __atomic_sub_fetch(&calendarUsers, 1, __ATOMIC_SEQ_CST);
}

void enterCalendar()
{
    for (int turn = 0;; ++turn) {
        __atomic_add_fetch(&calendarUsers, 1, __ATOMIC_SEQ_CST);
        if (__atomic_load_n(&forks, __ATOMIC_SEQ_CST) == 0 || turn == MOST_TURNS) return;
        leaveCalendar();
        giveWay(turn);
    }
}

// Writers that do not hold traceLock, and a switch of the destination that waits for them.
int pins = 0;
int switching = 0;

// Where the data of a dump ends: after a length, or at a stop word when the length is 0.
bool endsAt(const unsigned char* at, int offset, unsigned int dataLen, unsigned int stopWord)
{
    if (dataLen != 0) return static_cast<unsigned int>(offset) == dataLen;
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return word == stopWord;
}

} // namespace

FILE* traceStream()
{
    FILE* stream = __atomic_load_n(&statAPITraceHandle, __ATOMIC_ACQUIRE);
    return stream ? stream : stderr;
}

void pinTraceDestination()
{
    for (;;) {
        __atomic_add_fetch(&pins, 1, __ATOMIC_SEQ_CST);
        if (!__atomic_load_n(&switching, __ATOMIC_SEQ_CST)) return;
        unpinTraceDestination();
        while (__atomic_load_n(&switching, __ATOMIC_SEQ_CST)) sched_yield();
    }
}

void unpinTraceDestination()
{
    __atomic_sub_fetch(&pins, 1, __ATOMIC_SEQ_CST);
}

const char* traceDestination()
{
    return statAPITraceFilename ? statAPITraceFilename : defaultTraceFilename;
}

void changeTraceDestination(FILE* stream, const char* name)
{
    __atomic_store_n(&switching, 1, __ATOMIC_SEQ_CST);
    while (__atomic_load_n(&pins, __ATOMIC_SEQ_CST) != 0) sched_yield();
    FILE* const previous = traceStream();
    __atomic_store_n(&statAPITraceHandle, stream, __ATOMIC_RELEASE);
    // It may be the name that stands there already.
    const size_t length = strnlen(name, TRACE_FILENAME_SIZE - 1);
    memmove(statAPITraceFilename, name, length);
    statAPITraceFilename[length] = '\0';
    __atomic_store_n(&switching, 0, __ATOMIC_SEQ_CST);
    if (previous == stderr) return;
    PipeSignal held;
    holdPipeSignal(&held);
    fclose(previous);
    releasePipeSignal(&held);
}

void forgetTraceWriters()
{
    if (isLockInitialized(&traceLock) == STAPILOCK_INITIALIZED) pthread_mutex_init(&traceLock.lock, nullptr);
    pins = 0;
    switching = 0;
    calendarUsers = 0;
    forks = 0;
}

void prepareTraceForFork()
{
    __atomic_add_fetch(&forks, 1, __ATOMIC_SEQ_CST);
    for (int turn = 0; turn < MOST_TURNS && __atomic_load_n(&calendarUsers, __ATOMIC_SEQ_CST) > 0; ++turn) {
        giveWay(turn);
    }
}

void resumeTraceAfterFork()
{
    __atomic_sub_fetch(&forks, 1, __ATOMIC_SEQ_CST);
}

void writeTraceRule()
{
    FILE* stream = traceStream();
    for (int column = 0; column < 80; ++column) fputc('-', stream);
    fputc('\n', stream);
}

void copyTraceDestination(char name[TRACE_FILENAME_SIZE])
{
    requestLock(&traceLock);
    snprintf(name, TRACE_FILENAME_SIZE, "%s", traceDestination());
    releaseLock(&traceLock);
}

void writeTraceLine(int line, const char* message, ...)
{
    va_list arguments;
    va_start(arguments, message);
    writeUnderLock(Stamp::Fresh, line, message, arguments);
    va_end(arguments);
}

void writeTraceLineWithPreviousTimestamp(int line, const char* message, ...)
{
    va_list arguments;
    va_start(arguments, message);
    writeUnderLock(Stamp::Previous, line, message, arguments);
    va_end(arguments);
}

// Without the lock the shared template may be in use by another line: this one is built from a copy of its constant
// fields.
void writeTraceLineUnlocked(int line, const char* message, ...)
{
    const int callersErrno = errno;
    formatStringType format;
    memcpy(&format, &traceFmtStr, templateSize);
    setMessage(&format, tracePointOf(line), message);
    char when[TRACE_TIMESTAMP_SIZE];
    getTimestamp(when);
    va_list arguments;
    va_start(arguments, message);
    PipeSignal held;
    holdPipeSignal(&held);
    pinTraceDestination();
    printLine(&format, when, currentProcess(), narrowTid(currentThread()), line, arguments);
    unpinTraceDestination();
    releasePipeSignal(&held);
    va_end(arguments);
    errno = callersErrno;
}

void writeTraceData(int tracePoint, const char* message, void* data, int dataLen, unsigned int stopWord, int translate)
{
    const int callersErrno = errno;
    PipeSignal held;
    holdPipeSignal(&held);
    requestLock(&traceLock);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // traceData checks it where the message is a literal
    writeSharedLine(TRACE_LINE(tracePoint, KIND_DATA), message, data, dataLen, stopWord);
#pragma GCC diagnostic pop
    traceOutStorage(data, static_cast<unsigned int>(dataLen), stopWord, TRACE_DUMP_WIDTH, translate);
    releaseLock(&traceLock);
    releasePipeSignal(&held);
    errno = callersErrno;
}

int initTrace()
{
    __atomic_store_n(&statAPITraceHandle, stderr, __ATOMIC_RELEASE);
    const int lockRc = initializeLock(&traceLock);
    if (lockRc == 1) return KRVSTAT_OK;
    if (lockRc != 0) return KRVSTAT_LOCK_INIT_FAILED;

    statAPITraceFilename = static_cast<char*>(malloc(TRACE_FILENAME_SIZE));
    if (!statAPITraceFilename) return KRVSTAT_OUT_OF_MEMORY;
    strcpy(statAPITraceFilename, defaultTraceFilename);
    return KRVSTAT_OK;
}

void getTimestamp(char* MsgBuf)
{
    enterCalendar();
    const ClockReading now = readClock();
    char text[TRACE_TIMESTAMP_SIZE] = "";
    const size_t length = strftime(text, sizeof text - 1, "%d/%m/%y %H:%M:%S:", &now.local);
    leaveCalendar();
    snprintf(text + length, sizeof text - length, "%.3d", now.milliseconds);
    strcpy(MsgBuf, text);
}

void getTraceDate(char* msgBuf)
{
    enterCalendar();
    const ClockReading now = readClock();
    char text[TRACE_DATE_SIZE] = "";
    strftime(text, sizeof text, "%d/%m/%y", &now.local);
    leaveCalendar();
    strcpy(msgBuf, text);
}

void getPidTid(ProcessId* Pid, ThreadId* Tid)
{
    if (Pid) *Pid = currentProcess();
    if (Tid) *Tid = currentThread();
}

int compareTids(ThreadId tid1, ThreadId tid2)
{
    return pthread_equal(tid1, tid2) ? 1 : 0;
}

int traceOutStorage(void* startAddr, unsigned int dataLen, unsigned int stopWord, int width, int translate)
{
    if (!startAddr || width < 1 || (dataLen == 0 && stopWord == 0)) return 0;

    char* cursor = static_cast<char*>(startAddr);
    unsigned int remaining = dataLen;
    int total = 0;
    bool more = true;
    while (more) {
        const int count = writeStorageLineDual(cursor, width, remaining, stopWord, translate);
        total += count;
        cursor += count;
        if (dataLen != 0) {
            remaining -= static_cast<unsigned int>(count);
            more = remaining > 0;
        } else {
            more = count == width;
        }
    }
    fflush(traceStream());
    return total;
}

int writeStorageLineDual(void* startAddr, int width, unsigned int dataLen, unsigned int stopWord, int translate)
{
    FILE* stream = traceStream();
    fprintf(stream, "0x%8.8X: ", static_cast<unsigned int>(reinterpret_cast<uintptr_t>(startAddr)));
    const int count = writeStorageLineHex(startAddr, width, dataLen, stopWord);
    fprintf(stream, " : ");
    writeStorageLineChar(startAddr, width, dataLen, stopWord, translate);
    fputc('\n', stream);
    return count;
}

// The end is looked for at every position, also behind one that was found: in stop-word mode a later match in the same
// line moves the count there. An end at offset 0 pads nothing: the whole line is printed.
int writeStorageLineHex(void* startAddr, int width, unsigned int dataLen, unsigned int stopWord)
{
    FILE* stream = traceStream();
    const unsigned char* at = static_cast<const unsigned char*>(startAddr);
    int count = width;
    bool ended = false;
    for (int offset = 0; offset < width;) {
        if (endsAt(at, offset, dataLen, stopWord)) {
            ended = true;
            count = offset;
        }
        if (ended && count != 0) {
            fprintf(stream, "  ");
        } else {
            fprintf(stream, "%2.2X", *at);
        }
        fflush(stream);
        ++at;
        ++offset;
        if (offset == width) break;
        if (offset % 4 == 0) fputc(' ', stream);
        if (offset % 16 == 0) fputc(' ', stream);
    }
    return count;
}

int writeStorageLineChar(
    void* startAddr, int width, unsigned int dataLen, unsigned int stopWord, [[maybe_unused]] int translate)
{
    FILE* stream = traceStream();
    const unsigned char* at = static_cast<const unsigned char*>(startAddr);
    for (int offset = 0; offset < width; ++at) {
        if (endsAt(at, offset, dataLen, stopWord)) return offset;
        fputc(isprint(*at) ? *at : '.', stream);
        ++offset;
        if (offset % 16 == 0) fputc(' ', stream);
    }
    return 0;
}
