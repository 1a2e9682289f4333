// The owning handle: when it closes what it holds.
#include "base/KEUniqueHandle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

using namespace kestrelon;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<int> sClosed;

void CloseNumber(int number) {
    sClosed.push_back(number);
}

using Handle = KEUniqueHandleT<int, -1, CloseNumber>;

static_assert(!std::is_copy_constructible_v<Handle> && !std::is_copy_assignable_v<Handle>);
static_assert(std::is_nothrow_move_constructible_v<Handle> && std::is_nothrow_move_assignable_v<Handle>);

class UniqueHandleTest : public testing::Test {
protected:
    UniqueHandleTest() { sClosed.clear(); }
};

TEST_F(UniqueHandleTest, HoldsNothingAtFirst) {
    {
        const Handle handle;
        EXPECT_FALSE(handle.IsValidHandle());
        EXPECT_EQ(handle.GetHandle(), -1);
    }
    EXPECT_THAT(sClosed, IsEmpty());
}

TEST_F(UniqueHandleTest, ClosesWhatItHoldsOnce) {
    {
        Handle handle(0); // a value like others: only -1 is invalid
        EXPECT_TRUE(handle.IsValidHandle());
        handle.CloseHandle();
        EXPECT_THAT(sClosed, ElementsAre(0));
        EXPECT_FALSE(handle.IsValidHandle());
        handle.CloseHandle();
    }
    EXPECT_THAT(sClosed, ElementsAre(0));
}

TEST_F(UniqueHandleTest, ClosesBeforeItTakesAnother) {
    {
        Handle handle(1);
        handle.SetHandle(2);
        EXPECT_THAT(sClosed, ElementsAre(1));
        EXPECT_EQ(handle.GetHandle(), 2);
    }
    EXPECT_THAT(sClosed, ElementsAre(1, 2));
}

TEST_F(UniqueHandleTest, GivesItsHandleAway) {
    {
        Handle handle(5);
        EXPECT_EQ(handle.ReleaseHandle(), 5);
        EXPECT_FALSE(handle.IsValidHandle());
    }
    EXPECT_THAT(sClosed, IsEmpty());
}

TEST_F(UniqueHandleTest, Moves) {
    {
        Handle source(7);
        Handle moved(std::move(source));
        EXPECT_FALSE(source.IsValidHandle()); // NOLINT: moving invalidates
        Handle target(8);
        target = std::move(moved);
        EXPECT_THAT(sClosed, ElementsAre(8));
        EXPECT_EQ(target.GetHandle(), 7);
        EXPECT_FALSE(moved.IsValidHandle()); // NOLINT: moving invalidates
        Handle& same = target;
        target = std::move(same);
        EXPECT_EQ(target.GetHandle(), 7);
    }
    EXPECT_THAT(sClosed, ElementsAre(8, 7));
}

} // namespace
