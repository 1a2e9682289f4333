// Address lookups and the names of an address.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cstring>

#include "FakeNetwork.h"
#include "KEOsSocketAddressInfo.h"
#include "KEOsSocketName.h"
#include "LogExpect.h"

namespace {

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

class SocketAddressTest : public testing::Test {
protected:
    const sockaddr_in& First() const {
        return *reinterpret_cast<const sockaddr_in*>(mAddresses.AddressInfo()->ai_addr);
    }

    LogCapture mLog;
    FakeNetwork mNetwork;
    KEOsSocketAddressInfo mAddresses;
    std::string mName = "unchanged";
};

addrinfo NumericHints(int family, int socketType) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_family = family;
    hints.ai_socktype = socketType;
    return hints;
}

TEST_F(SocketAddressTest, NewObjectIsEmpty) {
    EXPECT_EQ(mAddresses.AddressInfo(), nullptr);
}

TEST_F(SocketAddressTest, LooksUpNodeAndService) {
    const addrinfo hints = NumericHints(AF_INET, SOCK_DGRAM);
    ASSERT_EQ(mAddresses.GetAddressInfo("127.0.0.1", "5004", &hints), KESTATUS_SUCCESS);
    EXPECT_EQ(First().sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(First().sin_port, htons(5004));
    EXPECT_EQ(mAddresses.AddressInfo()->ai_socktype, SOCK_DGRAM);
    EXPECT_EQ(mAddresses.AddressInfo()->ai_next, nullptr);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketAddressTest, PortIsTheDecimalService) {
    const addrinfo hints = NumericHints(AF_INET, SOCK_DGRAM);
    ASSERT_EQ(mAddresses.GetAddressInfo(nullptr, std::uint16_t{5004}, &hints), KESTATUS_SUCCESS);
    EXPECT_EQ(mNetwork.mLastService, "5004");
    EXPECT_EQ(First().sin_port, htons(5004));
    ASSERT_EQ(mAddresses.GetAddressInfo("127.0.0.1", std::uint16_t{0}, &hints), KESTATUS_SUCCESS);
    EXPECT_EQ(mNetwork.mLastService, "0");
    ASSERT_EQ(mAddresses.GetAddressInfo("127.0.0.1", std::uint16_t{65535}, &hints), KESTATUS_SUCCESS);
    EXPECT_EQ(mNetwork.mLastService, "65535");
}

TEST_F(SocketAddressTest, EachLookupFreesTheOldList) {
    {
        KEOsSocketAddressInfo addresses;
        ASSERT_EQ(addresses.GetAddressInfo("127.0.0.1", "1", nullptr), KESTATUS_SUCCESS);
        EXPECT_EQ(mNetwork.mOpenLists, 1u);
        ASSERT_EQ(addresses.GetAddressInfo("127.0.0.1", "2", nullptr), KESTATUS_SUCCESS);
        EXPECT_EQ(mNetwork.mOpenLists, 1u);
        // Even when it fails: the list is empty then.
        mNetwork.mErrors["getaddrinfo"] = {EAI_AGAIN};
        EXPECT_EQ(addresses.GetAddressInfo("127.0.0.1", "3", nullptr), KESTATUS_NO_ADDRESS);
        EXPECT_EQ(mNetwork.mOpenLists, 0u);
        EXPECT_EQ(addresses.AddressInfo(), nullptr);
        ASSERT_EQ(addresses.GetAddressInfo("127.0.0.1", "4", nullptr), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(mNetwork.mOpenLists, 0u);
}

TEST_F(SocketAddressTest, EveryFailedLookupIsNoAddress) {
    for (const int error : {EAI_NONAME, EAI_AGAIN, EAI_SYSTEM, EAI_MEMORY}) {
        mLog.Clear();
        mNetwork.mErrors["getaddrinfo"] = {error};
        EXPECT_EQ(mAddresses.GetAddressInfo("host", "1", nullptr), 0xE0000025);
        EXPECT_THAT(mLog.Messages(),
                    ElementsAre(IsMessageOf(KEERROR, "GetAddressInfo",
                                            "getaddrinfo failed, ret=" + std::to_string(error))));
    }
    EXPECT_EQ(EAI_NONAME, -2);
}

TEST_F(SocketAddressTest, WildcardAddressesAreForServers) {
    ASSERT_EQ(mAddresses.GetWildcardAddresses("5004", AF_INET, SOCK_STREAM, AI_NUMERICSERV),
              KESTATUS_SUCCESS);
    EXPECT_EQ(mNetwork.mLastHints.ai_flags, AI_NUMERICSERV | AI_PASSIVE);
    EXPECT_EQ(mNetwork.mLastHints.ai_family, AF_INET);
    EXPECT_EQ(mNetwork.mLastHints.ai_socktype, SOCK_STREAM);
    EXPECT_EQ(mNetwork.mLastHints.ai_protocol, 0);
    EXPECT_EQ(First().sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_EQ(First().sin_port, htons(5004));

    ASSERT_EQ(mAddresses.GetWildcardAddresses(std::uint16_t{6000}, AF_INET6, SOCK_DGRAM, 0),
              KESTATUS_SUCCESS);
    EXPECT_EQ(mNetwork.mLastHints.ai_flags, AI_PASSIVE);
    EXPECT_EQ(mNetwork.mLastService, "6000");
    const auto& address = *reinterpret_cast<const sockaddr_in6*>(mAddresses.AddressInfo()->ai_addr);
    EXPECT_EQ(address.sin6_family, AF_INET6);
    EXPECT_TRUE(IN6_IS_ADDR_UNSPECIFIED(&address.sin6_addr));
}

struct NameRow {
    const char* host;
    const char* expected;
};

TEST_F(SocketAddressTest, NamesOfAnAddress) {
    for (const NameRow& row :
         {NameRow{"127.0.0.1", "127.0.0.1"}, NameRow{"127.1", "127.0.0.1"},
          NameRow{"2001:DB8:0:0::1", "2001:db8::1"}, NameRow{"::ffff:1.2.3.4", "::ffff:1.2.3.4"}}) {
        const addrinfo hints = NumericHints(AF_UNSPEC, SOCK_DGRAM);
        ASSERT_EQ(mAddresses.GetAddressInfo(row.host, std::uint16_t{5004}, &hints), KESTATUS_SUCCESS);
        const addrinfo& address = *mAddresses.AddressInfo();
        EXPECT_EQ(KEOsGetSocketHostName(*address.ai_addr, address.ai_addrlen, mName, NI_NUMERICHOST),
                  KESTATUS_SUCCESS);
        EXPECT_EQ(mName, row.expected);
        EXPECT_EQ(mNetwork.mLookupFlags, NI_NUMERICHOST);
        EXPECT_EQ(
            KEOsGetSocketServiceName(*address.ai_addr, address.ai_addrlen, mName, NI_NUMERICSERV | NI_DGRAM),
            KESTATUS_SUCCESS);
        EXPECT_EQ(mName, "5004");
        EXPECT_EQ(mNetwork.mLookupFlags, NI_NUMERICSERV | NI_DGRAM);
    }
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(SocketAddressTest, FailedNameLookupLeavesTheName) {
    const addrinfo hints = NumericHints(AF_INET, SOCK_DGRAM);
    ASSERT_EQ(mAddresses.GetAddressInfo("127.0.0.1", std::uint16_t{1}, &hints), KESTATUS_SUCCESS);
    const addrinfo& address = *mAddresses.AddressInfo();
    mNetwork.mErrors["getnameinfo"] = {EAI_AGAIN, EAI_FAMILY};
    EXPECT_EQ(KEOsGetSocketHostName(*address.ai_addr, address.ai_addrlen, mName, 0), 0xE0000058);
    EXPECT_EQ(KEOsGetSocketServiceName(*address.ai_addr, address.ai_addrlen, mName, 0), 0xE0000058);
    EXPECT_EQ(mName, "unchanged");
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEOsGetSocketHostName", "getnameinfo failed, ret=-3"),
                            IsMessageOf(KEERROR, "KEOsGetSocketServiceName", "getnameinfo failed, ret=-6")));
    sockaddr unknown{};
    unknown.sa_family = 0x7FFF;
    EXPECT_EQ(KEOsGetSocketHostName(unknown, sizeof unknown, mName, 0), 0xE0000058); // the real call
}

} // namespace
