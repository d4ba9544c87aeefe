#include "output.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

void prepareOutput()
{
    // open takes the lowest free descriptor. Opened for reading only, so that writing to a closed one still fails.
    int descriptor = open("/dev/null", O_RDONLY);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDONLY);
    if (descriptor >= 0) close(descriptor);

    signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): cannot fail for this signal
}

int writeData(std::string_view text)
{
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    return isWritten || errno == EPIPE ? 0 : errno;
}

void complain(std::string_view sentence)
{
    std::string line = "krvstat: ";
    line += sentence;
    line += '\n';
    std::fputs(line.c_str(), stderr); // where it cannot be written there is nobody to tell
}

std::size_t terminalColumns()
{
    winsize size{};
    const bool isTerminal = isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return isTerminal ? size.ws_col : 0;
}
