// The host's event loop: window messages, triggered main-thread actions and pulses, on the main
// thread, until quit is asked for or nothing is left that could make more work.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "KyHostModules.h"
#include "KyLoop.h"
#include "KyTransit.h"
#include "Win32Window.h"

namespace ky {

namespace {

char loopKey;

struct LoopHolder {
    std::shared_ptr<LoopState> loop;
};

// The holder stays readable while the state closes: finalisers that run after it find no loop.
int collectLoop(lua_State* L) {
    static_cast<LoopHolder*>(lua_touserdata(L, 1))->loop.reset();
    return 0;
}

// Message handler of protected calls: the message with the stack where it was raised.
int traceback(lua_State* L) {
    if (!lua_isstring(L, 1)) return 1;
    lua_getfield(L, LUA_GLOBALSINDEX, "debug");
    if (!lua_istable(L, -1)) return 1;
    lua_getfield(L, -1, "traceback");
    lua_pushvalue(L, 1);
    lua_pushinteger(L, 2);
    lua_call(L, 2, 1);
    return 1;
}

// tostring(value) of the error at the top, which is replaced.
void errorToText(lua_State* L) {
    if (lua_isstring(L, -1)) return;
    lua_getfield(L, LUA_GLOBALSINDEX, "tostring");
    lua_insert(L, -2);
    if (lua_pcall(L, 1, 1, 0) != 0 || !lua_isstring(L, -1)) {
        lua_pop(L, 1);
        lua_pushliteral(L, "(error object without text)");
    }
}

constexpr auto kLongestWait = std::chrono::milliseconds(100);
// Without a window nothing can post a message, so a loop that only runs pulses sleeps instead.
constexpr auto kSleepWithoutWindows = std::chrono::milliseconds(5);

int pulseId(lua_State* L) { return *static_cast<int*>(luaL_checkudata(L, 1, "KyPulse")); }

int pulseStop(lua_State* L) {
    const int id = pulseId(L);
    const std::shared_ptr<LoopState> loop = loopOf(L);
    const auto pulse = loop->pulses.find(id);
    if (pulse != loop->pulses.end()) {
        luaL_unref(L, LUA_REGISTRYINDEX, pulse->second.function);
        loop->pulses.erase(pulse);
    }
    return 0;
}

int pulseIsRunning(lua_State* L) {
    lua_pushboolean(L, loopOf(L)->pulses.count(pulseId(L)) != 0);
    return 1;
}

// onPulse(seconds, function) -> pulse with stop() and isRunning().
int onPulse(lua_State* L) {
    const double seconds = luaL_checknumber(L, 1);
    luaL_argcheck(L, std::isfinite(seconds) && seconds > 0, 1, "the interval must be a positive number of seconds");
    luaL_checktype(L, 2, LUA_TFUNCTION);
    const std::shared_ptr<LoopState> loop = loopOf(L);
    const auto interval = std::chrono::duration_cast<LoopClock::duration>(std::chrono::duration<double>(seconds));
    lua_pushvalue(L, 2);
    const int function = luaL_ref(L, LUA_REGISTRYINDEX);
    const int id = loop->nextPulse++;
    loop->pulses[id] = Pulse{interval, LoopClock::now() + interval, function};
    *static_cast<int*>(lua_newuserdata(L, sizeof(int))) = id;
    static const luaL_Reg methods[] = {{"stop", pulseStop}, {"isRunning", pulseIsRunning}, {nullptr, nullptr}};
    pushMetatable(L, "KyPulse", methods);
    lua_setmetatable(L, -2);
    return 1;
}

void runDuePulses(LoopState& loop) {
    const LoopClock::time_point now = LoopClock::now();
    std::vector<int> due;
    for (const auto& [id, pulse] : loop.pulses) {
        if (pulse.due <= now) due.push_back(id);
    }
    for (int id : due) {
        auto pulse = loop.pulses.find(id);
        if (pulse == loop.pulses.end()) continue;  // stopped by an earlier pulse
        pulse->second.due = std::max(pulse->second.due + pulse->second.interval, now);
        lua_rawgeti(loop.L, LUA_REGISTRYINDEX, pulse->second.function);
        if (loop.call(0, "KyEventLoop pulse")) continue;
        // A pulse that raised once raises again at every turn (a closed or invalidated object
        // under it, say): it is stopped, so that its error is told once and the loop can end.
        pulse = loop.pulses.find(id);
        if (pulse == loop.pulses.end()) continue;
        luaL_unref(loop.L, LUA_REGISTRYINDEX, pulse->second.function);
        loop.pulses.erase(pulse);
    }
}

void pumpMessages(LoopState& loop) {
    if (loop.openViews == 0 && !loop.windowsUsed) return;
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_QUIT) {
            loop.quitRequested = true;
            loop.exitCode = static_cast<int>(message.wParam);
            return;
        }
        DispatchMessageW(&message);
    }
}

void wait(LoopState& loop, LoopClock::time_point deadline) {
    {
        std::lock_guard<std::mutex> hold(loop.triggeredLock);
        if (!loop.triggered.empty()) return;
    }
    LoopClock::time_point until = std::min(deadline, LoopClock::now() + kLongestWait);
    for (const auto& entry : loop.pulses) until = std::min(until, entry.second.due);
    const auto remaining = std::max(until - LoopClock::now(), LoopClock::duration::zero());
    if (loop.openViews == 0 && !loop.windowsUsed) {
        std::this_thread::sleep_for(std::min<LoopClock::duration>(remaining, kSleepWithoutWindows));
        return;
    }
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
    MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(milliseconds), QS_ALLINPUT);
}

// One turn after another until quit, until the predicate at predicateIndex (0: none) holds, or
// until the deadline; without a predicate also until no work is left. True when the predicate held.
bool runLoop(LoopState& loop, int predicateIndex, LoopClock::time_point deadline) {
    for (;;) {
        pumpMessages(loop);
        loop.runTriggeredActions();
        runDuePulses(loop);
        if (predicateIndex != 0) {
            lua_pushvalue(loop.L, predicateIndex);
            if (lua_pcall(loop.L, 0, 1, 0) != 0) lua_error(loop.L);
            const bool holds = lua_toboolean(loop.L, -1);
            lua_pop(loop.L, 1);
            if (holds) return true;
        } else if (!loop.hasWork()) {
            return false;
        }
        if (loop.quitRequested || LoopClock::now() >= deadline) return false;
        wait(loop, deadline);
    }
}

// run() -> exit code given to quit (0 when the work ran out), count of callbacks that raised.
int run(lua_State* L) {
    const std::shared_ptr<LoopState> loop = loopOf(L);
    const int failuresBefore = loop->failures;
    runLoop(*loop, 0, LoopClock::time_point::max());
    const int code = loop->quitRequested ? loop->exitCode : 0;
    loop->quitRequested = false;
    loop->exitCode = 0;
    lua_pushinteger(L, code);
    lua_pushinteger(L, loop->failures - failuresBefore);
    return 2;
}

// runUntil(predicate, seconds) -> whether the predicate came true in time. A quit ends it too,
// and stays asked for, for the run() further out.
int runUntil(lua_State* L) {
    luaL_checktype(L, 1, LUA_TFUNCTION);
    const double seconds = luaL_checknumber(L, 2);
    luaL_argcheck(L, std::isfinite(seconds) && seconds >= 0, 2, "the time limit must be a number of seconds");
    const std::shared_ptr<LoopState> loop = loopOf(L);
    const auto limit = std::chrono::duration_cast<LoopClock::duration>(std::chrono::duration<double>(seconds));
    lua_pushboolean(L, runLoop(*loop, 1, LoopClock::now() + limit));
    return 1;
}

int quit(lua_State* L) {
    const std::shared_ptr<LoopState> loop = loopOf(L);
    loop->quitRequested = true;
    loop->exitCode = static_cast<int>(luaL_optinteger(L, 1, 0));
    return 0;
}

int failures(lua_State* L) {
    lua_pushinteger(L, loopOf(L)->failures);
    return 1;
}

}  // namespace

const luaL_Reg kEventLoopFunctions[] = {
    {"onPulse", onPulse}, {"run", run}, {"runUntil", runUntil}, {"quit", quit}, {"failures", failures},
    {nullptr, nullptr},
};

LoopState::~LoopState() {
    for (KyMainThreadActionRecord* action : triggered) KyMainThreadAction_release(action);
}

bool LoopState::hasWork() {
    std::lock_guard<std::mutex> hold(triggeredLock);
    return openViews > 0 || backgroundJobs > 0 || !pulses.empty() || !triggered.empty();
}

bool LoopState::call(int arguments, const char* what) {
    const int handler = lua_gettop(L) - arguments;
    lua_pushcfunction(L, traceback);
    lua_insert(L, handler);
    const int status = lua_pcall(L, arguments, 0, handler);
    lua_remove(L, handler);
    if (status == 0) return true;
    errorToText(L);
    std::fprintf(stderr, "%s: %s\n", what, lua_tostring(L, -1));
    lua_pop(L, 1);
    ++failures;
    return false;
}

std::shared_ptr<LoopState> loopOf(lua_State* L) {
    lua_pushlightuserdata(L, &loopKey);
    lua_rawget(L, LUA_REGISTRYINDEX);
    if (auto* holder = static_cast<LoopHolder*>(lua_touserdata(L, -1))) {
        lua_pop(L, 1);
        return holder->loop;
    }
    lua_pop(L, 1);
    auto loop = std::make_shared<LoopState>(L);
    lua_newtable(L);
    lua_createtable(L, 0, 1);
    lua_pushliteral(L, "v");
    lua_setfield(L, -2, "__mode");
    lua_setmetatable(L, -2);
    loop->actionTable = luaL_ref(L, LUA_REGISTRYINDEX);

    lua_pushlightuserdata(L, &loopKey);
    new (lua_newuserdata(L, sizeof(LoopHolder))) LoopHolder{loop};
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, collectLoop);
    lua_setfield(L, -2, "__gc");
    lua_setmetatable(L, -2);
    lua_rawset(L, LUA_REGISTRYINDEX);
    return loop;
}

}  // namespace ky
