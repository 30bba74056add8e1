/* KyKernel: what every native of a toolkit needs of the host's Lua runtime.
 *
 * The Lua runtime is Lua 5.1 built as C++: a raised Lua error is a C++ exception, so raising from a
 * native unwinds its frames and runs the destructors of their locals. All functions here run on the
 * thread of the Lua state they are given; none of them takes a lock. */
#ifndef KY_KERNEL_H
#define KY_KERNEL_H

#include <lua.hpp>
#include <stddef.h>
#include <stdint.h>

#define KY_EXPORT __attribute__((visibility("default")))

/* A native method or property accessor: the object's record, then the state; returns the count of
 * results left on the stack. Index 1 is the receiver, index 2 onward the other arguments. */
typedef int (*KyDirectObjectMethod)(void* record, lua_State* L);

typedef struct KyDirectObjectMethodRow {
    const char* name;
    KyDirectObjectMethod method;
} KyDirectObjectMethodRow;

/* getter and setter have the method form; setter may be null (the property is read-only). */
typedef struct KyDirectObjectPropertyRow {
    const char* name;
    KyDirectObjectMethod getter;
    KyDirectObjectMethod setter;
} KyDirectObjectPropertyRow;

/* The static record of a Lua-visible native type. The owner (a toolkit) keeps it alive for as long
 * as the host runs and never writes it after handing it over; the host may use hostWord. Method
 * rows named like Lua metamethods (__add, __eq, __tostring, __gc, ...) become the type's
 * metamethods; every row but __gc is also a method. The __gc row runs once, and the object refuses
 * every method after it. Rows end with a row of nulls. */
typedef struct KyDirectObjectClass {
    uintptr_t hostWord;
    const char* className;
    size_t instanceSize;
    intptr_t (*firstHook)(void*);
    intptr_t (*secondHook)(void*);
    void (*copyHook)(void* destination, const void* source, size_t size, int32_t flag);
    const KyDirectObjectMethodRow* methods;
    const KyDirectObjectPropertyRow* properties;
} KyDirectObjectClass;

#ifdef __cplusplus
extern "C" {
#endif

/* Sets table[name] = function for each row until the row of nulls; the table is at the absolute
 * index tableIndex. The stack is left as it was. */
KY_EXPORT void KyLua_addFunctionsToTable(lua_State* L, int tableIndex, const luaL_Reg* rows);

/* The value at the index, or a Lua argument error (which does not return). */
KY_EXPORT double KyLua_checkNumber(lua_State* L, int index);
KY_EXPORT int64_t KyLua_checkInteger(lua_State* L, int index);
KY_EXPORT void* KyLua_checkLightUserdata(lua_State* L, int index);

/* Raise a Lua error whose message is exactly text. Neither returns. KyThrowProgramError raises in
 * the native call in progress on this thread; outside any native call it throws KyProgramError. */
KY_EXPORT __attribute__((noreturn)) void KyLua_throwProgramError(lua_State* L, const char* text);
KY_EXPORT __attribute__((noreturn)) void KyThrowProgramError(const char* text);

/* Pushes a new full userdata of cls->instanceSize bytes that behaves as an instance of cls and
 * returns its record, whose content is undefined: the caller fills it. */
KY_EXPORT void* KyDirectObject_checkPushAllocToLua(lua_State* L, const KyDirectObjectClass* cls);
/* The record of the value at the index if it is an instance of cls, else null. Never raises. */
KY_EXPORT void* KyDirectObject_fromLua(lua_State* L, int index, const KyDirectObjectClass* cls);
/* Pushes a new instance of cls whose record is filled from source through the class's copyHook
 * (a byte copy when the class has none); returns the new record. */
KY_EXPORT void* KyDirectObject_pushCopyToLua(lua_State* L, const KyDirectObjectClass* cls, const void* source);

#ifdef __cplusplus
}

#include <stdexcept>

/* Thrown by KyThrowProgramError when no native call is in progress on the calling thread. */
class KY_EXPORT KyProgramError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
#endif

#endif
