/* What the API module exports besides the public calls. */
#ifndef STAPI_KRV_IMPL_H
#define STAPI_KRV_IMPL_H

#include <stdint.h>

#include "krvstats.h"

#ifdef __cplusplus
extern "C" {
#endif

#define API_VERSION "1_1_0_1"
#define API_VERSION_SIZE 32000

extern int32_t stapiState; /* 0 until the library has been set up, then 1 */
extern char stapiVersion[API_VERSION_SIZE];

/* Copy a NUL-terminated text of at most 32765 characters into a new block, *out. dup2ASCIIString frees the block that
 * *out held before, dup2NativeString does not. 0; -2 if a pointer is NULL or the text too long; -1 if the allocation
 * failed (*out is then NULL). */
int dup2NativeString(char* in, char** out);
int dup2ASCIIString(char* in, char** out);

extern const char version4stapi_krv_impl[];

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

/* Sets the library up if it is not yet; every call of the API begins with it. 0, or the code of the failed step. */
int stapiInit(void);

#ifdef __cplusplus
}
#endif

#endif
