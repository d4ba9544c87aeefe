// Replays a corpus without a fuzzer: each file once as it is, then once for each allocation with that one failing and
// once with all from there failing. Ends with 1 if nothing was replayed, or an injection met nothing; a check that fails
// aborts, after the name of its file.
//
// replay FOLDER
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "allocations.h"
#include "checks.h"
#include "first_call.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using krvfuzz::allocations;

struct Totals {
    int files = 0;
    int runs = 0;
    int failures = 0;
};

std::vector<std::filesystem::path> filesOf(const char* folder)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Returns the number of allocations that the run made.
int run(const std::vector<char>& input, int failFrom, int failFor, Totals& totals)
{
    allocations.failFrom = failFrom;
    allocations.failFor = failFor;
    allocations.seen = 0;
    allocations.failed = 0;
    const int before = allocations.live;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    const int seen = allocations.seen;
    allocations.failFrom = -1;
    krvfuzz::require(allocations.live == before, "nothing leaks");
    krvfuzz::require(failFrom < 0 || allocations.failed > 0, "an injection meets its call");
    totals.runs++;
    totals.failures += allocations.failed;
    return seen;
}

void replay(const std::filesystem::path& file, Totals& totals)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> input{std::istreambuf_iterator<char>(stream), {}};
    std::printf("%s\n", file.filename().c_str());
    std::fflush(stdout);
    const int seen = run(input, -1, 0, totals);
    for (int number = 0; number < seen; number++) {
        run(input, number, 1, totals);
        run(input, number, INT_MAX, totals);
    }
    totals.files++;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "replay FOLDER\n");
        return 2;
    }
    LLVMFuzzerInitialize(&argc, &argv);
    Totals totals;
    for (const std::filesystem::path& file : filesOf(argv[1])) replay(file, totals);
    std::printf("%d inputs, %d runs, %d allocations that failed\n", totals.files, totals.runs, totals.failures);
    return totals.files > 0 ? 0 : 1;
}
