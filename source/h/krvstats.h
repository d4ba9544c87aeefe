/* krvstats: read the runtime statistics of a gateway daemon over TCP.
 *
 * Conventions that hold for every call
 *
 *  1. There is no initialisation call and no termination call: the first call of any function sets the library up.
 *  2. Every call returns an int: KRVSTAT_OK (0) or one of the negative KRVSTAT_* codes below. Output arguments are
 *     written only on success, unless a call says otherwise. A call may also return the code of a failed set-up
 *     (KRVSTAT_OUT_OF_MEMORY, KRVSTAT_LOCK_INIT_FAILED, or 1 or -2 of the lock of the list of connections).
 *  3. Nothing that the library hands out is freed by the application: texts, records and a connection's result set
 *     point into the library's own storage. The one exception is a copy made by copyResultSet, which
 *     freeResultSet gives back.
 *  4. Text handed out through KRV_IdData_t and KRV_StatData_t is counted, not NUL-terminated.
 *  5. A gateway token and its result set belong to the thread that opened the connection: calls from another process
 *     are refused with KRVSTAT_PID_MISMATCH, from another thread with KRVSTAT_TID_MISMATCH. Different connections may
 *     be used by different threads at the same time. A child of fork may close what it inherited, which says nothing to
 *     the gateway; a child that shares its parent's memory (vfork, clone with CLONE_VM) may not call the library.
 *  6. A result set obtained by a query describes the answer until the next query on the same connection, or until that
 *     connection is closed or removed. Each query on a connection returns the same result set.
 *  7. A query that fails with KRVSTAT_GATEWAY_COMMS_FAILED or KRVSTAT_GATEWAY_PROTOCOL_ERROR has removed its
 *     connection: neither the gateway token nor its result set may be used afterwards.
 *  8. A query waits for the gateway's reply without a time limit; connecting gives up after 60 seconds. krvstats_ext.h
 *     has calls to set a limit and to end the wait of another thread.
 *
 * The header compiles as C99 and as C++.
 */
#ifndef KRVSTATS_H
#define KRVSTATS_H

#ifdef __cplusplus
extern "C" {
#endif

/* An open connection to a gateway. Opaque; valid from a successful open to the close. */
typedef struct _KRV_GatewayToken_t* KRV_GatewayToken_t;

/* The answer to a query, or a copy of one. Opaque. */
typedef struct _KRV_ResultSetToken_t* KRV_ResultSetToken_t;

/* One identifier of a result set. Pointers point into the result set and live as long as its present content.
 * queryElement is the part of the query that the gateway answered here, queryElementRC its code for that part:
 * negative means that this part failed, and then idLen and idPtr are left as they were before the call. */
typedef struct _KRV_IdData_t {
    char eyecatcher[8]; /* "KRVIDSET", no NUL; filled when a walk starts at the beginning */
    char* queryElementPtr;
    int queryElementLen; /* bytes */
    int queryElementRC;
    int idLen; /* bytes */
    char* idPtr;
} KRV_IdData_t;

/* One statistic of a result set: identifier and value, both texts. Otherwise as KRV_IdData_t. */
typedef struct _KRV_StatData_t {
    char eyecatcher[8]; /* "KRVSTSET", no NUL; filled when a walk starts at the beginning */
    char* queryElementPtr;
    int queryElementLen; /* bytes */
    int queryElementRC;
    int statIdLen; /* bytes */
    char* statIdPtr;
    int statValueLen; /* bytes */
    char* statValuePtr;
} KRV_StatData_t;

/* Return codes. -112, -114, -117 and -120 are not used. */
#define KRVSTAT_OK 0
#define KRVSTAT_NULL_GATEWAY_TOKEN (-100)            /* the gateway token handle is NULL */
#define KRVSTAT_GATEWAY_TOKEN_NOT_FOUND (-101)       /* the token is not an open connection of this process */
#define KRVSTAT_GATEWAY_COMMS_FAILED (-102)          /* the gateway could not be reached or refused the request */
#define KRVSTAT_NULL_BUFFER (-103)                   /* an internal output buffer is NULL */
#define KRVSTAT_INVALID_TRACE_LEVEL (-104)           /* trace level outside 0 to 5 */
#define KRVSTAT_NULL_PROTOCOL_VERSION_POINTER (-105) /* the protocol-version output pointer is NULL */
#define KRVSTAT_RESULT_SET_NOT_USER_OWNED (-106)     /* only copied result sets may be freed */
#define KRVSTAT_INVALID_PORT (-107)                  /* port outside 1 to 65535 */
#define KRVSTAT_NULL_GATEWAY_TOKEN_POINTER (-108)    /* the pointer to the token handle is NULL */
#define KRVSTAT_NULL_OUTPUT_POINTER (-109)           /* an output pointer is NULL */
#define KRVSTAT_NO_RESULT_BUFFER (-110)              /* the result-set buffer is gone */
#define KRVSTAT_OUT_OF_MEMORY (-111)                 /* an allocation failed */
#define KRVSTAT_RESULT_SET_EMPTY (-113)              /* no (further) data in the result set */
#define KRVSTAT_GTL_CORRUPT (-115)                   /* the list of open connections is damaged or too long */
#define KRVSTAT_INVALID_RESULT_SET_OWNER (-116)      /* owner value not recognised */
#define KRVSTAT_CONNECT_FAILED (-118)                /* connecting failed for a reason without a code of its own */
#define KRVSTAT_WRONG_RESULT_SET_CONTENT (-119)      /* the result set holds another kind of data than asked for */
#define KRVSTAT_LOCK_INIT_FAILED (-121)              /* the trace lock could not be initialised */
#define KRVSTAT_GATEWAY_PROTOCOL_ERROR (-122)        /* receive error, closed connection or bad reply */
#define KRVSTAT_PID_MISMATCH (-123)                  /* the handle belongs to another process */
#define KRVSTAT_TID_MISMATCH (-124)                  /* the handle belongs to another thread */
#define KRVSTAT_NULL_RESULT_SET_POINTER (-125)       /* the pointer to a result-set handle is NULL */
#define KRVSTAT_NULL_QUERY_ARGUMENT (-126)           /* the id or group-id text is NULL */
#define KRVSTAT_NULL_RESULT_SET_TOKEN (-127)         /* the result-set handle is NULL */
#define KRVSTAT_NULL_ID_DATA_POINTER (-128)          /* the id record pointer is NULL */
#define KRVSTAT_NULL_STAT_DATA_POINTER (-129)        /* the statistic record pointer is NULL */
#define KRVSTAT_TRACE_FILE_OPEN_FAILED (-130)        /* the trace file could not be opened for append */
#define KRVSTAT_ID_QUERY_FAILED (-131)               /* no query text could be built from the result set */
#define KRVSTAT_HOST_NOT_RESOLVED (-132)             /* the host name could not be resolved */
#define KRVSTAT_NULL_HOSTNAME (-133)                 /* the host name is NULL */
#define KRVSTAT_CONNECT_TIMEOUT (-134)               /* the connection did not complete in time */
#define KRVSTAT_CONNECTION_REFUSED (-135)            /* nobody listens at that address and port */
#define KRVSTAT_NETWORK_UNREACHABLE (-136)           /* the network is unreachable */

/* ---- Version and trace ---------------------------------------------------------------------------------------- */

/* Hands out the version of this interface, "1_1_0_1".
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_OUTPUT_POINTER if apiVersPtr is NULL.
 * Owns: the text stays the library's, is the same on every call and lives as long as the process.
 * Threads: any. */
int getStatsAPIVersion(char** apiVersPtr);

/* Tells the present trace level, 0 (off) to 5.
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_OUTPUT_POINTER if traceStatePtr is NULL.
 * Owns: nothing changes hands.
 * Threads: any. */
int getAPITraceLevel(int* traceStatePtr);

/* Sets the trace level of the whole process: 0 nothing, 1 exceptions, 2 also events, 3 also function entry and exit,
 * 4 and 5 also internal detail with storage dumps (which show every byte exchanged with the gateway).
 * Returns: KRVSTAT_OK; KRVSTAT_INVALID_TRACE_LEVEL outside 0 to 5, the level stays as it was.
 * Owns: nothing changes hands.
 * Threads: any. */
int setAPITraceLevel(int traceState);

/* Sends the trace to the named file (created if missing, appended to), or back to standard error if traceFile is NULL.
 * Naming the same file again reopens it, which is how a rotated file is let go.
 * Returns: KRVSTAT_OK; KRVSTAT_TRACE_FILE_OPEN_FAILED and the destination stays as it was; KRVSTAT_OUT_OF_MEMORY if
 * there is no room to remember the name. Names of 1024 characters and more are opened as asked and remembered cut.
 * Owns: traceFile stays the caller's and is copied.
 * Threads: any. */
int setAPITraceFile(char* traceFile);

/* ---- Connections ---------------------------------------------------------------------------------------------- */

/* Opens a connection to the gateway on this host ("127.0.0.1").
 * Returns, Owns, Threads: as openRemoteGatewayConnection. */
int openGatewayConnection(int port, KRV_GatewayToken_t* gwTokPtr, char** protocolVersionPtr);

/* Opens a connection: resolves hostname (a name, an IPv4 or an IPv6 address; only the first address is tried), connects
 * to port (1 to 65535) within 60 seconds, greets the gateway and asks for the version of its statistics protocol.
 * Returns: KRVSTAT_OK; KRVSTAT_INVALID_PORT, KRVSTAT_NULL_GATEWAY_TOKEN_POINTER,
 * KRVSTAT_NULL_PROTOCOL_VERSION_POINTER, KRVSTAT_NULL_HOSTNAME (checked in this order, before anything is done);
 * KRVSTAT_HOST_NOT_RESOLVED, KRVSTAT_CONNECT_TIMEOUT, KRVSTAT_CONNECTION_REFUSED, KRVSTAT_NETWORK_UNREACHABLE,
 * KRVSTAT_CONNECT_FAILED (also a failed greeting); KRVSTAT_GATEWAY_COMMS_FAILED, KRVSTAT_GATEWAY_PROTOCOL_ERROR;
 * KRVSTAT_OUT_OF_MEMORY; KRVSTAT_GTL_CORRUPT. After a failure nothing stays open.
 * Owns: the token is the caller's to close with closeGatewayConnection. The version text belongs to the token and lives
 * until the close: it must not be freed.
 * Threads: any; the connection then belongs to the calling thread. At most 257 connections of a process can be used
 * at a time. */
int openRemoteGatewayConnection(char* hostname, int port, KRV_GatewayToken_t* gwTokPtr, char** protocolVersionPtr);

/* Says goodbye to the gateway, closes the connection and frees the token, its result set and its version text.
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_GATEWAY_TOKEN_POINTER if gwTokPtr is NULL; KRVSTAT_NULL_GATEWAY_TOKEN if *gwTokPtr
 * is NULL; KRVSTAT_GATEWAY_TOKEN_NOT_FOUND if it is not an open connection; with a deadline,
 * KRVSTAT_GATEWAY_PROTOCOL_ERROR if the list of connections was not free in time: nothing was closed, and it may be
 * repeated. A failure to say goodbye is not an error.
 * Owns: takes the token. *gwTokPtr is not cleared and must not be used again.
 * Threads: any thread of the process. If the connection's own thread is in a query on it, that query is interrupted,
 * returns KRVSTAT_GATEWAY_PROTOCOL_ERROR and frees the token on its way out. The connection's own thread must not be
 * walking its result set meanwhile: that goes with the connection. */
int closeGatewayConnection(KRV_GatewayToken_t* gwTokPtr);

/* Closes every open connection of the process, as closeGatewayConnection does.
 * Returns: KRVSTAT_OK, also with none open, and also if a deadline passed before all were closed;
 * KRVSTAT_GTL_CORRUPT if 256 were closed and the walk stopped there.
 * Owns: takes all tokens.
 * Threads: as closeGatewayConnection; a connection that is being opened meanwhile ends in
 * KRVSTAT_GATEWAY_PROTOCOL_ERROR. */
int closeAllGatewayConnections(void);

/* Writes the library's state and every open connection, with the content of its result set, to the trace destination,
 * whatever the trace level.
 * Returns: KRVSTAT_OK.
 * Owns: nothing changes hands.
 * Threads: any. Of a connection that is in use by a call at the moment, only its line is written. */
int dumpState(void);

/* ---- Queries -------------------------------------------------------------------------------------------------- */

/* Each query sends one request, waits for the whole reply and hands out the connection's result set.
 *
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_GATEWAY_TOKEN, KRVSTAT_NULL_QUERY_ARGUMENT (calls with a text argument),
 * KRVSTAT_NULL_RESULT_SET_POINTER, KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, KRVSTAT_PID_MISMATCH, KRVSTAT_TID_MISMATCH (checked
 * in this order, before anything is sent); KRVSTAT_NO_RESULT_BUFFER; KRVSTAT_OUT_OF_MEMORY if the text could not be
 * copied (it may have 32765 characters at most); KRVSTAT_GATEWAY_COMMS_FAILED, KRVSTAT_GATEWAY_PROTOCOL_ERROR (both
 * remove the connection).
 * Owns: the result set stays the connection's, until its next query or its close; copyResultSet keeps an answer. The
 * text argument stays the caller's and is copied.
 * Threads: the thread that opened the connection.
 *
 * A text argument is a list of ids separated by ":". Its meaning is the gateway's business and is not checked here. */

/* Asks for the ids of all resource groups. Yields ids. */
int getResourceGroupIds(KRV_GatewayToken_t gwTok, KRV_ResultSetToken_t* resGrpIdRSPtr);

/* Asks for the ids of all statistics. Yields ids. */
int getStatIds(KRV_GatewayToken_t gwTok, KRV_ResultSetToken_t* statIdRSPtr);

/* Asks for the ids of the statistics of the given groups. Yields ids. */
int getStatIdsByStatGroupId(KRV_GatewayToken_t gwTok, char* providerIdsPtr, KRV_ResultSetToken_t* statIdRSPtr);

/* Asks for all statistics. Yields statistics. */
int getStats(KRV_GatewayToken_t gwTok, KRV_ResultSetToken_t* statRSPtr);

/* Asks for the statistics with the given ids. Yields statistics. */
int getStatsByStatId(KRV_GatewayToken_t gwTok, char* statIdsPtr, KRV_ResultSetToken_t* statRSPtr);

/* Asks for the statistics of the given groups. Yields statistics. */
int getStatsByStatGroupId(KRV_GatewayToken_t gwTok, char* providerIdPtr, KRV_ResultSetToken_t* statRSPtr);

/* ---- Walking a result set ------------------------------------------------------------------------------------- */

/* getFirst* starts the walk at the beginning, getNext* goes on from where the last call stopped (or starts, if there
 * was none). Each fills the record with one element. A query element that failed in the gateway (queryElementRC
 * negative) is one call of its own without an id: test queryElementRC before the id. A query element that succeeded has
 * at least one element as far as a walk can tell: if the gateway answers one with none, what follows it in the set is
 * misread, so ask for parts that may be empty in queries of their own.
 *
 * Returns: KRVSTAT_OK and the record is filled; KRVSTAT_RESULT_SET_EMPTY at the end (again on every further getNext*);
 * KRVSTAT_NULL_RESULT_SET_TOKEN, KRVSTAT_NULL_ID_DATA_POINTER or KRVSTAT_NULL_STAT_DATA_POINTER,
 * KRVSTAT_WRONG_RESULT_SET_CONTENT, KRVSTAT_PID_MISMATCH, KRVSTAT_TID_MISMATCH, and the walk stands as before.
 * Owns: the pointers in the record point into the result set and live as long as its present content.
 * Threads: a connection's set: the thread that opened the connection. A copy: any, one at a time. */
int getFirstId(KRV_ResultSetToken_t rsPtr, KRV_IdData_t* idDataPtr);
int getNextId(KRV_ResultSetToken_t rsPtr, KRV_IdData_t* idDataPtr);
int getFirstStat(KRV_ResultSetToken_t rsPtr, KRV_StatData_t* statDataPtr);
int getNextStat(KRV_ResultSetToken_t rsPtr, KRV_StatData_t* statDataPtr);

/* ---- Whole result sets ---------------------------------------------------------------------------------------- */

/* Builds the text "id:id:id" of the ids in a result set (ids or statistics), fit for the text argument of a query. Ids
 * of query elements whose code is not 0 are left out, and so is an id that would make the text 32000 bytes or longer.
 * The walk of the set is used up: it stands at its end afterwards.
 * Returns: KRVSTAT_OK; KRVSTAT_OUT_OF_MEMORY, KRVSTAT_NULL_RESULT_SET_TOKEN, KRVSTAT_NULL_OUTPUT_POINTER,
 * KRVSTAT_WRONG_RESULT_SET_CONTENT, KRVSTAT_PID_MISMATCH, KRVSTAT_TID_MISMATCH; KRVSTAT_ID_QUERY_FAILED if there is no
 * usable id.
 * Owns: the text belongs to the result set and lives until the next getIdQuery on it or its end.
 * Threads: as walking. */
int getIdQuery(KRV_ResultSetToken_t rsPtr, char** idQueryStringPtr);

/* Makes a copy that outlives later queries and the connection, and that any thread may use. Its walk starts fresh.
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_RESULT_SET_TOKEN, KRVSTAT_NULL_RESULT_SET_POINTER, KRVSTAT_NO_RESULT_BUFFER,
 * KRVSTAT_WRONG_RESULT_SET_CONTENT, KRVSTAT_PID_MISMATCH, KRVSTAT_TID_MISMATCH; KRVSTAT_OUT_OF_MEMORY: *tarRsPtr is
 * then NULL, unchanged, or an empty copy that freeResultSet takes (so set it to NULL before the call).
 * Owns: the copy is the caller's, to be given back with freeResultSet.
 * Threads: as walking. */
int copyResultSet(KRV_ResultSetToken_t srcRs, KRV_ResultSetToken_t* tarRsPtr);

/* Frees a copy made by copyResultSet and sets *rsPtr to NULL.
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_RESULT_SET_POINTER if rsPtr is NULL; KRVSTAT_NULL_RESULT_SET_TOKEN if *rsPtr is
 * NULL; KRVSTAT_RESULT_SET_NOT_USER_OWNED for the result set of a connection, which goes with its connection.
 * Owns: takes the copy.
 * Threads: any, one at a time. */
int freeResultSet(KRV_ResultSetToken_t* rsPtr);

/* Writes the content of a result set to the trace destination as a storage dump, whatever the trace level.
 * Returns: KRVSTAT_OK; KRVSTAT_NULL_RESULT_SET_TOKEN, KRVSTAT_NO_RESULT_BUFFER, KRVSTAT_WRONG_RESULT_SET_CONTENT,
 * KRVSTAT_PID_MISMATCH, KRVSTAT_TID_MISMATCH.
 * Owns: nothing changes hands.
 * Threads: as walking. */
int dumpResultSet(KRV_ResultSetToken_t rsPtr);

#ifdef __cplusplus
}
#endif

#endif
