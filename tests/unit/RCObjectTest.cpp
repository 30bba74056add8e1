// Counted objects: counts, shared ownership, self-assignment, copies that start afresh.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "RCObject.h"

namespace {

int destroyed = 0;

class Counted : public RCObject {
public:
    ~Counted() override { ++destroyed; }
    const char* getTypeName() const override { return "Counted"; }
};

class RCObjectTest : public ::testing::Test {
protected:
    void SetUp() override { destroyed = 0; }
};

TEST_F(RCObjectTest, CountsFollowThePointersThatHoldTheObject) {
    auto* object = new Counted;
    EXPECT_TRUE(object->referenceCount().IsUnreferenced());
    {
        RCPtr<Counted> first(object);
        EXPECT_TRUE(object->referenceCount().IsUniquelyReferenced());
        RCPtr<Counted> second(first);
        EXPECT_TRUE(object->IsShared());
        EXPECT_TRUE(first == second);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST_F(RCObjectTest, DecrementReportsTheLastReference) {
    ReferenceCount count;
    count.Increment();
    count.Increment();
    EXPECT_FALSE(count.Decrement());
    EXPECT_TRUE(count.Decrement());
    EXPECT_TRUE(count.IsUnreferenced());
    EXPECT_TRUE(count.IsUnreferenced() && !count.IsUniquelyReferenced());
    // A count released once too often is below zero: still nobody's.
    EXPECT_FALSE(count.Decrement());
    EXPECT_TRUE(count.IsUnreferenced());
}

TEST_F(RCObjectTest, AssigningTheHeldObjectKeepsItAndNullReleasesIt) {
    RCPtr<Counted> pointer(new Counted);
    RCPtr<Counted>& alias = pointer;
    pointer = alias;
    EXPECT_EQ(destroyed, 0);
    EXPECT_STREQ(pointer->getTypeName(), "Counted");
    pointer = RCPtrNull::Instance();
    EXPECT_EQ(destroyed, 1);
    EXPECT_TRUE(!pointer);
    // Null from the start, as a default or from the marker.
    EXPECT_TRUE(!RCPtr<Counted>() && !RCPtr<Counted>(RCPtrNull::Instance()));
    EXPECT_EQ(RCPtr<Counted>().get(), nullptr);
}

TEST_F(RCObjectTest, CopiesAndAssignmentsDoNotShareCounts) {
    RCPtr<Counted> held(new Counted);
    Counted copy(*held);
    EXPECT_TRUE(copy.referenceCount().IsUnreferenced());
    Counted other;
    other = *held;
    EXPECT_TRUE(held->referenceCount().IsUniquelyReferenced());
    EXPECT_TRUE(other.referenceCount().IsUnreferenced());
}

TEST_F(RCObjectTest, ThreadsReleasingAtOnceDestroyExactlyOnce) {
    for (int round = 0; round < 200; ++round) {
        RCPtr<Counted> shared(new Counted);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) threads.emplace_back([copy = shared]() mutable { copy = RCPtrNull::Instance(); });
        shared = RCPtrNull::Instance();
        for (auto& thread : threads) thread.join();
    }
    EXPECT_EQ(destroyed, 200);
}

}  // namespace
