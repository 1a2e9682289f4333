// An intrusive doubly linked list: the link is a member of the listed object, so that putting an object
// on a list allocates nothing. A list never owns its items. It takes no lock: the user serialises access.
#ifndef KESTRELON_KEDLIST_H
#define KESTRELON_KEDLIST_H

#include <cstddef>

namespace kestrelon {

class KEDListBase;

// The link inside a listed object. All three fields are null while the object is on no list.
struct KEDListEntry {
    KEDListEntry* mNext = nullptr;
    KEDListEntry* mPrev = nullptr;
    KEDListBase* mList = nullptr;
};

// The untyped list of links; use KEDList.
class KEDListBase {
public:
    KEDListBase() = default;
    KEDListBase(const KEDListBase&) = delete;
    KEDListBase& operator=(const KEDListBase&) = delete;

    bool IsEmpty() const noexcept { return mHead == nullptr; }

protected:
    ~KEDListBase() = default;

    KEDListEntry* HeadEntry() const noexcept { return mHead; }
    KEDListEntry* TailEntry() const noexcept { return mTail; }

    void AppendEntry(KEDListEntry& entry) noexcept {
        entry.mNext = nullptr;
        entry.mPrev = mTail;
        entry.mList = this;
        (mTail ? mTail->mNext : mHead) = &entry;
        mTail = &entry;
    }

    // False when the entry is not on this list; nothing is changed then.
    bool RemoveEntry(KEDListEntry& entry) noexcept {
        if (entry.mList != this) {
            return false;
        }
        (entry.mPrev ? entry.mPrev->mNext : mHead) = entry.mNext;
        (entry.mNext ? entry.mNext->mPrev : mTail) = entry.mPrev;
        entry = KEDListEntry{};
        return true;
    }

private:
    KEDListEntry* mHead = nullptr;
    KEDListEntry* mTail = nullptr;
};

// A list of objects of type T, linked through the member that the constructor names. T may be a base class
// of the listed objects. An object may be on one list per link member.
template <typename T>
class KEDList : public KEDListBase {
public:
    explicit KEDList(KEDListEntry T::*link) noexcept : mLink(link) {}

    // The first and last item, null when the list is empty.
    T* Head() const noexcept { return ItemOf(HeadEntry()); }
    T* Tail() const noexcept { return ItemOf(TailEntry()); }

    // The item behind one of this list, null when it is the last.
    T* Next(const T& item) const noexcept { return ItemOf((item.*mLink).mNext); }

    // The item must be on no list.
    void AppendTail(T& item) noexcept {
        KEDListEntry& entry = item.*mLink;
        mLinkOffset = reinterpret_cast<unsigned char*>(&entry) - reinterpret_cast<unsigned char*>(&item);
        AppendEntry(entry);
    }

    // Takes the first item off the list, null when the list is empty.
    T* RemoveHead() noexcept {
        T* item = Head();
        if (item) {
            RemoveEntry(item->*mLink);
        }
        return item;
    }

    // False when the item is not on this list.
    bool Remove(T& item) noexcept { return RemoveEntry(item.*mLink); }

private:
    T* ItemOf(KEDListEntry* entry) const noexcept {
        return entry ? reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(entry) - mLinkOffset) : nullptr;
    }

    KEDListEntry T::*mLink;
    std::ptrdiff_t mLinkOffset = 0; // of the link inside an item, the same for all; known once one was listed
};

} // namespace kestrelon

#endif
