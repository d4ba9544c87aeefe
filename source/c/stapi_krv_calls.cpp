// Calls in progress: a small table beside the list of connections.
//
// A slot that holds a token is found and changed under gtlLock. Its call gives it back without the lock, by one exchange
// that fails if somebody disturbed the call: so a call can always end, even if the list is held up. A call that would
// have to remove its connection then condemns it instead.

#include "stapi_krv_calls.h"

#include <string.h>
#include <sys/socket.h>

#include "stapi_krv_caller.h"

namespace {

// More calls than connections can be looked up: an open is a call before its connection can be used.
constexpr int SLOTS = 1024;

enum SlotState {
    FREE,
    CLAIMED, // being filled in
    BUSY,
    INTERRUPTED,      // busy, and its waits were ended
    ABANDONED,        // busy, and its connection was closed by another thread
    INTERRUPTED_IDLE, // no call in progress; the next one is interrupted
    CONDEMNED,        // no call in progress; the next holder of gtlLock removes the connection
};

} // namespace

struct _CallSlot {
    Internal_GatewayToken_t* token;
    ThreadId caller; // of a condemned token
    int state;
};

namespace {

CallSlot slots[SLOTS] = {};
int slotsUsed = 0; // slots from here on were never used
int condemned = 0; // slots in that state

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

int used()
{
    return __atomic_load_n(&slotsUsed, __ATOMIC_SEQ_CST);
}

// A free slot, which is then in the state `state` and holds the token; NULL if there is none.
CallSlot* claimSlot(Internal_GatewayToken_t* token, int state)
{
    for (int i = 0; i < SLOTS; ++i) {
        if (!changeState(&slots[i], FREE, CLAIMED)) continue;
        int before = used();
        while (before <= i
            && !__atomic_compare_exchange_n(&slotsUsed, &before, i + 1, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
        }
        __atomic_store_n(&slots[i].token, token, __ATOMIC_SEQ_CST);
        slots[i].caller = currentThread();
        __atomic_store_n(&slots[i].state, state, __ATOMIC_SEQ_CST);
        return &slots[i];
    }
    return nullptr;
}

// The slot of the token's call, or of its next one; NULL if there is none.
CallSlot* slotOf(const Internal_GatewayToken_t* token)
{
    const int count = used();
    for (int i = 0; i < count; ++i) {
        const int state = stateOf(&slots[i]);
        if (state == FREE || state == CLAIMED || state == CONDEMNED) continue;
        if (__atomic_load_n(&slots[i].token, __ATOMIC_SEQ_CST) == token) return &slots[i];
    }
    return nullptr;
}

// Not in a forked child: the connection is its parent's too.
void shutDown(const Internal_GatewayToken_t* token)
{
    if (token->owningPid != currentProcess()) return;
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
        slot = claimSlot(token, BUSY);
        if (!slot) return nullptr;
    }
    currentCall = slot;
    return slot;
}

int leaveUndisturbed(CallSlot* slot)
{
    if (!changeState(slot, BUSY, FREE)) return 0;
    currentCall = nullptr;
    return 1;
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

int condemnCall(CallSlot* slot)
{
    currentCall = nullptr;
    slot->caller = currentThread();
    __atomic_add_fetch(&condemned, 1, __ATOMIC_SEQ_CST);
    if (changeState(slot, BUSY, CONDEMNED) || changeState(slot, INTERRUPTED, CONDEMNED)) return 1;
    __atomic_sub_fetch(&condemned, 1, __ATOMIC_SEQ_CST);
    __atomic_store_n(&slot->state, FREE, __ATOMIC_SEQ_CST);
    return 0;
}

void condemnToken(Internal_GatewayToken_t* token)
{
    __atomic_add_fetch(&condemned, 1, __ATOMIC_SEQ_CST);
    if (!claimSlot(token, CONDEMNED)) __atomic_sub_fetch(&condemned, 1, __ATOMIC_SEQ_CST);
}

int takeCondemned(Internal_GatewayToken_t** tokenPtr, ThreadId* ownerPtr)
{
    if (__atomic_load_n(&condemned, __ATOMIC_SEQ_CST) == 0) return 0;
    const int count = used();
    for (int i = 0; i < count; ++i) {
        if (stateOf(&slots[i]) != CONDEMNED) continue;
        *tokenPtr = __atomic_load_n(&slots[i].token, __ATOMIC_SEQ_CST);
        *ownerPtr = slots[i].caller;
        __atomic_store_n(&slots[i].state, FREE, __ATOMIC_SEQ_CST);
        __atomic_sub_fetch(&condemned, 1, __ATOMIC_SEQ_CST);
        return 1;
    }
    return 0;
}

void forgetCalls()
{
    memset(slots, 0, sizeof slots);
    slotsUsed = 0;
    condemned = 0;
    currentCall = nullptr;
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
    if (!slot || (!changeState(slot, BUSY, INTERRUPTED) && stateOf(slot) == FREE)) claimSlot(token, INTERRUPTED_IDLE);
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
    if (changeState(slot, INTERRUPTED, ABANDONED)) return 1;
    if (changeState(slot, CONDEMNED, FREE)) __atomic_sub_fetch(&condemned, 1, __ATOMIC_SEQ_CST);
    return 0;
}
