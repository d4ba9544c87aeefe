// Who is calling, asked of the system once: each step of a walk wants to know it, and the system takes many times as long
// to say it as the step takes.

#include "stapi_krv_caller.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr int NO_SUCH_ADVICE = -1;

ProcessId neverKnown = 0; // stays 0

} // namespace

ProcessId* rememberedProcess = &neverKnown;
__attribute__((tls_model("initial-exec"))) __thread ThreadId rememberedThread = 0;

void setUpCallerMemory()
{
    if (rememberedProcess != &neverKnown) return;
    const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) return;
    // An emulator that takes any advice and follows none gives itself away by accepting nonsense.
    if (madvise(page, size, NO_SUCH_ADVICE) == 0 || madvise(page, size, MADV_WIPEONFORK) != 0) {
        munmap(page, size);
        return;
    }
    __atomic_store_n(&rememberedProcess, static_cast<ProcessId*>(page), __ATOMIC_RELEASE);
}

ProcessId askForProcess()
{
    const ProcessId process = getpid();
    ProcessId* const memory = __atomic_load_n(&rememberedProcess, __ATOMIC_ACQUIRE);
    if (memory != &neverKnown) __atomic_store_n(memory, process, __ATOMIC_RELAXED);
    return process;
}

ThreadId askForThread()
{
    rememberedThread = pthread_self();
    return rememberedThread;
}
