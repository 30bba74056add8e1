// Main-thread actions. The Lua action object keeps its function in its environment table; the
// loop finds the object again through a weak-valued table, by the id its native records share.
#include <atomic>
#include <memory>
#include <thread>

#include "KyHostModules.h"
#include "KyLoop.h"
#include "KyTransit.h"
#include "Win32Window.h"

struct KyMainThreadActionRecord {
    std::atomic<int> references{1};
    std::weak_ptr<ky::LoopState> loop;
    int id = 0;
    std::atomic<bool> triggered{false};
};

namespace {

KyMainThreadAction* recordOf(void* record) { return static_cast<KyMainThreadAction*>(record); }

int actionTrigger(void* record, lua_State* L) {
    KyMainThreadAction action = *recordOf(record);
    if (action == nullptr) return luaL_error(L, "the action is released");
    KyMainThreadAction_trigger(action);
    return 0;
}

int actionCollect(void* record, lua_State*) {
    KyMainThreadAction* action = recordOf(record);
    if (*action != nullptr) KyMainThreadAction_release(*action);
    *action = nullptr;
    return 0;
}

const KyDirectObjectMethodRow kActionMethods[] = {
    {"trigger", actionTrigger},
    {"__gc", actionCollect},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kNoProperties[] = {{nullptr, nullptr, nullptr}};

const KyDirectObjectClass kActionClass = {
    0, "KyMainThreadAction", sizeof(KyMainThreadAction), nullptr, nullptr, nullptr, kActionMethods, kNoProperties,
};

// makeMainThreadAction(function) -> action object.
int makeMainThreadAction(lua_State* L) {
    luaL_checktype(L, 1, LUA_TFUNCTION);
    const std::shared_ptr<ky::LoopState> loop = ky::loopOf(L);
    auto* action = new KyMainThreadActionRecord();
    action->loop = loop;
    action->id = loop->nextAction++;
    *recordOf(KyDirectObject_checkPushAllocToLua(L, &kActionClass)) = action;
    lua_createtable(L, 1, 0);
    lua_pushvalue(L, 1);
    lua_rawseti(L, -2, 1);
    lua_setfenv(L, -2);
    lua_rawgeti(L, LUA_REGISTRYINDEX, loop->actionTable);
    lua_pushvalue(L, -2);
    lua_rawseti(L, -2, action->id);
    lua_pop(L, 1);
    return 1;
}

}  // namespace

const luaL_Reg ky::kWorkerThreadsFunctions[] = {{"makeMainThreadAction", makeMainThreadAction}, {nullptr, nullptr}};

void ky::LoopState::runTriggeredActions() {
    std::vector<KyMainThreadActionRecord*> due;
    {
        std::lock_guard<std::mutex> hold(triggeredLock);
        due.swap(triggered);
    }
    for (KyMainThreadActionRecord* action : due) {
        action->triggered = false;
        lua_rawgeti(L, LUA_REGISTRYINDEX, actionTable);
        lua_rawgeti(L, -1, action->id);
        if (lua_isuserdata(L, -1)) {
            lua_getfenv(L, -1);
            lua_rawgeti(L, -1, 1);
            call(0, "main-thread action");
            lua_pop(L, 1);
        }
        lua_pop(L, 2);
        KyMainThreadAction_release(action);
    }
}

extern "C" {

KyMainThreadAction KyMainThreadAction_copy(lua_State* L, int index) {
    void* record = KyDirectObject_fromLua(L, index, &kActionClass);
    if (record == nullptr) luaL_typerror(L, index, kActionClass.className);
    KyMainThreadAction action = *recordOf(record);
    if (action == nullptr) luaL_argerror(L, index, "the action is released");
    action->references.fetch_add(1);
    return action;
}

void KyMainThreadAction_trigger(KyMainThreadAction action) {
    if (action->triggered.exchange(true)) return;
    const std::shared_ptr<ky::LoopState> loop = action->loop.lock();
    if (!loop) return;
    action->references.fetch_add(1);
    {
        std::lock_guard<std::mutex> hold(loop->triggeredLock);
        loop->triggered.push_back(action);
    }
    // Wakes a loop that waits for messages; on its own thread the loop looks before it waits.
    if (std::this_thread::get_id() != loop->thread) PostMessageW(nullptr, WM_NULL, 0, 0);
}

void KyMainThreadAction_release(KyMainThreadAction action) {
    if (action->references.fetch_sub(1) == 1) delete action;
}

}  // extern "C"
