// A process that has so many files open that a new descriptor does not fit an fd_set any more.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace krvtest {

class OpenFiles {
public:
    explicit OpenFiles(int count)
    {
        constexpr rlim_t besides = 500; // for what a test opens itself
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
        rlimit raised = before;
        raised.rlim_cur = std::max(before.rlim_cur, static_cast<rlim_t>(count) + besides);
        raised.rlim_max = std::max(before.rlim_max, raised.rlim_cur);
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &raised));
        for (int i = 0; i < count; i++) files.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_LT(count, files.back()) << "standard streams and these";
    }
    ~OpenFiles()
    {
        for (int file : files) ::close(file);
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    }
    OpenFiles(const OpenFiles&) = delete;
    OpenFiles& operator=(const OpenFiles&) = delete;

private:
    rlimit before = {};
    std::vector<int> files;
};

} // namespace krvtest
