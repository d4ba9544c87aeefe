// A pseudo-terminal of a chosen size, and what is written to it.
#ifndef TESTS_TOOLS_TERMINAL_H
#define TESTS_TOOLS_TERMINAL_H

#include "run_program.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

class Terminal {
public:
    Terminal(unsigned short lines, unsigned short columns)
    {
        EXPECT_EQ(grantpt(ourEnd), 0);
        EXPECT_EQ(unlockpt(ourEnd), 0);
        itsEnd = open(ptsname(ourEnd), O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_GE(itsEnd, 0);
        termios settings{};
        EXPECT_EQ(tcgetattr(itsEnd, &settings), 0);
        cfmakeraw(&settings); // else every "\n" came as "\r\n"
        EXPECT_EQ(tcsetattr(itsEnd, TCSANOW, &settings), 0);
        resize(lines, columns);
    }
    ~Terminal()
    {
        close(itsEnd);
        close(ourEnd);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void resize(unsigned short lines, unsigned short columns) const
    {
        const winsize size{lines, columns, 0, 0};
        EXPECT_EQ(ioctl(itsEnd, TIOCSWINSZ, &size), 0);
    }

    // The launch with its output here.
    Launch on(Launch launch) const
    {
        launch.standardOutput = itsEnd;
        return launch;
    }

    // Runs a program that succeeds and returns all that it wrote here: at most what the terminal holds.
    std::string run(const Launch& launch)
    {
        const ProgramRun got = runProgram(on(launch));
        EXPECT_EQ(got.exitCode, 0);
        EXPECT_EQ(got.errors, "");
        while (readSome(0)) {}
        return text;
    }

    // Waits up to 60 seconds until it shows this.
    bool await(const std::string& wanted)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (text.find(wanted) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            readSome(1000);
        }
        return true;
    }

    const std::string& shown() const
    {
        return text;
    }

    void forget()
    {
        text.clear();
    }

private:
    bool readSome(int milliseconds)
    {
        pollfd end{ourEnd, POLLIN, 0};
        if (poll(&end, 1, milliseconds) <= 0 || (end.revents & POLLIN) == 0) return false;
        char part[4096];
        const ssize_t count = read(ourEnd, part, sizeof part);
        if (count > 0) text.append(part, static_cast<std::size_t>(count));
        return count > 0;
    }

    int ourEnd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    int itsEnd = -1;
    std::string text;
};

#endif
