/* The result-set buffer: its layout, the primitives that write it, and the tokens that hold it.
 *
 * All integers are 32-bit signed, host byte order, unaligned; texts are counted.
 *
 *   category       8   "KRVSTSET" or "KRVIDSET"
 *   queryCount     4
 *   queryCount times:
 *     queryElementLen 4, query element, queryElementRC 4
 *     only when queryElementRC is not negative:
 *       elementResultCount 4, then that many elements:
 *         id set:         idLen 4, id
 *         statistics set: statIdLen 4, statId, statValueLen 4, statValue
 *   terminator     4   0x0E0F0E0F
 */
#ifndef STAPI_KRV_RESULTSETBUFFER_H
#define STAPI_KRV_RESULTSETBUFFER_H

#include <string.h>

#include "stapi_krv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define RESULT_SET_TERMINATOR 0x0E0F0E0F

#define EYECATCHER_SIZE 8
#define STATS_EYECATCHER "KRVSTSET"
#define IDS_EYECATCHER "KRVIDSET"
#define GATEWAY_RESULT_SET_EYECATCHER "KRVRSROB"
#define USER_RESULT_SET_EYECATCHER "KRVRSUSR"

/* Bytes of a buffer in front of the first query header: category and queryCount. */
#define RESULT_SET_PREAMBLE_SIZE 12

/* Capacity of a connection's buffer before it ever grew. */
#define INITIAL_RESULT_SET_SIZE 32768

/* Zeroed bytes that every buffer of the library has beyond its stated capacity, so that a closing terminator that is
 * written or copied without a capacity check, and a dump that looks at the whole line behind it and three bytes more,
 * stay inside: 4 + 12 + 3. */
#define RESULT_SET_ROOM 19

/* Size of the scratch area that getIdQuery builds its text in. */
#define QUERY_TEXT_SIZE 32000

/* Writers: each takes the address of the write cursor and moves it past what it wrote; none checks capacity.
 * All return 0, or -103 if a required pointer is NULL (nothing is written then). */

/* Length as an integer, the characters, and a NUL that the cursor does not pass. */
int addIdStr(char** bufWPtr, char* idString);
int addInteger(char** bufWPtr, int rsInt);
int addChars(char** bufWPtr, char* textPtr, int charCount);
/* As addChars, for text in the platform's own character set (the eyecatchers). */
int addPlatformChars(char** bufWPtr, char* textPtr, int charCount);
/* Stores the terminator at writeCursor, which does not move. */
int addTerminator(char* writeCursor);
/* Sets *isRSTermPtr to 1 if the terminator stands at dataCursorPtr, else to 0. */
int checkTerminator(char* dataCursorPtr, int* isRSTermPtr);

/* Makes an empty, zeroed result-set record; for owner 0x8888 it is bound to the calling thread.
 * 0; -103 if a pointer is NULL; -116 for an unknown owner; -111. */
int createResultSet(KRV_ResultSetToken_t* newRsTokPtr, char* eyecatcher, int owner);

/* Frees the record with its texts, not its buffer, and sets *rsPtr to NULL. 0, -125, -127. */
int deleteResultSet(KRV_ResultSetToken_t* rsPtr);

/* 0 if the calling thread created the set; -123, -124. */
int verifyAPIResultSetTokenOwner(Internal_ResultSetToken_t* rsPtr);

/* Writes the set's buffer to the trace destination, whatever the level, under traceLock. 0, -103. */
int dumpResultSetInternal(Internal_ResultSetToken_t* rsPtr);

extern const char version4stapi_krv_resultsetbuffer[];

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

static inline void storeWord(char* at, int32_t word)
{
    memcpy(at, &word, sizeof word);
}

static inline int32_t loadWord(const char* at)
{
    int32_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

#ifdef __cplusplus
}
#endif

#endif
