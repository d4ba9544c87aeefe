/* A small application: says which library it got, and that the library checks its arguments. */
#include <stdio.h>

#include <krvstats.h>

int main(void)
{
    KRV_GatewayToken_t gateway = NULL;
    char* apiVersion = NULL;
    char* protocolVersion = NULL;

    if (getStatsAPIVersion(&apiVersion) != KRVSTAT_OK) return 1;
    printf("API %s, port 0 is refused with %d\n", apiVersion, openGatewayConnection(0, &gateway, &protocolVersion));
    return 0;
}
