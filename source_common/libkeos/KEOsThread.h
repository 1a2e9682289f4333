// The thread type of the OS layer: a native thread (KEPosixThread.h says who owns it, who may use it and how
// it fails) with an entry point that runs a member function.
#ifndef KESTRELON_KEOSTHREAD_H
#define KESTRELON_KEOSTHREAD_H

#include "KEPosixThread.h"

namespace kestrelon {

template <typename NativeThread>
class KEOsThreadT : public NativeThread {
public:
    // A routine for CreateThread, on the new thread. It runs the member function F of the object, which must
    // not throw and must outlive the thread, and returns null.
    template <typename T, void (T::*F)()>
    static void* ThreadEntryPointForMember_static(void* object) {
        (static_cast<T*>(object)->*F)();
        return nullptr;
    }
};

using KEOsThread = KEOsThreadT<KEPosixThread>;

} // namespace kestrelon

#endif
