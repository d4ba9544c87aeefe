/* Writing to a stream that may be a pipe which nobody reads any more.
 *
 * Such a write raises SIGPIPE in the writing thread, which would end the application. Between the two calls it fails and
 * nothing else happens: the signal is held back, and eaten up if the writing raised it. The process's disposition of the
 * signal is not touched. errno comes out as it went in.
 */
#ifndef STAPI_KRV_PIPESIGNAL_H
#define STAPI_KRV_PIPESIGNAL_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

typedef struct _PipeSignal {
    int isHeld;     /* 0 where one was waiting already: that is the application's */
    int wasBlocked; /* by the application */
} PipeSignal;

void holdPipeSignal(PipeSignal* held);
void releasePipeSignal(const PipeSignal* held);

#ifdef __cplusplus
}
#endif

#endif
