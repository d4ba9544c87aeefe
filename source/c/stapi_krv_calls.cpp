// Calls in progress: a small table beside the list of connections.
//
// A slot is claimed and changed under gtlLock. Its call gives it back without the lock, by one exchange that also tells
// the call what happened to it: so a call can always end, even if the list is held up.

#include "stapi_krv_calls.h"

#include <sys/socket.h>

namespace {

// More calls than connections can be looked up: an open is a call before its connection can be used.
constexpr int SLOTS = 1024;

enum SlotState {
    FREE,
    BUSY,
    INTERRUPTED,      // busy, and its waits were ended
    ABANDONED,        // busy, and its connection was closed by another thread
    INTERRUPTED_IDLE, // no call in progress; the next one is interrupted
};

} // namespace

struct _CallSlot {
    Internal_GatewayToken_t* token;
    int state;
};

namespace {

CallSlot slots[SLOTS] = {};
int slotsUsed = 0; // slots from here on were never used; grows under gtlLock

__attribute__((tls_model("initial-exec"))) thread_local CallSlot* currentCall = nullptr;

int stateOf(const CallSlot* slot)
{
    return __atomic_load_n(&slot->state, __ATOMIC_SEQ_CST);
}

// True if the slot was in the state `from`.
bool changeState(CallSlot* slot, int from, int to)
{
    return __atomic_compare_exchange_n(&slot->state, &from, to, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

CallSlot* freeSlot()
{
    for (int i = 0; i < slotsUsed; ++i) {
        if (stateOf(&slots[i]) == FREE) return &slots[i];
    }
    return slotsUsed < SLOTS ? &slots[slotsUsed++] : nullptr;
}

// The slot that holds the token, NULL if none does.
CallSlot* slotOf(const Internal_GatewayToken_t* token)
{
    for (int i = 0; i < slotsUsed; ++i) {
        if (stateOf(&slots[i]) != FREE && slots[i].token == token) return &slots[i];
    }
    return nullptr;
}

void shutDown(const Internal_GatewayToken_t* token)
{
    const int socketDesc = __atomic_load_n(&token->socketDescriptor, __ATOMIC_SEQ_CST);
    if (socketDesc >= 0) shutdown(socketDesc, SHUT_RDWR);
}

} // namespace

CallSlot* enterCall(Internal_GatewayToken_t* token)
{
    CallSlot* slot = slotOf(token);
    if (slot) {
        changeState(slot, INTERRUPTED_IDLE, INTERRUPTED);
    } else {
        slot = freeSlot();
        if (!slot) return nullptr;
        slot->token = token;
        __atomic_store_n(&slot->state, BUSY, __ATOMIC_SEQ_CST);
    }
    currentCall = slot;
    return slot;
}

CallOutcome leaveCall(CallSlot* slot)
{
    currentCall = nullptr;
    switch (__atomic_exchange_n(&slot->state, FREE, __ATOMIC_SEQ_CST)) {
    case INTERRUPTED: return CALL_INTERRUPTED;
    case ABANDONED: return CALL_ABANDONED;
    default: return CALL_UNDISTURBED;
    }
}

int callIsInterrupted()
{
    if (!currentCall) return 0;
    const int state = stateOf(currentCall);
    return state == INTERRUPTED || state == ABANDONED;
}

int isBusy(Internal_GatewayToken_t* token)
{
    const CallSlot* slot = slotOf(token);
    if (!slot) return 0;
    const int state = stateOf(slot);
    return state == BUSY || state == INTERRUPTED;
}

// The mark comes before the shutdown, so that a call whose wait ends knows why; and the socket stays open until then,
// because a call that was only interrupted needs gtlLock to close it.
void interruptToken(Internal_GatewayToken_t* token)
{
    CallSlot* slot = slotOf(token);
    if (!slot || (!changeState(slot, BUSY, INTERRUPTED) && stateOf(slot) == FREE)) {
        slot = freeSlot();
        if (slot) {
            slot->token = token;
            __atomic_store_n(&slot->state, INTERRUPTED_IDLE, __ATOMIC_SEQ_CST);
        }
    }
    shutDown(token);
}

int abandonToken(Internal_GatewayToken_t* token)
{
    CallSlot* slot = slotOf(token);
    if (!slot) return 0;
    if (changeState(slot, INTERRUPTED_IDLE, FREE)) return 0;
    changeState(slot, BUSY, INTERRUPTED);
    if (stateOf(slot) == FREE) return 0;
    shutDown(token);
    return changeState(slot, INTERRUPTED, ABANDONED) ? 1 : 0;
}
