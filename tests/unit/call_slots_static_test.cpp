// The table of calls in progress, with what another thread may do to a call at the worst moment: the calls that the table
// itself makes to the system are wrapped at link time, and do it there.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "full_call_table.h"
#include "stapi_krv_caller.h"
#include "stapi_krv_calls.h"

using namespace krvtest;

namespace {

std::function<void()> inShutdown;
std::function<void()> inPthreadSelf;
std::vector<int> shutDowns;

// Runs the hook once: what it does may come here again.
void runOnce(std::function<void()>& hook)
{
    std::function<void()> action;
    action.swap(hook);
    if (action) action();
}

} // namespace

extern "C" {
pthread_t __real_pthread_self();
pthread_t __wrap_pthread_self();
int __wrap_shutdown(int socket, int how);

pthread_t __wrap_pthread_self()
{
    runOnce(inPthreadSelf);
    return __real_pthread_self();
}

int __wrap_shutdown(int socket, int)
{
    shutDowns.push_back(socket);
    runOnce(inShutdown);
    return 0;
}
}

namespace {

class CallSlots : public testing::Test {
protected:
    void SetUp() override
    {
        shutDowns.clear();
        token.socketDescriptor = 70;
        token.owningPid = getpid();
        other.socketDescriptor = 71;
        other.owningPid = getpid();
    }

    // Lets another thread act while a call is being entered, which looks then who is calling.
    void whileEntering(std::function<void()> act)
    {
        rememberedThread = 0;
        inPthreadSelf = std::move(act);
    }

    void TearDown() override
    {
        EXPECT_FALSE(inShutdown);
        EXPECT_FALSE(inPthreadSelf);
        Internal_GatewayToken_t* condemned = nullptr;
        pthread_t owner = {};
        EXPECT_EQ(0, takeCondemned(&condemned, &owner)) << "a test leaves the table as it was";
        EXPECT_EQ(0, callIsInterrupted());
    }

    // Whether this thread hears of an interruption of another one's call, which gets the first free slot.
    int interruptedByAnothersCall()
    {
        CallSlot* slot = nullptr;
        std::thread([&] { slot = enterCall(&other); }).join();
        interruptToken(&other);
        const int interrupted = callIsInterrupted();
        leaveCall(slot);
        return interrupted;
    }

    // What is condemned is found again, whatever came before.
    void expectCondemnedIsHandedOut()
    {
        condemnToken(&other);
        Internal_GatewayToken_t* condemned = nullptr;
        pthread_t owner = {};
        EXPECT_EQ(1, takeCondemned(&condemned, &owner));
        EXPECT_EQ(&other, condemned);
    }

    Internal_GatewayToken_t token = {};
    Internal_GatewayToken_t other = {};
};

} // namespace

// ---- One call -----------------------------------------------------------------------------------------------------

TEST_F(CallSlots, ACallThatNobodyDisturbsEndsWithoutTheLock)
{
    CallSlot* slot = enterCall(&token);
    ASSERT_NE(nullptr, slot);
    EXPECT_EQ(1, isBusy(&token));
    EXPECT_EQ(0, isBusy(&other));
    EXPECT_EQ(0, callIsInterrupted());
    EXPECT_EQ(1, leaveUndisturbed(slot));
    EXPECT_EQ(0, isBusy(&token));
    EXPECT_EQ(0, abandonToken(&token)) << "the closer's to destroy";
    EXPECT_EQ(std::vector<int>(), shutDowns);
}

TEST_F(CallSlots, ACallThatIsBeingEnteredDisturbsNoOther)
{
    CallSlot* slot = enterCall(&other);
    int othersBusy = -1;
    int busy = -1;
    whileEntering([&] {
        busy = isBusy(&token);
        othersBusy = isBusy(&other);
    });
    CallSlot* entered = enterCall(&token);
    EXPECT_EQ(0, busy) << "not yet";
    EXPECT_EQ(1, othersBusy);
    EXPECT_EQ(1, isBusy(&token));
    EXPECT_EQ(1, leaveUndisturbed(entered));
    EXPECT_EQ(1, leaveUndisturbed(slot));
}

TEST_F(CallSlots, AnInterruptedCallKnowsItAndStaysBusy)
{
    CallSlot* slot = enterCall(&token);
    interruptToken(&token);
    EXPECT_EQ(std::vector<int>{70}, shutDowns);
    EXPECT_EQ(1, callIsInterrupted());
    EXPECT_EQ(1, isBusy(&token));
    EXPECT_EQ(0, leaveUndisturbed(slot));
    interruptToken(&token);
    EXPECT_EQ(CALL_INTERRUPTED, leaveCall(slot));
    EXPECT_EQ(0, isBusy(&token));
}

TEST_F(CallSlots, ACallThatHasEndedIsNotInterruptedByTheNextOneInItsSlot)
{
    EXPECT_EQ(1, leaveUndisturbed(enterCall(&token)));
    EXPECT_EQ(0, interruptedByAnothersCall());
    EXPECT_EQ(CALL_UNDISTURBED, leaveCall(enterCall(&token)));
    EXPECT_EQ(0, interruptedByAnothersCall());
    EXPECT_EQ(1, condemnCall(enterCall(&token)));
    Internal_GatewayToken_t* condemned = nullptr;
    pthread_t owner = {};
    EXPECT_EQ(1, takeCondemned(&condemned, &owner));
    EXPECT_EQ(0, interruptedByAnothersCall());
}

TEST_F(CallSlots, AnAbandonedCallDestroysItsToken)
{
    CallSlot* slot = enterCall(&token);
    EXPECT_EQ(1, abandonToken(&token)) << "the call's to destroy";
    EXPECT_EQ(std::vector<int>{70}, shutDowns);
    EXPECT_EQ(1, callIsInterrupted());
    EXPECT_EQ(0, isBusy(&token)) << "it is off the list";
    EXPECT_EQ(0, leaveUndisturbed(slot));
    EXPECT_EQ(CALL_ABANDONED, leaveCall(slot));
}

TEST_F(CallSlots, ATokenWithoutASocketIsInterruptedAllTheSame)
{
    token.socketDescriptor = -1;
    CallSlot* slot = enterCall(&token);
    interruptToken(&token);
    EXPECT_EQ(std::vector<int>(), shutDowns);
    EXPECT_EQ(1, callIsInterrupted());
    EXPECT_EQ(CALL_INTERRUPTED, leaveCall(slot));
}

TEST_F(CallSlots, ASocketMayBeDescriptorZero)
{
    token.socketDescriptor = 0;
    CallSlot* slot = enterCall(&token);
    interruptToken(&token);
    EXPECT_EQ(std::vector<int>{0}, shutDowns);
    EXPECT_EQ(CALL_INTERRUPTED, leaveCall(slot));
}

TEST_F(CallSlots, AForkedChildsConnectionIsItsParentsAndNotShutDown)
{
    token.owningPid = getpid() + 1;
    CallSlot* slot = enterCall(&token);
    interruptToken(&token);
    EXPECT_EQ(std::vector<int>(), shutDowns);
    EXPECT_EQ(CALL_INTERRUPTED, leaveCall(slot));
}

TEST_F(CallSlots, AreForgottenAllAtOnce)
{
    ASSERT_NE(nullptr, enterCall(&token));
    interruptToken(&other);
    Internal_GatewayToken_t third = {};
    condemnToken(&third);
    EXPECT_EQ(0, callIsInterrupted());
    forgetCalls();
    EXPECT_EQ(0, isBusy(&token));
    EXPECT_EQ(0, interruptedByAnothersCall());
    CallSlot* slot = enterCall(&other);
    EXPECT_EQ(0, callIsInterrupted());
    EXPECT_EQ(0, isBusy(&token)) << "nor when slots are used again";
    EXPECT_EQ(1, leaveUndisturbed(slot));
}

TEST_F(CallSlots, AnInterruptionBetweenCallsMeetsTheNextOne)
{
    interruptToken(&token);
    EXPECT_EQ(0, isBusy(&token));
    CallSlot* slot = enterCall(&token);
    EXPECT_EQ(1, callIsInterrupted());
    EXPECT_EQ(CALL_INTERRUPTED, leaveCall(slot));
    slot = enterCall(&token);
    EXPECT_EQ(0, callIsInterrupted()) << "one only";
    EXPECT_EQ(1, leaveUndisturbed(slot));
}

TEST_F(CallSlots, AnInterruptionBetweenCallsEndsWithTheConnection)
{
    interruptToken(&token);
    EXPECT_EQ(0, abandonToken(&token)) << "the closer's to destroy";
    CallSlot* slot = enterCall(&token); // at the same address
    EXPECT_EQ(0, callIsInterrupted());
    EXPECT_EQ(1, leaveUndisturbed(slot));
}

// ---- Calls that could not get the lock ----------------------------------------------------------------------------

TEST_F(CallSlots, ACallGivesItsTokenToTheNextHolderOfTheLock)
{
    for (bool interrupted : {false, true}) {
        CallSlot* slot = enterCall(&token);
        if (interrupted) interruptToken(&token);
        EXPECT_EQ(1, condemnCall(slot));
        EXPECT_EQ(0, isBusy(&token));
        Internal_GatewayToken_t* condemned = nullptr;
        pthread_t owner = {};
        ASSERT_EQ(1, takeCondemned(&condemned, &owner));
        EXPECT_EQ(&token, condemned);
        EXPECT_NE(0, pthread_equal(pthread_self(), owner));
        EXPECT_EQ(0, takeCondemned(&condemned, &owner)) << "once";
    }
}

TEST_F(CallSlots, ACallThatWasInterruptedByAnotherThreadBeforeItBeganIsStillItsOwnThreads)
{
    std::thread([&] { interruptToken(&token); }).join();
    EXPECT_EQ(1, condemnCall(enterCall(&token)));
    Internal_GatewayToken_t* condemned = nullptr;
    pthread_t owner = {};
    ASSERT_EQ(1, takeCondemned(&condemned, &owner));
    EXPECT_NE(0, pthread_equal(pthread_self(), owner));
}

TEST_F(CallSlots, AnAbandonedCallCannotGiveItsTokenAway)
{
    CallSlot* slot = enterCall(&token);
    ASSERT_EQ(1, abandonToken(&token));
    EXPECT_EQ(0, condemnCall(slot)) << "the call's to destroy";
    slot = enterCall(&token);
    EXPECT_EQ(1, leaveUndisturbed(slot)) << "its slot is free";
    expectCondemnedIsHandedOut();
}

TEST_F(CallSlots, CondemnedTokensComeOneByOne)
{
    condemnToken(&token);
    condemnToken(&other);
    std::vector<Internal_GatewayToken_t*> condemned(3);
    pthread_t owner = {};
    EXPECT_EQ(1, takeCondemned(&condemned[0], &owner));
    EXPECT_EQ(1, takeCondemned(&condemned[1], &owner));
    EXPECT_EQ(0, takeCondemned(&condemned[2], &owner));
    EXPECT_EQ((std::vector<Internal_GatewayToken_t*>{&token, &other, nullptr}), condemned);
}

TEST_F(CallSlots, ACondemnedTokenIsNoCallInProgress)
{
    condemnToken(&token);
    EXPECT_EQ(0, isBusy(&token));
    CallSlot* slot = enterCall(&token);
    EXPECT_EQ(1, leaveUndisturbed(slot)) << "a slot of its own";
    Internal_GatewayToken_t* condemned = nullptr;
    pthread_t owner = {};
    ASSERT_EQ(1, takeCondemned(&condemned, &owner));
    EXPECT_EQ(&token, condemned);
}

TEST_F(CallSlots, ATokenThatIsBeingCondemnedIsNotHandedOutYet)
{
    Internal_GatewayToken_t* condemned = nullptr;
    pthread_t owner = {};
    int taken = -1;
    whileEntering([&] { taken = takeCondemned(&condemned, &owner); });
    condemnToken(&token);
    EXPECT_EQ(0, taken);
    EXPECT_EQ(1, takeCondemned(&condemned, &owner));
    EXPECT_EQ(&token, condemned);
}

// ---- Calls that end while another thread closes their connection --------------------------------------------------

TEST_F(CallSlots, ATokenWhoseCallEndsDuringTheCloseIsTheClosersToDestroy)
{
    CallSlot* slot = enterCall(&token);
    CallOutcome outcome = CALL_UNDISTURBED;
    inShutdown = [&] { outcome = leaveCall(slot); };
    EXPECT_EQ(0, abandonToken(&token));
    EXPECT_EQ(CALL_INTERRUPTED, outcome);
    expectCondemnedIsHandedOut();
}

TEST_F(CallSlots, ATokenThatIsCondemnedDuringTheCloseIsTheClosersToDestroy)
{
    CallSlot* slot = enterCall(&token);
    int given = -1;
    inShutdown = [&] { given = condemnCall(slot); };
    EXPECT_EQ(0, abandonToken(&token));
    EXPECT_EQ(1, given);
    Internal_GatewayToken_t* condemned = nullptr;
    pthread_t owner = {};
    EXPECT_EQ(0, takeCondemned(&condemned, &owner)) << "nobody else may destroy it";
    expectCondemnedIsHandedOut();
}

// ---- A full table -------------------------------------------------------------------------------------------------

TEST_F(CallSlots, HoldThousandAndTwentyFourCallsAtOnce)
{
    FullCallTable full;
    for (const CallSlot* slot : full.slots) ASSERT_NE(nullptr, slot);
    EXPECT_EQ(nullptr, enterCall(&token));
    EXPECT_EQ(1, leaveUndisturbed(full.slots[500]));
    full.slots[500] = enterCall(&token);
    EXPECT_NE(nullptr, full.slots[500]);
}

TEST_F(CallSlots, AnInterruptionThatFindsNoRoomStillEndsWaits)
{
    const FullCallTable full;
    interruptToken(&token);
    EXPECT_EQ(std::vector<int>{70}, shutDowns);
}

TEST_F(CallSlots, ACondemnedTokenThatFindsNoRoomIsNotHandedOut)
{
    {
        const FullCallTable full;
        condemnToken(&token);
        Internal_GatewayToken_t* condemned = nullptr;
        pthread_t owner = {};
        EXPECT_EQ(0, takeCondemned(&condemned, &owner));
    }
    expectCondemnedIsHandedOut();
}
