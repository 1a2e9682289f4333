// The intrusive list, byte buffers, byte order.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "base/KEBuffer.h"
#include "base/KEByteOrder.h"
#include "base/KEDList.h"

using namespace kestrelon;

namespace {

struct Item {
    explicit Item(int number) : mNumber(number) {}
    virtual ~Item() = default;

    int mNumber;
    KEDListEntry mFirstLink;
    KEDListEntry mSecondLink;
};

// The link is not where it is in an item alone.
struct Before {
    virtual ~Before() = default;
    char mBytes[40] = {};
};
struct DerivedItem : Before, Item {
    using Item::Item;
};

bool IsUnlinked(const KEDListEntry& entry) {
    return !entry.mNext && !entry.mPrev && !entry.mList;
}

std::vector<int> TakeAll(KEDList<Item>& list) {
    std::vector<int> numbers;
    while (Item* item = list.RemoveHead()) {
        numbers.push_back(item->mNumber);
    }
    return numbers;
}

TEST(DListTest, StartsEmpty) {
    KEDList<Item> list(&Item::mFirstLink);
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.Head(), nullptr);
    EXPECT_EQ(list.Tail(), nullptr);
    EXPECT_EQ(list.RemoveHead(), nullptr);
}

TEST(DListTest, FirstInFirstOut) {
    KEDList<Item> list(&Item::mFirstLink);
    Item a(1), b(2), c(3);
    list.AppendTail(a);
    EXPECT_EQ(list.Head(), &a);
    EXPECT_EQ(list.Tail(), &a);
    EXPECT_FALSE(list.IsEmpty());
    list.AppendTail(b);
    list.AppendTail(c);
    EXPECT_EQ(list.Head(), &a);
    EXPECT_EQ(list.Tail(), &c);
    EXPECT_EQ(a.mFirstLink.mNext, &b.mFirstLink);
    EXPECT_EQ(b.mFirstLink.mPrev, &a.mFirstLink);
    EXPECT_EQ(b.mFirstLink.mList, &list);
    EXPECT_EQ(TakeAll(list), (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.Tail(), nullptr);
    EXPECT_TRUE(IsUnlinked(a.mFirstLink) && IsUnlinked(b.mFirstLink) && IsUnlinked(c.mFirstLink));
}

TEST(DListTest, NextLeadsFromTheHeadToTheTail) {
    KEDList<Item> list(&Item::mFirstLink);
    Item items[] = {Item(0), Item(1), Item(2)};
    for (Item& item : items) {
        list.AppendTail(item);
    }
    EXPECT_EQ(list.Next(items[0]), &items[1]);
    EXPECT_EQ(list.Next(items[1]), &items[2]);
    EXPECT_EQ(list.Next(items[2]), nullptr);
}

TEST(DListTest, RemovingFromAnyPlace) {
    for (int removed = 0; removed < 3; ++removed) {
        KEDList<Item> list(&Item::mFirstLink);
        Item items[] = {Item(0), Item(1), Item(2)};
        for (Item& item : items) {
            list.AppendTail(item);
        }
        EXPECT_TRUE(list.Remove(items[removed]));
        EXPECT_TRUE(IsUnlinked(items[removed].mFirstLink));
        EXPECT_FALSE(list.Remove(items[removed])) << "it is on no list now";
        EXPECT_EQ(list.Tail(), &items[removed == 2 ? 1 : 2]);
        list.AppendTail(items[removed]);
        std::vector<int> expected = {0, 1, 2};
        expected.erase(expected.begin() + removed);
        expected.push_back(removed);
        EXPECT_EQ(TakeAll(list), expected);
    }
}

TEST(DListTest, AnItemOfAnotherListIsLeftAlone) {
    KEDList<Item> list(&Item::mFirstLink);
    KEDList<Item> other(&Item::mFirstLink);
    Item a(1), b(2);
    list.AppendTail(a);
    other.AppendTail(b);
    EXPECT_FALSE(list.Remove(b));
    EXPECT_EQ(other.Head(), &b);
    EXPECT_EQ(b.mFirstLink.mList, &other);
}

TEST(DListTest, AnItemMayBeOnOneListPerLink) {
    KEDList<Item> first(&Item::mFirstLink);
    KEDList<Item> second(&Item::mSecondLink);
    Item a(1), b(2);
    first.AppendTail(a);
    first.AppendTail(b);
    second.AppendTail(b);
    second.AppendTail(a);
    EXPECT_EQ(TakeAll(first), (std::vector<int>{1, 2}));
    EXPECT_EQ(TakeAll(second), (std::vector<int>{2, 1}));
}

TEST(DListTest, ObjectsOfDerivedClasses) {
    KEDList<Item> list(&Item::mSecondLink);
    DerivedItem derived(7);
    Item plain(8);
    list.AppendTail(derived);
    list.AppendTail(plain);
    EXPECT_EQ(list.Head(), static_cast<Item*>(&derived));
    EXPECT_EQ(list.Tail(), &plain);
    EXPECT_EQ(TakeAll(list), (std::vector<int>{7, 8}));
}

// Counts what is allocated and not freed yet.
struct CountingAllocator {
    static inline int sBlocks = 0;
    static void* Allocate(std::size_t size) {
        ++sBlocks;
        return ::operator new(size);
    }
    static void Free(void* memory) noexcept {
        sBlocks -= memory ? 1 : 0;
        ::operator delete(memory);
    }
};
using CountedBlock = KEBufferBlockT<CountingAllocator>;

TEST(BufferBlockTest, Empty) {
    const KEBufferBlock block;
    EXPECT_EQ(block.mBuffer, nullptr);
    EXPECT_EQ(block.mBufferSize, 0u);
    EXPECT_EQ(block.mDataLength, 0u);
}

TEST(BufferBlockTest, OwnsItsBytes) {
    KEBufferBlock block(100);
    ASSERT_NE(block.mBuffer, nullptr);
    EXPECT_EQ(block.mBufferSize, 100u);
    EXPECT_EQ(block.mDataLength, 0u);
    std::memset(block.mBuffer, 0xA5, block.mBufferSize);
    EXPECT_EQ(block.mBuffer[99], 0xA5);
}

TEST(BufferBlockTest, FreesOnce) {
    ASSERT_EQ(CountingAllocator::sBlocks, 0);
    {
        CountedBlock a(10);
        a.mDataLength = 4;
        unsigned char* const bytes = a.mBuffer;
        CountedBlock b(std::move(a));
        EXPECT_EQ(b.mBuffer, bytes);
        EXPECT_EQ(b.mBufferSize, 10u);
        EXPECT_EQ(b.mDataLength, 4u);
        EXPECT_EQ(a.mBuffer, nullptr); // NOLINT(bugprone-use-after-move): that is what is tested
        EXPECT_EQ(a.mBufferSize, 0u);
        EXPECT_EQ(a.mDataLength, 0u);
        CountedBlock c(20);
        EXPECT_EQ(CountingAllocator::sBlocks, 2);
        c = std::move(b);
        EXPECT_EQ(CountingAllocator::sBlocks, 1) << "the old bytes are freed at once";
        EXPECT_EQ(c.mBuffer, bytes);
        EXPECT_EQ(c.mBufferSize, 10u);
        CountedBlock& itself = c;
        c = std::move(itself);
        EXPECT_EQ(c.mBuffer, bytes);
        c = CountedBlock();
        EXPECT_EQ(CountingAllocator::sBlocks, 0);
    }
    EXPECT_EQ(CountingAllocator::sBlocks, 0);
}

TEST(BufferReferenceTest, OwnsNothing) {
    unsigned char bytes[] = {1, 2, 3};
    const KEBufferReference view{bytes, sizeof bytes};
    view.mData[1] = 9;
    const KEConstBufferReference constView{bytes, 2};
    EXPECT_EQ(constView.mData[1], 9);
    EXPECT_EQ(constView.mLength, 2u);
    EXPECT_EQ(KEBufferReference().mData, nullptr);
    EXPECT_EQ(KEBufferReference().mLength, 0u);
}

TEST(ByteOrderTest, LoadsAtAnyAddress) {
    const std::uint8_t bytes[] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xFE, 0xDC, 0xBA, 0x98};
    EXPECT_EQ(KELoadBE16(bytes), 0x1234);
    EXPECT_EQ(KELoadBE16(bytes + 4), 0x9AFE);
    EXPECT_EQ(KELoadBE32(bytes), 0x12345678u);
    EXPECT_EQ(KELoadBE32(bytes + 5), 0xFEDCBA98u);
    EXPECT_EQ(KELoadBE32(bytes + 1), 0x3456789Au);
}

TEST(ByteOrderTest, StoresTouchTheirBytesOnly) {
    std::uint8_t bytes[8];
    std::memset(bytes, 0x55, sizeof bytes);
    KEStoreBE16(bytes + 1, 0xFEDC);
    const std::uint8_t after16[] = {0x55, 0xFE, 0xDC, 0x55, 0x55, 0x55, 0x55, 0x55};
    EXPECT_EQ(std::memcmp(bytes, after16, sizeof bytes), 0);
    KEStoreBE32(bytes + 3, 0x89ABCDEF);
    const std::uint8_t after32[] = {0x55, 0xFE, 0xDC, 0x89, 0xAB, 0xCD, 0xEF, 0x55};
    EXPECT_EQ(std::memcmp(bytes, after32, sizeof bytes), 0);
}

} // namespace
