// version: of krvstat, and of the interface of the library that it found.

#include "commands.h"

#include "output.h"

#include "krvstats.h"

#include <fmt/format.h>

int runVersion()
{
    char* apiVersion = nullptr;
    const int code = getStatsAPIVersion(&apiVersion);
    if (code != KRVSTAT_OK) {
        complain(fmt::format("the statistics library could not be started (return code {})", code));
        return ExitInternal;
    }
    return exitCodeOf(writeData(fmt::format("krvstat {}\nstatistics API {}\n", KRVSTAT_VERSION, apiVersion)));
}
