// A small application in C++: says which library it got, and that the library checks its arguments.
#include <iostream>

#include <krvstats.h>
#include <krvstats_ext.h>

int main()
{
    KRV_GatewayToken_t gateway = nullptr;
    char* apiVersion = nullptr;
    char* protocolVersion = nullptr;

    if (getStatsAPIVersion(&apiVersion) != KRVSTAT_OK) return 1;
    const int rc = openGatewayConnection(0, &gateway, &protocolVersion);
    std::cout << "API " << apiVersion << ", port 0 is refused with " << rc << ", " << getReturnCodeName(rc) << '\n';
    return 0;
}
