// Lets a chosen call of the C library's streams fail in the calling thread: opening a file by its name, and whatever
// writes to one stream. Something else may happen when a file has just been opened.
//
// A program that defines fprintf is asked before the C library, also by the shared library. Which of the calls below a
// library makes is the compiler's choice too (a fortified build calls __fprintf_chk, an optimised one fwrite): so they
// are counted together. Include this in exactly one source file of a program, and assert the hits: an injection that was
// never met proves nothing.
#ifndef TESTS_SUPPORT_STREAM_CALLS_H
#define TESTS_SUPPORT_STREAM_CALLS_H

#include <dlfcn.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <functional>

namespace krvtest {

struct StreamFault {
    int first = INT_MAX; // number of the first call that fails, from 0
    int times = 1;
    int error = 0; // 0: it says that it did nothing, and no more

    int made = 0;
    int hits = 0;
};

inline thread_local StreamFault* openingFault = nullptr;
inline thread_local StreamFault* writingFault = nullptr;
inline thread_local std::function<void()> behindOpening; // called when a file was opened
inline thread_local FILE* const* faultyStream = nullptr; // where the stream stands that writingFault is for

// Sets the calling thread's faults for as long as it lives.
class FaultyStreams {
public:
    FaultyStreams(StreamFault* opening, StreamFault* writing, FILE* const* stream)
    {
        openingFault = opening;
        faultyStream = stream;
        writingFault = writing;
    }
    ~FaultyStreams()
    {
        openingFault = nullptr;
        writingFault = nullptr;
    }
    FaultyStreams(const FaultyStreams&) = delete;
    FaultyStreams& operator=(const FaultyStreams&) = delete;
};

inline bool failsNow(StreamFault* fault)
{
    if (!fault) return false;
    const int number = fault->made++;
    if (number < fault->first || number - fault->first >= fault->times) return false;
    fault->hits++;
    if (fault->error != 0) errno = fault->error;
    return true;
}

inline bool writeFails(const FILE* stream)
{
    return writingFault && *faultyStream == stream && failsNow(writingFault);
}

// What a call that writes text returns when it fails.
inline int failedPrint()
{
    return writingFault->error != 0 ? -1 : 0;
}

template <typename Function>
Function* nextStreamCall(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace krvtest

// With 64-bit file offsets on a 32-bit machine, the headers give this call another name at link time.
#if defined(__USE_FILE_OFFSET64) && !defined(__LP64__)
#define CALL_FOPEN "fopen64"
#else
#define CALL_FOPEN "fopen"
#endif

extern "C" {

FILE* calledFopen(const char* name, const char* mode) __asm__(CALL_FOPEN);
int calledFclose(FILE* stream) __asm__("fclose");
int calledFflush(FILE* stream) __asm__("fflush");
int calledFputc(int character, FILE* stream) __asm__("fputc");
int calledFputs(const char* text, FILE* stream) __asm__("fputs");
std::size_t calledFwrite(const void* data, std::size_t size, std::size_t count, FILE* stream) __asm__("fwrite");
int calledFprintf(FILE* stream, const char* format, ...) __asm__("fprintf");
int calledVfprintf(FILE* stream, const char* format, va_list arguments) __asm__("vfprintf");
int calledFprintfChk(FILE* stream, int flag, const char* format, ...) __asm__("__fprintf_chk");
int calledVfprintfChk(FILE* stream, int flag, const char* format, va_list arguments) __asm__("__vfprintf_chk");

FILE* calledFopen(const char* name, const char* mode)
{
    if (krvtest::failsNow(krvtest::openingFault)) return nullptr;
    FILE* const stream = krvtest::nextStreamCall<FILE*(const char*, const char*)>(CALL_FOPEN)(name, mode);
    if (krvtest::behindOpening) krvtest::behindOpening();
    return stream;
}

int calledFclose(FILE* stream) // one that fails has closed
{
    const bool fails = krvtest::writeFails(stream);
    const int rc = krvtest::nextStreamCall<int(FILE*)>("fclose")(stream);
    if (!fails) return rc;
    errno = krvtest::writingFault->error;
    return EOF;
}

int calledFflush(FILE* stream)
{
    if (krvtest::writeFails(stream)) return EOF;
    return krvtest::nextStreamCall<int(FILE*)>("fflush")(stream);
}

int calledFputc(int character, FILE* stream)
{
    if (krvtest::writeFails(stream)) return EOF;
    return krvtest::nextStreamCall<int(int, FILE*)>("fputc")(character, stream);
}

int calledFputs(const char* text, FILE* stream)
{
    if (krvtest::writeFails(stream)) return EOF;
    return krvtest::nextStreamCall<int(const char*, FILE*)>("fputs")(text, stream);
}

std::size_t calledFwrite(const void* data, std::size_t size, std::size_t count, FILE* stream)
{
    if (krvtest::writeFails(stream)) return 0;
    return krvtest::nextStreamCall<std::size_t(const void*, std::size_t, std::size_t, FILE*)>("fwrite")(data, size, count,
                                                                                                       stream);
}

int calledVfprintf(FILE* stream, const char* format, va_list arguments)
{
    if (krvtest::writeFails(stream)) return krvtest::failedPrint();
    return krvtest::nextStreamCall<int(FILE*, const char*, va_list)>("vfprintf")(stream, format, arguments);
}

int calledFprintf(FILE* stream, const char* format, ...)
{
    if (krvtest::writeFails(stream)) return krvtest::failedPrint();
    va_list arguments;
    va_start(arguments, format);
    const int rc = krvtest::nextStreamCall<int(FILE*, const char*, va_list)>("vfprintf")(stream, format, arguments);
    va_end(arguments);
    return rc;
}

int calledVfprintfChk(FILE* stream, int flag, const char* format, va_list arguments)
{
    if (krvtest::writeFails(stream)) return krvtest::failedPrint();
    return krvtest::nextStreamCall<int(FILE*, int, const char*, va_list)>("__vfprintf_chk")(stream, flag, format, arguments);
}

int calledFprintfChk(FILE* stream, int flag, const char* format, ...)
{
    if (krvtest::writeFails(stream)) return krvtest::failedPrint();
    va_list arguments;
    va_start(arguments, format);
    const int rc =
        krvtest::nextStreamCall<int(FILE*, int, const char*, va_list)>("__vfprintf_chk")(stream, flag, format, arguments);
    va_end(arguments);
    return rc;
}

} // extern "C"

#endif
