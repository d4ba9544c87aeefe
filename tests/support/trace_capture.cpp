// See trace_capture.h.
#include "trace_capture.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

#include "krvstats.h"
#include "stapi_krv_diag.h"

namespace krvtest {

namespace {

std::string readFrom(int file, std::size_t start)
{
    std::string text;
    char part[4096];
    for (;;) {
        ssize_t got = pread(file, part, sizeof part, static_cast<off_t>(start + text.size()));
        if (got <= 0) return text;
        text.append(part, static_cast<std::size_t>(got));
    }
}

bool isDigits(const std::string& text, std::size_t from, std::size_t count)
{
    if (text.size() < from + count) return false;
    for (std::size_t i = from; i < from + count; i++)
        if (text[i] < '0' || text[i] > '9') return false;
    return true;
}

// dd/mm/yy HH:MM:SS:mmm
bool isTimestamp(const std::string& text)
{
    return text.size() == 21 && isDigits(text, 0, 2) && text[2] == '/' && isDigits(text, 3, 2) && text[5] == '/'
        && isDigits(text, 6, 2) && text[8] == ' ' && isDigits(text, 9, 2) && text[11] == ':' && isDigits(text, 12, 2)
        && text[14] == ':' && isDigits(text, 15, 2) && text[17] == ':' && isDigits(text, 18, 3);
}

bool upperHex(const std::string& text, std::size_t from, std::uint32_t* value)
{
    *value = 0;
    for (std::size_t i = from; i < from + 8; i++) {
        char c = text[i];
        if (c >= '0' && c <= '9') *value = *value << 4 | static_cast<std::uint32_t>(c - '0');
        else if (c >= 'A' && c <= 'F') *value = *value << 4 | static_cast<std::uint32_t>(c - 'A' + 10);
        else return false;
    }
    return true;
}

// timestamp 21, " [0x", pid 8, ",0x", tid 8, "] [", number 4, "] ", kind 6, " ", message
TraceLine parseLine(const std::string& text)
{
    TraceLine line;
    line.text = text;
    if (text.size() < 60 || !isTimestamp(text.substr(0, 21))) return line;
    if (text.compare(21, 4, " [0x") != 0 || text.compare(33, 3, ",0x") != 0 || text.compare(44, 3, "] [") != 0) return line;
    if (!isDigits(text, 47, 4) || text.compare(51, 2, "] ") != 0 || text[59] != ' ') return line;
    if (!upperHex(text, 25, &line.pid) || !upperHex(text, 36, &line.tid)) return line;
    line.timestamp = text.substr(0, 21);
    line.number = std::stoi(text.substr(47, 4));
    line.kind = text.substr(53, 6);
    line.kind.erase(line.kind.find_last_not_of(' ') + 1);
    line.message = text.substr(60);
    return line;
}

} // namespace

bool isDumpLine(const std::string& text)
{
    std::uint32_t address = 0;
    return text.size() >= 12 && text.compare(0, 2, "0x") == 0 && upperHex(text, 2, &address)
        && text.compare(10, 2, ": ") == 0;
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return lines;
}

std::vector<TraceLine> parseTrace(const std::string& text)
{
    std::vector<TraceLine> lines;
    for (const std::string& each : splitLines(text)) {
        TraceLine line = parseLine(each);
        if (line.number == 0 && !lines.empty() && lines.back().kind == "DATA" && isDumpLine(each))
            lines.back().dump.push_back(each);
        else
            lines.push_back(line);
    }
    return lines;
}

std::vector<TraceLine> linesNumbered(const std::vector<TraceLine>& lines, int number)
{
    std::vector<TraceLine> found;
    for (const TraceLine& line : lines)
        if (line.number == number) found.push_back(line);
    return found;
}

std::vector<std::string> brief(const std::vector<TraceLine>& lines)
{
    std::vector<std::string> texts;
    for (const TraceLine& line : lines)
        texts.push_back(line.number == 0 ? line.text : std::to_string(line.number) + " " + line.kind + " " + line.message);
    return texts;
}

std::string readWholeFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string pointerText(const void* address)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", address);
    return text;
}

ScratchFolder::ScratchFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "krvstats-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no scratch folder");
    folder = pattern;
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

TraceFile::TraceFile(int level) : name(scratch.path("trace"))
{
    if (setAPITraceLevel(0) != KRVSTAT_OK || setAPITraceFile(name.data()) != KRVSTAT_OK
        || setAPITraceLevel(level) != KRVSTAT_OK)
        throw std::runtime_error("the trace does not go to " + name);
    std::fflush(statAPITraceHandle); // the header of a raised level is not flushed by itself
    forget();
}

TraceFile::~TraceFile()
{
    setAPITraceLevel(0);
    setAPITraceFile(nullptr);
}

std::string TraceFile::text() const
{
    return readWholeFile(name).substr(start);
}

void TraceFile::forget()
{
    start = readWholeFile(name).size();
}

CapturedStderr::CapturedStderr()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "krvstats-stderr-XXXXXX").string();
    file = mkstemp(pattern.data());
    if (file < 0) throw std::runtime_error("no scratch file");
    unlink(pattern.c_str());
    fcntl(file, F_SETFL, O_APPEND);
    std::fflush(stderr);
    original = dup(STDERR_FILENO);
    dup2(file, STDERR_FILENO);
}

CapturedStderr::~CapturedStderr()
{
    std::fflush(stderr);
    dup2(original, STDERR_FILENO);
    close(original);
    close(file);
}

std::string CapturedStderr::text() const
{
    std::fflush(stderr);
    return readFrom(file, start);
}

void CapturedStderr::forget()
{
    start += text().size();
}

} // namespace krvtest
