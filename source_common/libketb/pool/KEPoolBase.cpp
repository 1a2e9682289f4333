#include "pool/KEPoolBase.h"

namespace kestrelon {

void KEPoolItemBase::ReleaseToPool() {
    mOwnerPool->PutItem(this);
}

void KEPoolBase::AddItem(KEPoolItemBase* item) noexcept {
    item->mIndex = mTotalCount;
    item->mOwnerPool = this;
    mItemList.AppendTail(*item);
    ++mTotalCount;
    ++mCurrentCount;
}

} // namespace kestrelon
