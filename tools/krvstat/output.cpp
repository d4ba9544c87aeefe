#include "output.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// The text of a variable that is not set is empty.
std::string textOf(const char* variable)
{
    const char* text = std::getenv(variable);
    return text != nullptr ? text : "";
}

// CLICOLOR_FORCE=0 is said to mean no force.
bool isForced()
{
    const std::string force = textOf("CLICOLOR_FORCE");
    return !force.empty() && force != "0";
}

bool wantsColour(const Settings& settings, bool isTerminal)
{
    if (settings.colour != ColourChoice::Auto) return settings.colour == ColourChoice::Always;
    if (!textOf("NO_COLOR").empty()) return false;
    return isForced() || (isTerminal && textOf("TERM") != "dumb");
}

} // namespace

void prepareOutput()
{
    // open takes the lowest free descriptor. Opened for reading only, so that writing to a closed one still fails.
    int descriptor = open("/dev/null", O_RDONLY);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDONLY);
    if (descriptor >= 0) close(descriptor);

    signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): cannot fail for this signal
}

Written writeData(std::string_view text)
{
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (isWritten) return Written::Yes;
    if (errno == EPIPE) return Written::ReaderGone;
    complain(fmt::format("cannot write to standard output: {}", std::strerror(errno)));
    return Written::No;
}

ExitCode exitCodeOf(Written written)
{
    return written == Written::No ? ExitOutput : ExitDone;
}

void complain(std::string_view sentence)
{
    std::string line = "krvstat: ";
    line += sentence;
    line += '\n';
    std::fputs(line.c_str(), stderr); // where it cannot be written there is nobody to tell
}

void remark(const Settings& settings, std::string_view sentence)
{
    if (settings.talk != Talk::Quiet) complain(sentence);
}

void explain(const Settings& settings, std::string_view sentence)
{
    if (settings.talk == Talk::Verbose) complain(sentence);
}

Style styleFor(const Settings& settings)
{
    Style style;
    style.form = settings.form;
    style.hasHeader = settings.hasHeader;
    style.isTerminal = isatty(STDOUT_FILENO) == 1;
    style.isColoured = wantsColour(settings, style.isTerminal);
    winsize size{};
    if (style.isTerminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) style.terminalWidth = size.ws_col;
    return style;
}
