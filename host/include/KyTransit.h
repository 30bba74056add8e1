/* Transit queues and main-thread actions: how native code hands data to Lua and asks for Lua to
 * run later on the main thread.
 *
 * A transit queue carries cargo, Lua values (tables of strings) built natively by successive
 * pushes, to be read by Lua with queue:dequeue(false), which gives the next cargo rebuilt as a Lua
 * value and the number of cargos still waiting, or nil and 0 when the queue is empty; it never
 * waits.
 * A queue is shared by its Lua object and the native references taken from it, and lives while
 * any of them does. Its cargo functions may be called from any thread (the queue has a lock).
 *
 * A main-thread action wraps a Lua function. Triggering it arranges one run of the function by the
 * host's event loop on the main thread; triggers that come before that run merge into it. A
 * native reference (KyMainThreadAction_copy) does not keep the Lua action alive: whoever holds a
 * reference also keeps the Lua value reachable (see KyDirectObject_keepLuaValue), so that a cycle
 * through native code never hides garbage from the collector. A trigger of an action whose Lua
 * value was collected, or whose state was closed, does nothing. Copy belongs to the main thread;
 * trigger and release may come from any thread. An error raised by the function ends that run;
 * the event loop writes it to standard error and counts it as a failure. */
#ifndef KY_TRANSIT_H
#define KY_TRANSIT_H

#include "KyKernel.h"

typedef struct KyTransitQueueRecord* KyTransitQueue;
typedef struct KyTransitCargoRecord* KyTransitCargo;
typedef struct KyMainThreadActionRecord* KyMainThreadAction;

#ifdef __cplusplus
extern "C" {
#endif

/* The queue object at the index with one reference taken for the caller; else a Lua argument
 * error. */
KY_EXPORT KyTransitQueue KyTransitQueue_checkRetainFromLua(lua_State* L, int index);
KY_EXPORT void KyTransitQueue_release(KyTransitQueue queue);
/* A new empty cargo owned by the caller until it is enqueued. */
KY_EXPORT KyTransitCargo KyTransitQueue_newCargo(void);
/* Begins a table of pairs key-value pairs: the next 2 * pairs values are keys and values in turn. */
KY_EXPORT void KyTransitCargo_newTable(KyTransitCargo cargo, int pairs);
/* Appends a copy of the NUL-terminated UTF-8 text. */
KY_EXPORT void KyTransitCargo_pushString(KyTransitCargo cargo, const char* text);
/* Appends the cargo to the queue, which takes it over. */
KY_EXPORT void KyTransitQueue_enqueueAndReleaseCargo(KyTransitQueue queue, KyTransitCargo cargo);
/* Frees a cargo that was never enqueued. */
KY_EXPORT void KyTransitCargo_release(KyTransitCargo cargo);

/* A native reference to the action object at the index; else a Lua argument error. */
KY_EXPORT KyMainThreadAction KyMainThreadAction_copy(lua_State* L, int index);
KY_EXPORT void KyMainThreadAction_trigger(KyMainThreadAction action);
KY_EXPORT void KyMainThreadAction_release(KyMainThreadAction action);

/* Makes the direct object (full userdata) at objectIndex keep the Lua value at valueIndex
 * reachable for as long as the object lives, through the object's environment table, which the
 * collector sees. */
KY_EXPORT void KyDirectObject_keepLuaValue(lua_State* L, int objectIndex, int valueIndex);

#ifdef __cplusplus
}
#endif

#endif
