// PROPVARIANT texts and integers in the forms the toolkit's parsers read, and the buffer rules.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "properties/PropertyValue.h"

namespace {

PROPVARIANT ofType(VARTYPE type) {
    PROPVARIANT value;
    PropVariantInit(&value);
    value.vt = type;
    return value;
}

std::wstring textOf(const PROPVARIANT& value) {
    wchar_t buffer[256];
    EXPECT_EQ(PropVariantToString(value, buffer, 256), S_OK);
    return buffer;
}

std::wstring textOf(const kyplatform::PropertyData& data) {
    PROPVARIANT value;
    EXPECT_EQ(kyplatform::copyToPropVariant(data, &value), S_OK);
    std::wstring text = textOf(value);
    EXPECT_EQ(PropVariantClear(&value), S_OK);
    EXPECT_EQ(value.vt, VT_EMPTY);
    return text;
}

FILETIME fileTime(ULONGLONG ticks) { return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)}; }

TEST(PropVariantToString, WritesEachTypeInThePlatformsForm) {
    EXPECT_EQ(textOf(ofType(VT_EMPTY)), L"");
    EXPECT_EQ(textOf(kyplatform::PropertyData(std::wstring(L"TestCam X1"))), L"TestCam X1");
    EXPECT_EQ(textOf(kyplatform::PropertyData(29.6)), L"29.6");
    EXPECT_EQ(textOf(kyplatform::PropertyData(2.0)), L"2");
    EXPECT_EQ(textOf(kyplatform::PropertyData(0.1 + 0.2)), L"0.3");
    EXPECT_EQ(textOf(kyplatform::PropertyData(-35.199997)), L"-35.199997");
    EXPECT_EQ(textOf(kyplatform::PropertyData(std::vector<double>{48, 51, 29.6})), L"48; 51; 29.6");
    EXPECT_EQ(textOf(kyplatform::PropertyData(std::vector<double>{})), L"");
    EXPECT_EQ(textOf(kyplatform::PropertyData(UINT32{1})), L"1");

    PROPVARIANT i4 = ofType(VT_I4), i8 = ofType(VT_I8), u8 = ofType(VT_UI8);
    i4.lVal = -42;
    i8.hVal = std::numeric_limits<LONGLONG>::min();
    u8.uhVal = std::numeric_limits<ULONGLONG>::max();
    EXPECT_EQ(textOf(i4), L"-42");
    EXPECT_EQ(textOf(i8), L"-9223372036854775808");
    EXPECT_EQ(textOf(u8), L"18446744073709551615");
}

TEST(PropVariantToString, WritesFileTimesAsUtcWithMilliseconds) {
    // 2021-03-05 14:07:09.500 UTC.
    EXPECT_EQ(textOf(kyplatform::PropertyData(fileTime(132594268295000000ULL))), L"2021/03/05:14:07:09.500");
    EXPECT_EQ(textOf(kyplatform::PropertyData(fileTime(0))), L"1601/01/01:00:00:00.000");
    // 2000-02-29 23:59:59.999 (a leap day of a century year).
    EXPECT_EQ(textOf(kyplatform::PropertyData(fileTime(125963423999990000ULL))), L"2000/02/29:23:59:59.999");
}

TEST(PropVariantToString, FailsWhenTheTextAndItsNulDoNotFit) {
    PROPVARIANT value;
    ASSERT_EQ(kyplatform::copyToPropVariant(std::vector<double>{48, 51, 29.6}, &value), S_OK);
    wchar_t buffer[13];
    EXPECT_EQ(PropVariantToString(value, buffer, 13), S_OK);  // 12 characters and the NUL
    EXPECT_STREQ(buffer, L"48; 51; 29.6");
    EXPECT_EQ(PropVariantToString(value, buffer, 12), E_NOT_SUFFICIENT_BUFFER);
    EXPECT_STREQ(buffer, L"48; 51; 29.");
    EXPECT_EQ(PropVariantToString(value, buffer, 0), E_INVALIDARG);
    EXPECT_EQ(PropVariantToString(value, nullptr, 13), E_INVALIDARG);
    PropVariantClear(&value);

    EXPECT_EQ(PropVariantToString(ofType(VT_EMPTY), buffer, 1), S_OK);
    EXPECT_EQ(PropVariantToString(ofType(0x7F), buffer, 13), E_INVALIDARG);
}

TEST(PropVariantToInt64, TakesIntegersAndWholeDoublesInRange) {
    LONGLONG result = 0;
    PROPVARIANT value = ofType(VT_UI4);
    value.ulVal = 4000000000u;
    EXPECT_EQ(PropVariantToInt64(value, &result), S_OK);
    EXPECT_EQ(result, 4000000000LL);
    value = ofType(VT_I4);
    value.lVal = -7;
    EXPECT_EQ(PropVariantToInt64(value, &result), S_OK);
    EXPECT_EQ(result, -7);
    value = ofType(VT_UI8);
    value.uhVal = 9223372036854775807ULL;
    EXPECT_EQ(PropVariantToInt64(value, &result), S_OK);
    EXPECT_EQ(result, std::numeric_limits<LONGLONG>::max());
    value = ofType(VT_R8);
    value.dblVal = -9223372036854775808.0;
    EXPECT_EQ(PropVariantToInt64(value, &result), S_OK);
    EXPECT_EQ(result, std::numeric_limits<LONGLONG>::min());

    value = ofType(VT_UI8);
    value.uhVal = 9223372036854775808ULL;
    EXPECT_EQ(PropVariantToInt64(value, &result), E_INVALIDARG);
    for (double bad : {42.5, 9223372036854775808.0, std::nan(""), HUGE_VAL}) {
        value = ofType(VT_R8);
        value.dblVal = bad;
        EXPECT_EQ(PropVariantToInt64(value, &result), E_INVALIDARG) << bad;
        EXPECT_EQ(result, 0);
    }
    EXPECT_EQ(PropVariantToInt64(ofType(VT_EMPTY), &result), E_INVALIDARG);
    EXPECT_EQ(PropVariantToInt64(ofType(VT_LPWSTR), &result), E_INVALIDARG);
    EXPECT_EQ(PropVariantToInt64(ofType(VT_I4), nullptr), E_POINTER);
}

}  // namespace
