/* An application that happens to have functions named as the library's internal ones, flow or getHostInfo, say.
 *
 * Such an application works: the library calls its own functions. A failed and a whole conversation prove it.
 * Usage: abi_own_functions_test GATEWAY-PROGRAM
 */
#define _POSIX_C_SOURCE 200809L

#include "own_functions.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "krvstats.h"

static int callsOfOwnFunctions = 0;
static int failures = 0;

int ownFunctionCalled(const char* name)
{
    callsOfOwnFunctions++;
    printf("the library called the application's %s\n", name);
    return -99;
}

static void expect(int actual, int expected, const char* what)
{
    if (actual == expected) return;
    printf("%s: %d, not %d\n", what, actual, expected);
    failures++;
}

/* A port of this host that nobody listens on, and nobody else gets while the socket, *heldPtr, is open. */
static int refusingPort(int* heldPtr)
{
    struct sockaddr_in address;
    socklen_t length = sizeof address;

    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    *heldPtr = socket(AF_INET, SOCK_STREAM, 0);
    if (*heldPtr < 0 || bind(*heldPtr, (struct sockaddr*)&address, sizeof address) != 0 ||
        getsockname(*heldPtr, (struct sockaddr*)&address, &length) != 0) {
        perror("no port to be refused at");
        exit(1);
    }
    return ntohs(address.sin_port);
}

/* The number in the gateway's port file once it is whole, else 0. */
static int readPort(const char* portFile)
{
    char line[16] = "";
    FILE* file = fopen(portFile, "r");

    if (!file) return 0;
    if (!fgets(line, sizeof line, file)) line[0] = '\0';
    fclose(file);
    return strchr(line, '\n') ? atoi(line) : 0;
}

/* Waits until the gateway listens or has ended. */
static int waitForPort(const char* portFile, pid_t gateway)
{
    const struct timespec pause = {0, 10 * 1000 * 1000};
    int port = 0;
    int left;

    for (left = 6000; left > 0 && port == 0 && waitpid(gateway, NULL, WNOHANG) == 0; left--) {
        port = readPort(portFile);
        if (port == 0) nanosleep(&pause, NULL);
    }
    return port;
}

static pid_t startGateway(const char* program, const char* portFile)
{
    pid_t pid = fork();
    if (pid == 0) {
        execl(program, program, "--port", "0", "--port-file", portFile, (char*)NULL);
        perror(program);
        _exit(127);
    }
    return pid;
}

static void refusedConversation(void)
{
    KRV_GatewayToken_t gateway = NULL;
    char* version = NULL;
    int held;
    int port = refusingPort(&held);

    expect(
        openGatewayConnection(port, &gateway, &version), KRVSTAT_CONNECTION_REFUSED, "open at a port without listener");
    close(held);
}

static void wholeConversation(int port)
{
    KRV_GatewayToken_t gateway = NULL;
    KRV_ResultSetToken_t groups = NULL;
    KRV_ResultSetToken_t stats = NULL;
    KRV_ResultSetToken_t copy = NULL;
    KRV_IdData_t id;
    KRV_StatData_t stat;
    char* version = NULL;
    char* query = NULL;
    int rc = openGatewayConnection(port, &gateway, &version);

    expect(rc, KRVSTAT_OK, "open");
    if (rc != KRVSTAT_OK) return;

    expect(getResourceGroupIds(gateway, &groups), KRVSTAT_OK, "getResourceGroupIds");
    expect(getFirstId(groups, &id), KRVSTAT_OK, "getFirstId");
    expect(getIdQuery(groups, &query), KRVSTAT_OK, "getIdQuery");
    expect(copyResultSet(groups, &copy), KRVSTAT_OK, "copyResultSet");
    expect(dumpResultSet(copy), KRVSTAT_OK, "dumpResultSet");
    expect(freeResultSet(&copy), KRVSTAT_OK, "freeResultSet");
    expect(getStats(gateway, &stats), KRVSTAT_OK, "getStats");
    expect(getFirstStat(stats, &stat), KRVSTAT_OK, "getFirstStat");
    expect(dumpState(), KRVSTAT_OK, "dumpState");
    expect(closeGatewayConnection(&gateway), KRVSTAT_OK, "close");
}

int main(int argc, char** argv)
{
    char folder[] = "/tmp/krvstats-own-XXXXXX";
    char portFile[sizeof folder + 8];
    pid_t gateway;
    int port;

    if (argc != 2 || argv[1][0] == '\0') {
        printf("usage: %s GATEWAY-PROGRAM\n", argv[0]);
        return 2;
    }
    if (!mkdtemp(folder)) {
        perror("no scratch folder");
        return 1;
    }
    snprintf(portFile, sizeof portFile, "%s/port", folder);

    /* All lines and dumps are written, so that the trace's own functions are called too. */
    expect(setAPITraceFile("/dev/null"), KRVSTAT_OK, "setAPITraceFile");
    expect(setAPITraceLevel(5), KRVSTAT_OK, "setAPITraceLevel");

    refusedConversation();

    gateway = startGateway(argv[1], portFile);
    port = gateway > 0 ? waitForPort(portFile, gateway) : 0;
    if (port > 0) {
        wholeConversation(port);
        kill(gateway, SIGTERM);
        waitpid(gateway, NULL, 0);
    } else {
        printf("the gateway did not start\n");
        failures++;
    }
    unlink(portFile);
    rmdir(folder);

    printf("%d functions of the same names, %d calls of them\n", ownFunctionCount, callsOfOwnFunctions);
    if (ownFunctionCount < 30) {
        printf("that is fewer than the library's internal functions\n");
        failures++;
    }
    return failures == 0 && callsOfOwnFunctions == 0 ? 0 : 1;
}
