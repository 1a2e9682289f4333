// The lines about a receiver that the stream does not get to.

#include "explanations/NetworkFailures.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>

namespace flowlane {
namespace {

TEST(NetworkFailuresTest, HostThatIsNotKnown) {
    EXPECT_EQ(
        WordsForUnknownHost("nosuch.invalid", EAI_NONAME),
        "The host 'nosuch.invalid' is not known (Name or service not known). Check the name, or give the "
        "host's IP address.");
    EXPECT_EQ(WordsForUnknownHost("nosuch", EAI_AGAIN),
              "The name server gives no answer for the host 'nosuch' (Temporary failure in name resolution). "
              "Try again, or give the host's IP address.");
    EXPECT_EQ(WordsForUnknownHost("", EAI_NONAME).rfind("The host '' is not known", 0), 0u);
    EXPECT_EQ(WordsForUnknownHost("a:b", EAI_NONAME).rfind("The host 'a:b' is not known", 0), 0u);
    EXPECT_EQ(WordsForUnknownHost("a:123456", EAI_NONAME).rfind("The host 'a:123456' is not known", 0), 0u);
    EXPECT_EQ(WordsForUnknownHost("2001:db8::zz", EAI_NONAME).rfind("The host '2001:db8::zz' is not", 0), 0u);
    EXPECT_EQ(WordsForUnknownHost(":5004", EAI_NONAME).rfind("The host ':5004' is not known", 0), 0u);
    EXPECT_EQ(WordsForUnknownHost("[", EAI_NONAME).rfind("The host '[' is not known", 0), 0u);
    EXPECT_EQ(WordsForUnknownHost("[]", EAI_NONAME).rfind("The host '[]' is not known", 0), 0u);
}

TEST(NetworkFailuresTest, HostWithPort) {
    EXPECT_EQ(WordsForUnknownHost("127.0.0.1:5004", EAI_NONAME),
              "The host stands alone, the port behind -p: flowlane av2rtp 127.0.0.1 -p 5004");
    EXPECT_EQ(WordsForUnknownHost("[::1]:5004", EAI_NONAME),
              "The host stands alone, the port behind -p: flowlane av2rtp ::1 -p 5004");
    EXPECT_EQ(WordsForUnknownHost("[::1]", EAI_NONAME), "The host stands alone: flowlane av2rtp ::1");
    EXPECT_EQ(WordsForUnknownHost("rtp://127.0.0.1:5004", EAI_NONAME),
              "The host stands alone, the port behind -p: flowlane av2rtp 127.0.0.1 -p 5004");
    EXPECT_EQ(WordsForUnknownHost("udp://@239.1.2.3:1234/path", EAI_NONAME),
              "The host stands alone, the port behind -p: flowlane av2rtp 239.1.2.3 -p 1234");
    EXPECT_EQ(WordsForUnknownHost("http://media", EAI_NONAME),
              "The host stands alone: flowlane av2rtp media");
}

TEST(NetworkFailuresTest, HostThatCannotBeReached) {
    EXPECT_EQ(WordsForUnreachableHost("198.51.100.1", KEStatusFromErrno(ENETUNREACH)),
              "Sending to 198.51.100.1 is not possible: Network is unreachable. There is no route to it; the "
              "routes are listed by: ip route");
    EXPECT_EQ(
        WordsForUnreachableHost("255.255.255.255", KEStatusFromErrno(EACCES)),
        "Sending to 255.255.255.255 is not possible: Permission denied. Is it a broadcast address? av2rtp "
        "sends to one host or to a multicast group.");
    EXPECT_EQ(WordsForUnreachableHost("192.0.2.1", KEStatusFromErrno(EMFILE)),
              "Sending to 192.0.2.1 is not possible: Too many open files.");
    EXPECT_EQ(WordsForUnreachableHost("", KESTATUS_INVALID_ADDRESS).rfind("Sending to the host is not", 0),
              0u);
}

TEST(NetworkFailuresTest, AddressesHaveTheirUsualForm) {
    EXPECT_EQ(AddressWithPort("192.0.2.1", 5004), "192.0.2.1:5004");
    EXPECT_EQ(AddressWithPort("2001:db8::1", 65535), "[2001:db8::1]:65535");
}

TEST(NetworkFailuresTest, AttemptsAreToldApart) {
    RtpUdpSink::Statistics stats;
    stats.errSendFailed = 101;
    stats.lastSendFailure = KEStatusFromErrno(ECONNREFUSED);
    EXPECT_EQ(WordsForSendFailures("127.0.0.1:5004", stats),
              "UDP packets that could not be sent to 127.0.0.1:5004: 101 tried again, 0 given up (Connection "
              "refused: nobody listens there)");
    stats.errUdpPacketsDropped = 40;
    stats.lastSendFailure = KEStatusFromErrno(ENETUNREACH);
    EXPECT_EQ(WordsForSendFailures("[::1]:1", stats),
              "UDP packets that could not be sent to [::1]:1: 61 tried again, 40 given up (Network is "
              "unreachable: there is no route)");
    stats.errUdpPacketsDropped = 102;
    stats.lastSendFailure = KESTATUS_TIMEOUT;
    EXPECT_EQ(
        WordsForSendFailures("a:1", stats),
        "UDP packets that could not be sent to a:1: 0 tried again, 102 given up (the network takes them "
        "too slowly)");
}

} // namespace
} // namespace flowlane
