// The rational core against the contract's tables: normalisation, wrap-around, the 1/600 rule.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "RatioTime.h"

namespace {

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

RatioTime rt(int64_t n, int64_t d) { return RatioTime{n, d}; }

void expectFields(const RatioTime& value, int64_t n, int64_t d) {
    EXPECT_EQ(value.numerator, n);
    EXPECT_EQ(value.denominator, d);
}

struct FieldsCase {
    RatioTime input;
    RatioTime expected;
};

class Normalize : public ::testing::TestWithParam<FieldsCase> {};

TEST_P(Normalize, ReducesByTheSixPrimesOnly) {
    RatioTime value = GetParam().input;
    RatioTime_normalize(&value);
    expectFields(value, GetParam().expected.numerator, GetParam().expected.denominator);
    RatioTime again = value;
    RatioTime_normalize(&again);
    expectFields(again, value.numerator, value.denominator);
}

INSTANTIATE_TEST_SUITE_P(Table, Normalize, ::testing::Values(
    FieldsCase{rt(30, 20), rt(3, 2)}, FieldsCase{rt(1001, 30030), rt(1, 30)}, FieldsCase{rt(600, 600), rt(1, 1)},
    FieldsCase{rt(17, 34), rt(17, 34)}, FieldsCase{rt(38, 76), rt(19, 38)},
    FieldsCase{rt(1003, 1003), rt(1003, 1003)}, FieldsCase{rt(0, 5), rt(0, 1)}, FieldsCase{rt(5, 0), rt(0, 1)},
    FieldsCase{rt(0, 0), rt(0, 1)}, FieldsCase{rt(-10, 4), rt(-5, 2)}, FieldsCase{rt(10, -4), rt(5, -2)},
    FieldsCase{rt(kMin, 4611686018427387904), rt(-2, 1)},
    FieldsCase{rt(kMax, kMax), rt(188232082384791343, 188232082384791343)}));

// The prescribed loop, written plainly, as the reference for the fast one.
RatioTime referenceNormalize(RatioTime value) {
    if (value.denominator == 0) return rt(0, 1);
    if (value.numerator == 0) return rt(0, 1);
    for (int64_t p : {2, 3, 5, 7, 11, 13}) {
        while (value.numerator % p == 0 && value.denominator % p == 0) {
            value.numerator /= p;
            value.denominator /= p;
        }
    }
    return value;
}

TEST(NormalizeAgainstReference, ManyValuesOfEverySignAndSize) {
    std::mt19937_64 random(20261123);
    const int64_t smooth[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 25, 49, 121, 169, 1001, 30030, 1 << 20};
    auto pick = [&](int kind) -> int64_t {
        switch (kind) {
            case 0: return static_cast<int64_t>(random());
            case 1: return smooth[random() % 20] * smooth[random() % 20] * static_cast<int64_t>(random() % 1000 + 1);
            case 2: return kMin;
            default: return -smooth[random() % 20] * static_cast<int64_t>(random() % 100000 + 1);
        }
    };
    for (int i = 0; i < 200000; ++i) {
        RatioTime value = rt(pick(random() % 4), pick(random() % 4));
        const RatioTime expected = referenceNormalize(value);
        RatioTime_normalize(&value);
        ASSERT_EQ(value.numerator, expected.numerator) << i;
        ASSERT_EQ(value.denominator, expected.denominator) << i;
    }
}

struct BinaryCase {
    const char* name;
    RatioTime a;
    RatioTime b;
    RatioTime expected;
};

class AddSubtract : public ::testing::TestWithParam<std::pair<BinaryCase, int32_t>> {};

TEST_P(AddSubtract, CrossMultipliesThenNormalises) {
    const auto& [c, sign] = GetParam();
    RatioTime value = c.a;
    RatioTime_addSigned(&value, &c.b, sign);
    SCOPED_TRACE(c.name);
    expectFields(value, c.expected.numerator, c.expected.denominator);
}

INSTANTIATE_TEST_SUITE_P(Table, AddSubtract, ::testing::Values(
    std::make_pair(BinaryCase{"1/6+1/3", rt(1, 6), rt(1, 3), rt(1, 2)}, 1),
    std::make_pair(BinaryCase{"1/2-1/2", rt(1, 2), rt(1, 2), rt(0, 1)}, -1),
    std::make_pair(BinaryCase{"1/17+1/17", rt(1, 17), rt(1, 17), rt(34, 289)}, 1),
    std::make_pair(BinaryCase{"30000/1001+1", rt(30000, 1001), rt(1, 1), rt(31001, 1001)}, 1),
    std::make_pair(BinaryCase{"1/6+1/6 via 36", rt(1, 6), rt(1, 6), rt(1, 3)}, 1),
    std::make_pair(BinaryCase{"1/2+0.3 on 2", rt(1, 2), rt(0, 2), rt(1, 2)}, 1),
    std::make_pair(BinaryCase{"1/600+0.001 on 600", rt(1, 600), rt(0, 600), rt(1, 600)}, 1)));

TEST(Multiply, ProductsNormaliseAndWrap) {
    expectFields(RatioTime_multiply(rt(30000, 1001), rt(1001, 30000)), 1, 1);
    expectFields(RatioTime_multiply(rt(1, 34), rt(2, 1)), 1, 17);
    expectFields(RatioTime_multiply(rt(1, 3), rt(300, 600)), 1, 6);
    expectFields(RatioTime_multiply(rt(1, 3), rt(17982, 600)), 999, 100);
    // The denominator wraps to 0, which means zero.
    expectFields(RatioTime_multiply(rt(1, 4294967296), rt(1, 4294967296)), 0, 1);
    expectFields(RatioTime_multiply(rt(1, 4611686018427387904), rt(1, 2)), 1, kMin);
}

TEST(Multiply, NtscRatePowersKeepExactFieldsThenWrap) {
    RatioTime power = rt(30000, 1001);
    for (int i = 2; i <= 4; ++i) power = RatioTime_multiply(power, rt(30000, 1001));
    expectFields(power, 810000000000000000, 1004006004001);
    power = RatioTime_multiply(power, rt(30000, 1001));
    expectFields(power, 5638054924520521728, 1005010010005001);
}

TEST(DivideAndInverse, SwapWithoutMovingTheSign) {
    expectFields(RatioTime_divide(rt(1, 2), rt(3, 4)), 2, 3);
    expectFields(RatioTime_divide(rt(3, 1), rt(2, 1)), 3, 2);
    expectFields(RatioTime_divide(rt(1, 2), rt(-3, 4)), 2, -3);
    expectFields(RatioTime_inverse(rt(-3, 2)), 2, -3);
    expectFields(RatioTime_inverse(rt(1001, 30000)), 30000, 1001);
}

TEST(Compare, GoesThroughDoubles) {
    EXPECT_TRUE(RatioTime_equal(rt(1, 2), rt(2, 4)));
    EXPECT_TRUE(RatioTime_equal(rt(1, 3), rt(333333333333333333, 1000000000000000000)));
    EXPECT_TRUE(RatioTime_equal(rt(9007199254740993, 1), rt(9007199254740992, 1)));
    EXPECT_FALSE(RatioTime_less(rt(9007199254740993, 1), rt(9007199254740992, 1)));
    EXPECT_TRUE(RatioTime_less(rt(1, 3), rt(1, 2)));
    EXPECT_TRUE(RatioTime_lessEqual(rt(1, 2), rt(2, 4)));
    EXPECT_TRUE(RatioTime_greater(rt(2, 3), rt(1, 2)));
    EXPECT_TRUE(RatioTime_greaterEqual(rt(2, 4), rt(1, 2)));
    EXPECT_FALSE(RatioTime_greater(rt(1, 2), rt(2, 4)));
}

TEST(ToNumber, RoundsEachFieldBeforeDividing) {
    EXPECT_EQ(RatioTime_toNumber(rt(1, 2)), 0.5);
    EXPECT_EQ(RatioTime_toNumber(rt(kMax, 1)), 9223372036854775808.0);
    EXPECT_EQ(RatioTime_toNumber(rt(-1, 2)), -0.5);
}

TEST(Truncate, TowardZeroAndOutOfRangeIsMinimum) {
    for (const auto& [x, expected] : {std::pair{-0.6, int64_t{0}}, {2.9, 2}, {-2.9, -2}, {std::nan(""), kMin},
                                      {INFINITY, kMin}, {-INFINITY, kMin}, {9223372036854775808.0, kMin},
                                      {-9223372036854775808.0, kMin}, {9223372036854774784.0, 9223372036854774784}}) {
        EXPECT_EQ(RatioTime_truncate(x), expected) << x;
    }
}

struct NumberCase {
    double x;
    RatioTime expected;
};

class FromNumber : public ::testing::TestWithParam<NumberCase> {};

TEST_P(FromNumber, WholeOrThreeStepSixHundredths) {
    expectFields(RatioTime_fromNumber(GetParam().x), GetParam().expected.numerator, GetParam().expected.denominator);
}

INSTANTIATE_TEST_SUITE_P(Table, FromNumber, ::testing::Values(
    NumberCase{1.0 / 3.0, rt(199, 600)}, NumberCase{1.15, rt(689, 600)}, NumberCase{0.29, rt(173, 600)},
    NumberCase{0.205, rt(123, 600)}, NumberCase{2.5, rt(1500, 600)}, NumberCase{3.0, rt(3, 1)},
    NumberCase{-0.0, rt(0, 1)}, NumberCase{0.5, rt(300, 600)}, NumberCase{29.97, rt(17982, 600)},
    NumberCase{0.001, rt(0, 600)}, NumberCase{-9223372036854775808.0, rt(kMin, 1)},
    NumberCase{9223372036854775808.0, rt(kMin, 600)}, NumberCase{std::nan(""), rt(kMin, 600)},
    NumberCase{INFINITY, rt(kMin, 600)}));

struct OverCase {
    double x;
    int64_t denominator;
    int64_t numerator;
};

class FromNumberOver : public ::testing::TestWithParam<OverCase> {};

TEST_P(FromNumberOver, TruncatesOntoTheDenominator) {
    expectFields(RatioTime_fromNumberOver(GetParam().x, GetParam().denominator), GetParam().numerator,
                 GetParam().denominator);
}

INSTANTIATE_TEST_SUITE_P(Table, FromNumberOver, ::testing::Values(
    OverCase{29.97, 600, 17982}, OverCase{29.97, 100, 2997}, OverCase{29.97, 1001, 29999},
    OverCase{29.97, 2, 59}, OverCase{29.97, 1, 29}, OverCase{0.3, 2, 0}, OverCase{0.75, 2, 1},
    OverCase{-0.3, 2, 0}, OverCase{0.34, 3, 1}, OverCase{0.5, 3, 1}, OverCase{0.001, 600, 0}));

// Every way through the reading of archive text: the archive's own form, the all-zero text, then
// sscanf's rules for two fields, one, none, and none at all (an empty or blank text).
TEST(Unarchive, ReadsTheFieldsItReachesAndLeavesTheOthers) {
    const struct {
        const char* text;
        int fields;
        RatioTime expected;
    } cases[] = {
        {"0000000000007530/00000000000003e9", 2, rt(30000, 1001)},
        {"09afAF0000000000/FFFFFFFFFFFFFFFF", 2, rt(0x09afaf0000000000, -1)},
        {"0000000000000000/0000000000000000", 2, rt(0, 0)}, {"1/2", 2, rt(1, 2)},
        {"-000000000000001/0000000000000002", 2, rt(-1, 2)}, {"0000000000000001/000000000000000g", 2, rt(1, 0)},
        {"0000000000000005/zzzzzzzzzzzzzzzz", 1, rt(5, 0x7777)},
        {"0000000000000001x0000000000000002", 1, rt(1, 0x7777)},
        {"zzzzzzzzzzzzzzzz/0000000000000002", 0, rt(0x5555, 0x7777)}, {"", 0, rt(0x5555, 0x7777)},
        {"   ", 0, rt(0x5555, 0x7777)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        RatioTime value = rt(0x5555, 0x7777);
        EXPECT_EQ(RatioTime_unarchive(c.text, &value), c.fields);
        expectFields(value, c.expected.numerator, c.expected.denominator);
    }
}

}  // namespace
