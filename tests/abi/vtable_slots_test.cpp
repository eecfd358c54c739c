// The slot numbers of every interface that crosses the border, called as a host compiled elsewhere
// calls them: by number, through the table at the start of the object. Nothing here knows our
// classes.
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>

#include "tests/abi/ours/SlotObjects.h"
#include "tests/support/TestDir.h"

namespace {

// Calls slot nSlot of the object.
template <class Result, class... Arguments>
Result Call(void* pObject, int nSlot, Arguments... arguments) {
    void** pTable = *static_cast<void***>(pObject);
    using Function = Result (*)(void*, Arguments...);
    return reinterpret_cast<Function>(pTable[nSlot])(pObject, arguments...);
}

// What the operation behind the slot says of itself, when called without looking at arguments.
std::string NameOf(void* pObject, int nSlot) {
    (void)Call<int64_t>(pObject, nSlot, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                        nullptr, nullptr);
    return slots::LastOperation();
}

// Slot 0 destroys and leaves the memory, slot 1 does both.
void ExpectDestructorSlots(void* pFirst, void* pSecond, const char* pszName) {
    Call<void>(pFirst, 0);
    EXPECT_STREQ(pszName, slots::LastOperation());
    ::operator delete(pFirst);

    Call<void>(pSecond, 1);
    EXPECT_STREQ(pszName, slots::LastOperation());
}

}  // namespace

TEST(VtableSlotsTest, IPluginProxyHasItsTenSlots) {
    void* pObject = slots::NewPluginProxy();

    EXPECT_EQ("zkp_init", NameOf(pObject, 2));
    EXPECT_EQ("zkp_uninit", NameOf(pObject, 3));
    EXPECT_EQ("zkp_setopt", NameOf(pObject, 4));
    EXPECT_EQ("zkp_getstatus", NameOf(pObject, 5));
    EXPECT_EQ("zkp_ext6", NameOf(pObject, 6));
    EXPECT_EQ("zkp_ext7", NameOf(pObject, 7));
    EXPECT_EQ("zkp_start", NameOf(pObject, 8));
    EXPECT_EQ("zkp_stop", NameOf(pObject, 9));
    EXPECT_EQ(9, Call<int32_t>(pObject, 9));

    Call<void>(pObject, 1);
}

TEST(VtableSlotsTest, IPluginProxyDefaultsOfSlotsSixToNineReturnZero) {
    void* pObject = slots::NewBarePluginProxy();

    for (const int nSlot : {6, 7}) {
        EXPECT_EQ(0, (Call<int32_t, void*>(pObject, nSlot, pObject))) << nSlot;
    }
    EXPECT_EQ(0, Call<int32_t>(pObject, 8));
    EXPECT_EQ(0, Call<int32_t>(pObject, 9));

    Call<void>(pObject, 1);
}

TEST(VtableSlotsTest, InterfacesHaveTheirDestructorsInSlotsZeroAndOne) {
    ExpectDestructorSlots(slots::NewPluginProxy(), slots::NewPluginProxy(), "~IPluginProxy");
    ExpectDestructorSlots(slots::NewMsgRouter(), slots::NewMsgRouter(), "~IMsgRouter");
    ExpectDestructorSlots(slots::NewReceiver(), slots::NewReceiver(), "~IMRReceiveComplete");
    ExpectDestructorSlots(slots::NewSendComplete(), slots::NewSendComplete(), "~IMRSendComplete");
    ExpectDestructorSlots(slots::NewMsgFunc(), slots::NewMsgFunc(), "~IMsgFunc");
    ExpectDestructorSlots(slots::NewTimerTask(), slots::NewTimerTask(), "~ITimerTask");
    ExpectDestructorSlots(slots::NewTaskTimer(), slots::NewTaskTimer(), "~CTaskTimer");
}

TEST(VtableSlotsTest, ThePluginObjectAnswersThroughItsSlotsAndKeepsItsStatusBehindTheTable) {
    void* pPlugin = slots::Plugin();

    EXPECT_EQ(0, Call<int32_t>(pPlugin, 5));
    EXPECT_EQ(0, (Call<int32_t, void*>(pPlugin, 2, nullptr)));
    EXPECT_EQ(1, Call<int32_t>(pPlugin, 5));
    EXPECT_EQ(1U, slots::StatusBehindVtable(pPlugin));
    EXPECT_EQ(0, (Call<int32_t, void*>(pPlugin, 6, pPlugin)));
    EXPECT_EQ(0, (Call<int32_t, void*>(pPlugin, 7, pPlugin)));
    Call<void>(pPlugin, 3);
    EXPECT_EQ(4, Call<int32_t>(pPlugin, 5));
    EXPECT_EQ(4U, slots::StatusBehindVtable(pPlugin));
}

TEST(VtableSlotsTest, IMsgRouterHasItsElevenOperationsFromSlotTwo) {
    void* pObject = slots::NewMsgRouter();

    const char* const names[] = {"SetLocalIdentity",
                                 "Close",
                                 "Post",
                                 "Reserved5",
                                 "Reserved6",
                                 "Reserved7",
                                 "Reserved8",
                                 "RegisterReceiver",
                                 "UnregisterReceiver",
                                 "Reply",
                                 "SendWithCompletion"};
    for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(names[i], NameOf(pObject, 2 + i));
    }

    Call<void>(pObject, 1);
}

TEST(VtableSlotsTest, CallbacksStandInSlotTwo) {
    void* pReceiver = slots::NewReceiver();
    void* pComplete = slots::NewSendComplete();

    EXPECT_EQ("ReceiveCallback", NameOf(pReceiver, 2));
    EXPECT_EQ("SendComplete", NameOf(pComplete, 2));

    Call<void>(pReceiver, 1);
    Call<void>(pComplete, 1);
}

TEST(VtableSlotsTest, TheModulesCompletionTakesAnyArgumentsAndDoesNothing) {
    void* pComplete = slots::NewCompletion();

    EXPECT_EQ(0, (Call<int64_t, uint32_t, void*, void*, uint32_t, void*, int64_t>(
                     pComplete, 2, 0xFFFFFFFFU, nullptr, pComplete, 0xFFFFFFFFU, nullptr, -1)));

    Call<void>(pComplete, 1);
}

TEST(VtableSlotsTest, IMsgFuncHasRunInSlotTwoAndGetMsgTypeInSlotThree) {
    void* pObject = slots::NewMsgFunc();

    EXPECT_EQ("Run", NameOf(pObject, 2));
    EXPECT_EQ(int64_t{3} << 32, Call<int64_t>(pObject, 3));
    EXPECT_STREQ("GetMsgType", slots::LastOperation());

    Call<void>(pObject, 1);
}

TEST(VtableSlotsTest, TheModulesHandlersServeTheirTypes) {
    void* pEvents = slots::NewEventHandler();
    void* pCloud = slots::NewCloudHandler();

    EXPECT_EQ(20002, Call<int64_t>(pEvents, 3));
    EXPECT_EQ(20003, Call<int64_t>(pCloud, 3));

    Call<void>(pEvents, 1);
    Call<void>(pCloud, 1);
}

TEST(VtableSlotsTest, ITimerTaskHasItsSixOperationsFromSlotTwo) {
    void* pObject = slots::NewTimerTask();

    EXPECT_EQ("Reserved", NameOf(pObject, 2));
    EXPECT_EQ("Init", NameOf(pObject, 3));
    EXPECT_EQ("Uninit", NameOf(pObject, 4));
    EXPECT_EQ("IsDue", NameOf(pObject, 5));
    EXPECT_EQ("Execute", NameOf(pObject, 6));
    EXPECT_EQ(42, (Call<int, int, int>(pObject, 7, 4, 2)));
    EXPECT_STREQ("SetParam", slots::LastOperation());

    Call<void>(pObject, 1);
}

TEST(VtableSlotsTest, CTaskTimerHasTheThreadsSixThenRunNameAndInterval) {
    void* pObject = slots::NewTaskTimer();

    const char* const names[] = {"start",    "stop",          "pause",
                                 "recovery", "doPauseOrQuit", "pausedWaitCallback",
                                 "run",      "GetTimerName",  "GetInterval"};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(names[i], NameOf(pObject, 2 + i));
    }

    Call<void>(pObject, 1);
}

TEST(VtableSlotsTest, TheModulesTimerAnswersNameAndIntervalThroughItsSlots) {
    void* pTimer = slots::NewModuleTimer();

    EXPECT_STREQ("tevmon_tasktimer", Call<const char*>(pTimer, 9));
    EXPECT_EQ(5000, Call<int>(pTimer, 10));
    EXPECT_TRUE((Call<bool, int>(pTimer, 2, 2)));
    EXPECT_TRUE(Call<bool>(pTimer, 3));

    Call<void>(pTimer, 1);
}

TEST(VtableSlotsTest, TheManagersHaveRunInSlotEight) {
    const TestDir dir;  // the cache opens its database
    void* pChannel = slots::NewChannel();
    void* pCache = slots::NewCache();

    Call<void>(pChannel, 8);
    EXPECT_STREQ("run", slots::LastOperation());
    EXPECT_EQ("DisathMsg", NameOf(pChannel, 9));
    Call<void>(pCache, 8);
    EXPECT_STREQ("run", slots::LastOperation());

    Call<void>(pChannel, 1);
    Call<void>(pCache, 1);
}
