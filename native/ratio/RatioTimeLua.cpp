#include "RatioTimeLua.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

RatioTime* checkSelf(lua_State* L, void* record) {
    auto* result = static_cast<RatioTime*>(record);
    if (!(result && result->denominator > 0)) {
        KyLua_throwProgramError(L, "Assertion failed: result && result->denominator > 0");
    }
    return result;
}

RatioTime* pushNew(lua_State* L) {
    auto* result = static_cast<RatioTime*>(KyDirectObject_checkPushAllocToLua(L, &RatioTime_class));
    if (result == nullptr) KyThrowProgramError("Pointer was null: result");
    return result;
}

// Addition, subtraction and comparison: a number meets the receiver on its denominator.
RatioTime operandFormA(lua_State* L, const RatioTime& self) {
    if (auto* other = static_cast<RatioTime*>(KyDirectObject_fromLua(L, 2, &RatioTime_class))) return *other;
    return RatioTime_fromNumberOver(KyLua_checkNumber(L, 2), self.denominator);
}

// Multiplication and division: pushes the result userdata and writes the operand into it.
RatioTime* RatioTime_operandFromLua(lua_State* L) {
    RatioTime* result = pushNew(L);
    if (lua_isnumber(L, 2)) {
        if (static_cast<double>(lua_tointeger(L, 2)) == lua_tonumber(L, 2)) {
            *result = RatioTime{KyLua_checkInteger(L, 2), 1};
        } else {
            *result = RatioTime_fromNumber(lua_tonumber(L, 2));
        }
        return result;
    }
    auto* rt = static_cast<RatioTime*>(KyDirectObject_fromLua(L, 2, &RatioTime_class));
    if (!rt) KyLua_throwProgramError(L, "Assertion failed: rt");
    *result = *rt;
    return result;
}

template <int (*Predicate)(RatioTime, RatioTime)>
int compare(void* record, lua_State* L) {
    const RatioTime self = *checkSelf(L, record);
    lua_pushboolean(L, Predicate(self, operandFormA(L, self)));
    return 1;
}

template <int32_t Sign>
int addSigned(void* record, lua_State* L) {
    const RatioTime self = *checkSelf(L, record);
    const RatioTime operand = operandFormA(L, self);
    RatioTime* result = pushNew(L);
    *result = self;
    RatioTime_addSigned(result, &operand, Sign);
    return 1;
}

int multiply(void* record, lua_State* L) {
    const RatioTime self = *checkSelf(L, record);
    RatioTime* result = RatioTime_operandFromLua(L);
    *result = RatioTime_multiply(self, *result);
    return 1;
}

int divide(void* record, lua_State* L) {
    const RatioTime self = *checkSelf(L, record);
    RatioTime* result = RatioTime_operandFromLua(L);
    const RatioTime divisor = *result;
    *result = self;
    if (!(divisor.numerator != 0)) KyLua_throwProgramError(L, "Assertion failed: divisor.numerator != 0");
    if (!(divisor.denominator != 0)) KyLua_throwProgramError(L, "Assertion failed: divisor.denominator != 0");
    *result = RatioTime_divide(self, divisor);
    return 1;
}

int inverse(void* record, lua_State* L) {
    const RatioTime* self = checkSelf(L, record);
    if (!(self->numerator != 0)) KyLua_throwProgramError(L, "Assertion failed: self->numerator != 0");
    RatioTime* result = pushNew(L);
    *result = RatioTime{self->denominator, self->numerator};
    RatioTime_normalize(result);
    return 1;
}

int make(void* record, lua_State* L) {
    const RatioTime self = *checkSelf(L, record);
    return RatioTime_pushToLua(L, RatioTime_fromNumberOver(KyLua_checkNumber(L, 2), self.denominator));
}

int toNumber(void* record, lua_State* L) {
    lua_pushnumber(L, RatioTime_toNumber(*checkSelf(L, record)));
    return 1;
}

int archive(void* record, lua_State* L) {
    RatioTime* self = checkSelf(L, record);
    RatioTime_normalize(self);
    char text[RatioTime_archiveLength + 1];
    RatioTime_archive(*self, text);
    lua_pushlstring(L, text, RatioTime_archiveLength);
    return 1;
}

int unarchive(void* record, lua_State* L) {
    RatioTime* self = checkSelf(L, record);
    if (!(lua_objlen(L, (2)) == RatioTime_archiveLength)) {
        KyLua_throwProgramError(L, "Assertion failed: lua_objlen(L, (2)) == 33");
    }
    // A value of another type with that length (a table) has no text to read.
    if (const char* text = lua_tolstring(L, 2, nullptr)) RatioTime_unarchive(text, self);
    return 0;
}

int toString(void* record, lua_State* L) {
    const RatioTime* self = checkSelf(L, record);
    char text[101];
    std::snprintf(text, sizeof text, "RatioTime( %" PRId64 "/%" PRId64 " )", self->numerator, self->denominator);
    lua_pushstring(L, text);
    return 1;
}

int numerator(void* record, lua_State* L) {
    lua_pushnumber(L, static_cast<double>(checkSelf(L, record)->numerator));
    return 1;
}

int denominator(void* record, lua_State* L) {
    lua_pushnumber(L, static_cast<double>(checkSelf(L, record)->denominator));
    return 1;
}

intptr_t firstHook(void*) { return 0; }

void copyHook(void* destination, const void* source, size_t size, int32_t) { std::memcpy(destination, source, size); }

const KyDirectObjectMethodRow kMethods[] = {
    {"equals", compare<RatioTime_equal>},
    {"eq", compare<RatioTime_equal>},
    {"lt", compare<RatioTime_less>},
    {"gt", compare<RatioTime_greater>},
    {"__eq", compare<RatioTime_equal>},
    {"__lt", compare<RatioTime_less>},
    {"__le", compare<RatioTime_lessEqual>},
    {"__ge", compare<RatioTime_greaterEqual>},
    {"__add", addSigned<1>},
    {"__sub", addSigned<-1>},
    {"__mul", multiply},
    {"mul", multiply},
    {"__div", divide},
    {"div", divide},
    {"inverse", inverse},
    {"make", make},
    {"toNumber", toNumber},
    {"archive", archive},
    {"unarchive", unarchive},
    {"__tostring", toString},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kProperties[] = {
    {"numerator", numerator, nullptr},
    {"denominator", denominator, nullptr},
    {nullptr, nullptr, nullptr},
};

}  // namespace

KyDirectObjectClass RatioTime_class = {
    0, "RatioTime", sizeof(RatioTime), firstHook, nullptr, copyHook, kMethods, kProperties,
};

int RatioTime_pushToLua(lua_State* L, RatioTime value) {
    *pushNew(L) = value;
    return 1;
}

RatioTime RatioTime_checkFromLua(lua_State* L) {
    auto* rt = static_cast<RatioTime*>(KyDirectObject_fromLua(L, 2, &RatioTime_class));
    if (!rt) KyLua_throwProgramError(L, "Assertion failed: rt");
    return *rt;
}

int RatioTime_make_L(lua_State* L) {
    RatioTime value{0, 1};
    if (lua_type(L, 1) != LUA_TNONE) {
        value.numerator = RatioTime_truncate(KyLua_checkNumber(L, 1));
        value.denominator = RatioTime_truncate(KyLua_checkNumber(L, 2));
        if (!(value.denominator > 0)) KyLua_throwProgramError(L, "Assertion failed: value.denominator > 0");
    }
    return RatioTime_pushToLua(L, value);
}

int RatioTime_is_L(lua_State* L) {
    lua_pushboolean(L, KyDirectObject_fromLua(L, 1, &RatioTime_class) != nullptr);
    return 1;
}
