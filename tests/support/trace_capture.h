// Captures what the library writes to its trace and takes it apart into lines.
//
// TraceFile makes a scratch file the trace destination for as long as it lives; CapturedStderr catches what goes to
// standard error, for what is written before there is a destination. Both show only what was written since they were
// made or last forgot.
#ifndef TESTS_SUPPORT_TRACE_CAPTURE_H
#define TESTS_SUPPORT_TRACE_CAPTURE_H

#include <cstdint>
#include <string>
#include <vector>

namespace krvtest {

// One line of output, without its newline. A line that is not in the trace template (the trace header, a storage dump
// without a DATA line, the state dump) has number 0 and only its text.
struct TraceLine {
    std::string text;
    std::string timestamp;
    std::uint32_t pid = 0;
    std::uint32_t tid = 0;
    int number = 0;
    std::string kind;
    std::string message;
    std::vector<std::string> dump; // the lines of a storage dump that follow it
};

bool isDumpLine(const std::string& text);

std::vector<std::string> splitLines(const std::string& text);
std::vector<TraceLine> parseTrace(const std::string& text);

std::vector<TraceLine> linesNumbered(const std::vector<TraceLine>& lines, int number);

// Messages as "NUMBER KIND MESSAGE", one a line: what a failing comparison prints.
std::vector<std::string> brief(const std::vector<TraceLine>& lines);

std::string readWholeFile(const std::string& path);

// The text of %p for this address.
std::string pointerText(const void* address);

// A folder that is removed with its content when it goes out of scope.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string path(const std::string& name) const { return folder + "/" + name; }

    std::string folder;
};

class TraceFile {
public:
    explicit TraceFile(int level);
    ~TraceFile();
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    std::string text() const;
    std::vector<TraceLine> lines() const { return parseTrace(text()); }
    void forget();
    const std::string& path() const { return name; }

private:
    ScratchFolder scratch;
    std::string name;
    std::size_t start = 0;
};

class CapturedStderr {
public:
    CapturedStderr();
    ~CapturedStderr();
    CapturedStderr(const CapturedStderr&) = delete;
    CapturedStderr& operator=(const CapturedStderr&) = delete;

    std::string text() const;
    std::vector<TraceLine> lines() const { return parseTrace(text()); }
    void forget();

private:
    int file;
    int original;
    std::size_t start = 0;
};

} // namespace krvtest

#endif
