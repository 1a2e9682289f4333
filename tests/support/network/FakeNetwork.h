// Replaces the system's socket calls for the code under test. The test executable is linked so that
// they come here first; they go on to the real call unless an object below says otherwise. For one thread.
#ifndef FLOWLANE_TESTS_FAKENETWORK_H
#define FLOWLANE_TESTS_FAKENETWORK_H

#include <netdb.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

using Bytes = std::vector<std::uint8_t>;

// One at a time.
class FakeNetwork {
public:
    FakeNetwork();
    ~FakeNetwork();
    FakeNetwork(const FakeNetwork&) = delete;
    FakeNetwork& operator=(const FakeNetwork&) = delete;

    // While set, send takes the data into mDatagrams instead of sending it, or fails.
    bool mTakesSends = false;
    std::deque<int> mSendErrors;  // errno of the next sends; 0 and none are successes
    std::size_t mSendShortBy = 0; // bytes that a successful send leaves out
    std::vector<Bytes> mDatagrams;
    unsigned mSendCalls = 0;

    // What the next calls of select answer: 0 is a time-out, negative a failure with that errno. None: the
    // real call.
    std::deque<int> mSelectResults;

    // The next calls of this name fail with these errnos; 0 goes through.
    std::map<std::string, std::deque<int>> mErrors;
    // All calls of this name fail: with this errno, or with this result for getaddrinfo and getnameinfo.
    std::string mFailingCall;
    int mFailure = 0;

    std::vector<int> mSendBufferSizes; // values given to SO_SNDBUF
    std::vector<std::optional<timeval>> mSelectTimeouts;
    int mSendFlags = 0;       // of the last send
    std::string mLastService; // of the last getaddrinfo
    addrinfo mLastHints{};
    int mLookupFlags = 0;            // of the last getnameinfo
    unsigned mOpenLists = 0;         // of getaddrinfo that were not freed
    std::vector<std::string> mCalls; // the names of the calls in their order
};

} // namespace testsupport

#endif
