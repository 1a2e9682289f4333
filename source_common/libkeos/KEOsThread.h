// The thread type of the OS layer, with an entry point that runs a member function.
#ifndef KESTRELON_KEOSTHREAD_H
#define KESTRELON_KEOSTHREAD_H

#include "KEPosixThread.h"

namespace kestrelon {

template <typename NativeThread>
class KEOsThreadT : public NativeThread {
public:
    // A routine for CreateThread: runs the member function F of the object and returns null. The function
    // must not throw.
    template <typename T, void (T::*F)()>
    static void* ThreadEntryPointForMember_static(void* object) {
        (static_cast<T*>(object)->*F)();
        return nullptr;
    }
};

using KEOsThread = KEOsThreadT<KEPosixThread>;

} // namespace kestrelon

#endif
