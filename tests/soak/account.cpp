// See account.h.
#include "account.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <malloc.h>
#include <unistd.h>

#include "stapi_krv_gwytok.h"

namespace krvsoak {

namespace {

// What a caching allocator may keep for the thread that asks. A single byte lost in each of many thousand calls is more.
constexpr std::size_t heapSlack = 64 * 1024;

// Fragments, which come and go.
constexpr std::size_t residentSlack = 32 * 1024 * 1024;

std::size_t residentBytes()
{
    std::size_t whole = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> whole >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::vector<std::string> openDescriptors()
{
    std::vector<std::string> found;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the one that reads the folder
        const std::string target = std::filesystem::read_symlink(each, gone).string();
        if (!gone && target.find("/proc/") != 0) found.push_back(each.path().filename().string() + " is " + target);
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::size_t threadCount()
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator("/proc/self/task")) count++;
    return count;
}

std::string grown(const std::string& what, std::size_t before, std::size_t now)
{
    return what + " grew from " + std::to_string(before) + " to " + std::to_string(now);
}

} // namespace

Account takeAccount()
{
    malloc_trim(0);
    Account account;
    account.heapBytes = mallinfo2().uordblks;
    account.residentBytes = residentBytes();
    account.descriptors = openDescriptors();
    account.threads = threadCount();
    account.tokensLeft = gtListHeadPtr != nullptr;
    return account;
}

std::vector<std::string> grownSince(const Account& before, const Account& now)
{
    std::vector<std::string> found;
    if (now.heapBytes > before.heapBytes + heapSlack) found.push_back(grown("memory in use", before.heapBytes, now.heapBytes));
    if (now.residentBytes > before.residentBytes + residentSlack)
        found.push_back(grown("resident memory", before.residentBytes, now.residentBytes));
    for (const std::string& each : now.descriptors)
        if (!std::binary_search(before.descriptors.begin(), before.descriptors.end(), each)) found.push_back("left open: descriptor " + each);
    if (now.threads > before.threads) found.push_back(grown("the number of threads", before.threads, now.threads));
    if (now.tokensLeft) found.push_back("connections are left on the list");
    return found;
}

} // namespace krvsoak
