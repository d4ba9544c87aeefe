// See first_call.h: the library is set up before anything is counted or made to fail.
#include "first_call.h"

#include "checks.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    char* version = nullptr;
    krvfuzz::require(getStatsAPIVersion(&version) == 0, "the library starts");
    return 0;
}
