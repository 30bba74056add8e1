// Transit queues and main-thread actions as natives use them: cargo built by pushes comes out of
// dequeue as the Lua value it describes, triggers merge into one run of the loop, and native
// references stay safe after the Lua side or the whole state is gone.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "KyHost.h"
#include "KyTransit.h"

namespace {

class TransitTest : public ::testing::Test {
protected:
    void SetUp() override { L = host->state(); }

    void run(const std::string& code) {
        std::string error;
        ASSERT_TRUE(host->runChunk(code, "test", {}, &error)) << error;
    }

    // The global's value as a native reference, taken from the stack by `take`.
    template <typename Reference>
    Reference named(const char* global, Reference (*take)(lua_State*, int)) {
        lua_getglobal(L, global);
        const Reference reference = take(L, -1);
        lua_pop(L, 1);
        return reference;
    }
    KyTransitQueue queueNamed(const char* global) { return named(global, KyTransitQueue_checkRetainFromLua); }
    KyMainThreadAction actionNamed(const char* global) { return named(global, KyMainThreadAction_copy); }

    std::string global(const char* name) {
        lua_getglobal(L, name);
        const char* text = lua_tostring(L, -1);
        std::string value = text ? text : "nil";
        lua_pop(L, 1);
        return value;
    }

    std::unique_ptr<KyHost> host = std::make_unique<KyHost>();
    lua_State* L = nullptr;
};

void enqueueMessage(KyTransitQueue queue, const char* type, const char* data) {
    KyTransitCargo cargo = KyTransitQueue_newCargo();
    KyTransitCargo_newTable(cargo, 2);
    KyTransitCargo_pushString(cargo, "type");
    KyTransitCargo_pushString(cargo, type);
    KyTransitCargo_pushString(cargo, "data");
    KyTransitCargo_pushString(cargo, data);
    KyTransitQueue_enqueueAndReleaseCargo(queue, cargo);
}

TEST_F(TransitTest, CargoComesOutAsTheValueItDescribes) {
    run("queue = import('KyAlternateUniverseSupport').makeTransitQueue()\n"
        "local first, waiting = queue:dequeue(false)\n"
        "empty = tostring(first) .. ' ' .. waiting");
    EXPECT_EQ(global("empty"), "nil 0");

    KyTransitQueue queue = queueNamed("queue");
    enqueueMessage(queue, "event", "ready");
    KyTransitCargo nested = KyTransitQueue_newCargo();
    KyTransitCargo_newTable(nested, 1);
    KyTransitCargo_pushString(nested, "inner");
    KyTransitCargo_newTable(nested, 1);
    KyTransitCargo_pushString(nested, "text");
    KyTransitCargo_pushString(nested, "caf\xC3\xA9");
    KyTransitQueue_enqueueAndReleaseCargo(queue, nested);
    KyTransitQueue_release(queue);

    run("local m, waiting = queue:dequeue(false)\n"
        "first = m.type .. '/' .. m.data .. ' ' .. waiting\n"
        "second = queue:dequeue(false).inner.text\n"
        "after = tostring(queue:dequeue(false))");
    EXPECT_EQ(global("first"), "event/ready 1");
    EXPECT_EQ(global("second"), "caf\xC3\xA9");
    EXPECT_EQ(global("after"), "nil");
}

TEST_F(TransitTest, TriggersBeforeARunMergeIntoOneThatSeesEveryCargo) {
    run("queue = import('KyAlternateUniverseSupport').makeTransitQueue()\n"
        "runs, seen = 0, ''\n"
        "action = import('KyWorkerThreads').makeMainThreadAction(function()\n"
        "  runs = runs + 1\n"
        "  while true do local m = queue:dequeue(false); if not m then return end; seen = seen .. m.data end\n"
        "end)");
    KyTransitQueue queue = queueNamed("queue");
    KyMainThreadAction action = actionNamed("action");
    enqueueMessage(queue, "event", "a");
    KyMainThreadAction_trigger(action);
    enqueueMessage(queue, "event", "b");
    KyMainThreadAction_trigger(action);
    run("import('KyEventLoop').runUntil(function() return false end, 0.05)");
    EXPECT_EQ(global("runs"), "1");
    EXPECT_EQ(global("seen"), "ab");
    KyTransitQueue_release(queue);
    KyMainThreadAction_release(action);
}

TEST_F(TransitTest, NativeReferencesOutliveTheLuaObjectsAndTheState) {
    run("queue = import('KyAlternateUniverseSupport').makeTransitQueue()\n"
        "runs = 0\n"
        "action = import('KyWorkerThreads').makeMainThreadAction(function() runs = runs + 1 end)");
    KyTransitQueue queue = queueNamed("queue");
    KyMainThreadAction action = actionNamed("action");
    run("queue, action = nil, nil; collectgarbage('collect'); collectgarbage('collect')");
    enqueueMessage(queue, "event", "late");
    KyMainThreadAction_trigger(action);
    run("import('KyEventLoop').runUntil(function() return false end, 0.02)");
    EXPECT_EQ(global("runs"), "0") << "the action's Lua side is gone, so a trigger runs nothing";
    KyMainThreadAction_release(action);

    run("again = import('KyWorkerThreads').makeMainThreadAction(function() end)");
    KyMainThreadAction pending = actionNamed("again");
    KyMainThreadAction_trigger(pending);
    host.reset();
    KyMainThreadAction_trigger(pending);
    KyMainThreadAction_release(pending);
    enqueueMessage(queue, "event", "after the state");
    KyTransitQueue_release(queue);
}

}  // namespace
