// The event loop's state for one Lua state: pulses, triggered actions, open views, the quit
// request and the count of callbacks that raised. Main thread only, but for the list of triggered
// actions, which any thread may append to.
#ifndef KY_LOOP_H
#define KY_LOOP_H

#include <lua.hpp>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

struct KyMainThreadActionRecord;

namespace ky {

using LoopClock = std::chrono::steady_clock;

struct Pulse {
    LoopClock::duration interval;
    LoopClock::time_point due;
    int function;  // registry reference
};

struct LoopState {
    explicit LoopState(lua_State* state) : L(state), thread(std::this_thread::get_id()) {}
    ~LoopState();

    lua_State* L;
    std::thread::id thread;
    std::map<int, Pulse> pulses;
    int nextPulse = 1;
    int openViews = 0;
    int backgroundJobs = 0;  // host work on other threads whose result Lua still waits for
    bool windowsUsed = false;  // once a view was made, messages are pumped
    bool quitRequested = false;
    int exitCode = 0;
    int failures = 0;
    int actionTable = LUA_NOREF;  // registry reference: id -> action object, weak values
    int nextAction = 1;

    std::mutex triggeredLock;
    std::vector<KyMainThreadActionRecord*> triggered;  // each holds a reference

    bool hasWork();
    // Calls the function on the stack top with `arguments` below it, in protected mode, with a
    // traceback; a raise is written to standard error as "<what>: <message>" and counted.
    // Returns whether it succeeded; the results are dropped.
    bool call(int arguments, const char* what);
    void runTriggeredActions();
};

// The loop state of L, made at first use and ended when L closes (null from then on). Main thread.
std::shared_ptr<LoopState> loopOf(lua_State* L);

}  // namespace ky

#endif
