// Transit queues: cargo recorded as a list of pushes, rebuilt into a Lua value by dequeue.
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KyHostModules.h"
#include "KyTransit.h"

struct KyTransitCargoRecord {
    struct Item {
        int pairs;  // -1 for a string
        std::string text;
    };
    std::vector<Item> items;
};

struct KyTransitQueueRecord {
    std::atomic<int> references{1};
    std::mutex lock;
    std::deque<std::unique_ptr<KyTransitCargoRecord>> cargos;
};

namespace {

KyTransitQueue* recordOf(void* record) { return static_cast<KyTransitQueue*>(record); }

// Pushes the value that starts at items[*next]; a table takes the values after it.
void pushItem(lua_State* L, const KyTransitCargoRecord& cargo, size_t* next) {
    if (*next >= cargo.items.size()) luaL_error(L, "transit cargo ends inside a table");
    const KyTransitCargoRecord::Item& item = cargo.items[(*next)++];
    if (item.pairs < 0) {
        lua_pushlstring(L, item.text.data(), item.text.size());
        return;
    }
    luaL_checkstack(L, 3, "transit cargo nests too deeply");
    lua_createtable(L, 0, item.pairs);
    for (int i = 0; i < item.pairs; ++i) {
        pushItem(L, cargo, next);
        pushItem(L, cargo, next);
        if (lua_isnil(L, -2)) luaL_error(L, "transit cargo has a nil key");
        lua_rawset(L, -3);
    }
}

int queueDequeue(void* record, lua_State* L) {
    KyTransitQueue queue = *recordOf(record);
    if (queue == nullptr) return luaL_error(L, "the transit queue is released");
    std::unique_ptr<KyTransitCargoRecord> cargo;
    size_t waiting = 0;
    {
        std::lock_guard<std::mutex> hold(queue->lock);
        if (!queue->cargos.empty()) {
            cargo = std::move(queue->cargos.front());
            queue->cargos.pop_front();
        }
        waiting = queue->cargos.size();
    }
    if (!cargo || cargo->items.empty()) {
        lua_pushnil(L);
        lua_pushinteger(L, static_cast<lua_Integer>(waiting));
        return 2;
    }
    size_t next = 0;
    pushItem(L, *cargo, &next);
    lua_pushinteger(L, static_cast<lua_Integer>(waiting));
    return 2;
}

int queueCollect(void* record, lua_State*) {
    KyTransitQueue* queue = recordOf(record);
    if (*queue != nullptr) KyTransitQueue_release(*queue);
    *queue = nullptr;
    return 0;
}

const KyDirectObjectMethodRow kQueueMethods[] = {
    {"dequeue", queueDequeue},
    {"__gc", queueCollect},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kNoProperties[] = {{nullptr, nullptr, nullptr}};

const KyDirectObjectClass kQueueClass = {
    0, "KyTransitQueue", sizeof(KyTransitQueue), nullptr, nullptr, nullptr, kQueueMethods, kNoProperties,
};

int makeTransitQueue(lua_State* L) {
    *recordOf(KyDirectObject_checkPushAllocToLua(L, &kQueueClass)) = new KyTransitQueueRecord();
    return 1;
}

}  // namespace

const luaL_Reg ky::kAlternateUniverseSupportFunctions[] = {{"makeTransitQueue", makeTransitQueue}, {nullptr, nullptr}};

extern "C" {

KyTransitQueue KyTransitQueue_checkRetainFromLua(lua_State* L, int index) {
    void* record = KyDirectObject_fromLua(L, index, &kQueueClass);
    if (record == nullptr) luaL_typerror(L, index, kQueueClass.className);
    KyTransitQueue queue = *recordOf(record);
    if (queue == nullptr) luaL_argerror(L, index, "the transit queue is released");
    queue->references.fetch_add(1);
    return queue;
}

void KyTransitQueue_release(KyTransitQueue queue) {
    if (queue->references.fetch_sub(1) == 1) delete queue;
}

KyTransitCargo KyTransitQueue_newCargo(void) { return new KyTransitCargoRecord(); }

void KyTransitCargo_newTable(KyTransitCargo cargo, int pairs) { cargo->items.push_back({pairs < 0 ? 0 : pairs, {}}); }

void KyTransitCargo_pushString(KyTransitCargo cargo, const char* text) { cargo->items.push_back({-1, text}); }

void KyTransitQueue_enqueueAndReleaseCargo(KyTransitQueue queue, KyTransitCargo cargo) {
    std::lock_guard<std::mutex> hold(queue->lock);
    queue->cargos.emplace_back(cargo);
}

void KyTransitCargo_release(KyTransitCargo cargo) { delete cargo; }

}  // extern "C"
