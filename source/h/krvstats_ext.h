/* krvstats, beside the base interface: calls that come back in time, calls that can be interrupted, codes in words.
 *
 * The base calls wait for the gateway without a limit. A thread that cannot afford that sets a deadline for its calls;
 * another thread can end the wait of a call in progress. Without either, nothing changes: the same bytes, codes and
 * traces. The header compiles as C99 and as C++.
 */
#ifndef KRVSTATS_EXT_H
#define KRVSTATS_EXT_H

#include "krvstats.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Limits each later call of the calling thread that talks to a gateway (opening, queries, closing): it returns within
 * that many milliseconds of its start, measured on the monotonic clock and counting connecting, greeting, sending,
 * waiting for replies and waiting for other threads of this library. 0, the default, is no limit. Looking up a host
 * name is not covered: name the gateway by its address where that matters.
 * When the time is over: an open returns KRVSTAT_CONNECT_TIMEOUT and nothing stays open; a query returns
 * KRVSTAT_GATEWAY_PROTOCOL_ERROR and has removed its connection, so that a late reply is never taken for the answer to
 * another query; a close still closes and returns its usual code. The goodbye to the gateway is then sent only if that
 * does not block, and its reply is not waited for. A close that cannot even look its connection up in time, because
 * another thread holds the list of connections, returns KRVSTAT_GATEWAY_PROTOCOL_ERROR and may be repeated.
 * Returns: KRVSTAT_OK; KRVSTAT_INVALID_TRACE_LEVEL (-104, the code for a value out of range) for a negative number, and
 * the deadline stays as it was.
 * Owns: nothing changes hands.
 * Threads: any; it holds for the calling thread alone. */
int setCallDeadline(int milliseconds);

/* Ends the wait of the call that is in progress on this connection: that call returns KRVSTAT_GATEWAY_PROTOCOL_ERROR and
 * has removed the connection. Without a call in progress, the next query on the connection does so. It does not wait for
 * gateways, and the thread's own deadline does not hold for it.
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_GATEWAY_TOKEN; KRVSTAT_GATEWAY_TOKEN_NOT_FOUND if it is not an open connection.
 * Owns: nothing changes hands; the connection is removed by its own thread.
 * Threads: any thread of the process. */
int interruptGatewayConnection(KRV_GatewayToken_t gwTok);

/* The name of a return code, "KRVSTAT_CONNECTION_REFUSED" for -135; "KRVSTAT_UNKNOWN" for a number that is none.
 * Returns: a text, never NULL.
 * Owns: the text stays the library's and lives as long as the process.
 * Threads: any. */
const char* getReturnCodeName(int rc);

/* A sentence for people that says what a return code means.
 * Returns, Owns, Threads: as getReturnCodeName. */
const char* getReturnCodeText(int rc);

#ifdef __cplusplus
}
#endif

#endif
