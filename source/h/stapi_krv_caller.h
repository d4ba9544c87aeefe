/* Who is calling: process and thread, asked of the system once.
 *
 * The process id is remembered in a page that the system empties in the child of a fork, the thread id in storage of the
 * thread: so asking costs a load and is never answered with the parent's. A child that shares its parent's memory is not
 * told apart.
 */
#ifndef STAPI_KRV_CALLER_H
#define STAPI_KRV_CALLER_H

#include "stapi_krv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- For the library's own modules; not exported ---------------------------------------------------------------- */

/* Where the ids are remembered; 0 stands there while one is not known. */
extern __attribute__((visibility("hidden"))) ProcessId* rememberedProcess;
extern __thread __attribute__((visibility("hidden"), tls_model("initial-exec"))) ThreadId rememberedThread;

/* Sets the memory of the process up, where the system has what it takes; else the system is asked each time. Called by
 * one thread at a time. */
void setUpCallerMemory(void);

/* The ids from the system, remembered where that is possible. */
ProcessId askForProcess(void);
ThreadId askForThread(void);

/* 0 if it is not known. */
static inline ProcessId knownProcess(void)
{
    return __atomic_load_n(__atomic_load_n(&rememberedProcess, __ATOMIC_RELAXED), __ATOMIC_RELAXED);
}

static inline ProcessId currentProcess(void)
{
    const ProcessId process = knownProcess();
    return process != 0 ? process : askForProcess();
}

static inline ThreadId currentThread(void)
{
    return rememberedThread != 0 ? rememberedThread : askForThread();
}

#ifdef __cplusplus
}
#endif

#endif
