// MAC and IPv4 addresses, date and time.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "LogCapture.h"
#include "text/FormatExpect.h"
#include "values/KEDateTime.h"
#include "values/KEEthernetMacAddress.h"
#include "values/KEIpv4Address.h"

using namespace kestrelon;
using testsupport::ExpectText;
using testsupport::LogCapture;

namespace {

KEEthernetMacAddress Mac(const TNET_EthernetMacAddress& address) {
    KEEthernetMacAddress mac;
    mac.mMacAddr = address;
    return mac;
}

std::wstring Widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

TEST(EthernetMacAddressTest, IsAPlainValueOfSixBytes) {
    EXPECT_EQ(KEEthernetMacAddress::cSize, 6u);
    EXPECT_EQ(sizeof(KEEthernetMacAddress), 6u);
    const KEEthernetMacAddress mac = Mac({{1, 2, 3, 4, 5, 6}});
    const KEEthernetMacAddress copy = mac;
    EXPECT_EQ(copy.mMacAddr, mac.mMacAddr);
}

TEST(EthernetMacAddressTest, ZeroAndBroadcast) {
    EXPECT_TRUE(KEEthernetMacAddress().IsZero());
    EXPECT_FALSE(KEEthernetMacAddress().IsBroadcast());
    EXPECT_TRUE(Mac({{255, 255, 255, 255, 255, 255}}).IsBroadcast());
    EXPECT_FALSE(Mac({{255, 255, 255, 255, 255, 255}}).IsZero());
    for (std::size_t i = 0; i < 6; ++i) {
        KEEthernetMacAddress almostZero;
        almostZero.mMacAddr.mac[i] = 1;
        EXPECT_FALSE(almostZero.IsZero()) << i;
        KEEthernetMacAddress almostBroadcast = Mac({{255, 255, 255, 255, 255, 255}});
        almostBroadcast.mMacAddr.mac[i] = 254;
        EXPECT_FALSE(almostBroadcast.IsBroadcast()) << i;
    }
}

constexpr TNET_EthernetMacAddress cOld{{0x91, 0x92, 0x93, 0x94, 0x95, 0x96}};

struct MacCase {
    const char* text;
    KESTATUS status;
    TNET_EthernetMacAddress address;
};

constexpr MacCase cMacTexts[] = {
    {"0a1b2c3d4e5f", KESTATUS_SUCCESS, {{0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F}}},
    {"0A1B2C3D4E5F", KESTATUS_SUCCESS, {{0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F}}},
    {"000000000000", KESTATUS_SUCCESS, {{0, 0, 0, 0, 0, 0}}},
    {"fFfFfFfFfFfF", KESTATUS_SUCCESS, {{255, 255, 255, 255, 255, 255}}},
    {"012345678901x", KESTATUS_SUCCESS, {{0x01, 0x23, 0x45, 0x67, 0x89, 0x01}}}, // the rest is ignored
    {"abcdefabcdef: whatever", KESTATUS_SUCCESS, {{0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF}}},
    {"", KESTATUS_INVALID_LENGTH, cOld},
    {"0a1b2c3d4e5", KESTATUS_INVALID_LENGTH, cOld},
    {"zzzzzzzzzzz", KESTATUS_INVALID_LENGTH, cOld}, // the length is looked at first
    {"0a:1b:2c:3d:4e:5f", KESTATUS_INVALID_FORMAT, {{0x0A, 0x92, 0x93, 0x94, 0x95, 0x96}}},
    {"00-1b-21-0a-ff-03", KESTATUS_INVALID_FORMAT, {{0x00, 0x92, 0x93, 0x94, 0x95, 0x96}}},
    {"0x112233445566", KESTATUS_INVALID_FORMAT, cOld},
    {"0a1b2c3d4e5g", KESTATUS_INVALID_FORMAT, {{0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x96}}},
    {"0a1b2c3d4eg5", KESTATUS_INVALID_FORMAT, {{0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x96}}},
    {"/a1b2c3d4e5f", KESTATUS_INVALID_FORMAT, cOld}, // the neighbours of the digits
    {":a1b2c3d4e5f", KESTATUS_INVALID_FORMAT, cOld},
    {"@a1b2c3d4e5f", KESTATUS_INVALID_FORMAT, cOld},
    {"Ga1b2c3d4e5f", KESTATUS_INVALID_FORMAT, cOld},
    {"`a1b2c3d4e5f", KESTATUS_INVALID_FORMAT, cOld},
    {" 0a1b2c3d4e5f", KESTATUS_INVALID_FORMAT, cOld},
    {"\xff"
     "a1b2c3d4e5f",
     KESTATUS_INVALID_FORMAT, cOld},
};

std::string MessageFor(const MacCase& test) {
    if (test.status == KESTATUS_INVALID_LENGTH) {
        return "invalid string length=" + std::to_string(std::string(test.text).size());
    }
    return std::string("invalid digit in MAC address '") + test.text + "'";
}

TEST(EthernetMacAddressTest, FromNarrowText) {
    for (const MacCase& test : cMacTexts) {
        const LogCapture log;
        KEEthernetMacAddress mac = Mac(cOld);
        EXPECT_EQ(mac.InitFromString(test.text), test.status) << test.text;
        EXPECT_EQ(mac.mMacAddr, test.address) << test.text;
        EXPECT_EQ(log.Messages().size(), test.status == KESTATUS_SUCCESS ? 0u : 1u);
        EXPECT_EQ(log.Count(KEERROR, MessageFor(test)), log.Messages().size()) << test.text;
    }
}

TEST(EthernetMacAddressTest, FromWideText) {
    for (const MacCase& test : cMacTexts) {
        if (static_cast<unsigned char>(test.text[0]) >= 0x80) {
            continue; // another character when wide
        }
        const LogCapture log;
        KEEthernetMacAddress mac = Mac(cOld);
        EXPECT_EQ(mac.InitFromString(Widen(test.text).c_str()), test.status) << test.text;
        EXPECT_EQ(mac.mMacAddr, test.address) << test.text;
        EXPECT_EQ(log.Count(KEERROR, MessageFor(test)), test.status == KESTATUS_SUCCESS ? 0u : 1u)
            << test.text;
    }
    KEEthernetMacAddress mac = Mac(cOld);
    EXPECT_EQ(mac.InitFromString(L"\u01300000000000"), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(mac.InitFromString(L"\u013000000000000"), KESTATUS_INVALID_FORMAT)
        << "low byte 0x30 is no digit 0";
    EXPECT_EQ(mac.mMacAddr, cOld);
}

TEST(EthernetMacAddressTest, FromNoText) {
    const LogCapture log;
    KEEthernetMacAddress mac = Mac(cOld);
    EXPECT_EQ(mac.InitFromString(static_cast<const char*>(nullptr)), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(mac.InitFromString(static_cast<const wchar_t*>(nullptr)), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(mac.mMacAddr, cOld);
    EXPECT_EQ(log.Count(KEERROR, "invalid string length=0"), 2u);
}

TEST(EthernetMacAddressTest, Printed) {
    const KEEthernetMacAddress mac = Mac({{0x00, 0x1B, 0x21, 0x0A, 0xFF, 0x03}});
    ExpectText("00-1b-21-0a-ff-03", "{}", mac);
    ExpectText("00-1B-21-0A-FF-03", "{:X}", mac);
    ExpectText("00-1b-21-0a-ff-03", "{:x}", mac);
    ExpectText("00-1b-21-0a-ff-03", "{:#x}", mac);
    ExpectText("   00-1b-21-0a-ff-03", "{:20}", mac);
    ExpectText("00-1b-21-0a-ff-03...", "{:.<20}", mac);
    ExpectText("   00-1B-21-0A-FF-03", "{:>20X}", mac);
    ExpectText("00-00-00-00-00-00", "{}", KEEthernetMacAddress());
}

KEIpv4Address Ipv4(const TNET_IPv4Address& address) {
    KEIpv4Address ipv4;
    ipv4.mIpv4Addr = address;
    return ipv4;
}

TEST(Ipv4AddressTest, Printed) {
    EXPECT_EQ(KEIpv4Address::cSize, 4u);
    const KEIpv4Address address = Ipv4({{192, 168, 0, 10}});
    ExpectText("192.168.0.10", "{}", address);
    ExpectText("        192.168.0.10", "{:>20}", address);
    ExpectText("192.168.0.10        ", "{:<20}", address);
    ExpectText("192.168.0.10", "{:x}", address);
    ExpectText("0.0.0.0", "{}", KEIpv4Address());
    ExpectText("255.255.255.255", "{}", Ipv4({{255, 255, 255, 255}}));
    ExpectText("1.22.3.244", "{}", Ipv4({{1, 22, 3, 244}}));
}

KEDateTime DateTime(std::uint64_t year, std::uint64_t month, std::uint64_t day, std::uint64_t hours,
                    std::uint64_t minutes, std::uint64_t seconds, std::uint64_t milliseconds) {
    KEDateTime dateTime;
    dateTime.mDateTime =
        milliseconds | seconds << 10 | minutes << 16 | hours << 22 | day << 27 | month << 32 | year << 36;
    return dateTime;
}

TEST(DateTimeTest, Printed) {
    const KEDateTime dateTime = DateTime(2024, 3, 7, 9, 5, 1, 42);
    EXPECT_EQ(dateTime.mDateTime, 0x7E833A45042Aull);
    ExpectText("2024-03-07 09:05:01.042", "{}", dateTime);
    ExpectText("  2024-03-07 09:05:01.042", "{:25}", dateTime);
    ExpectText("2024-03-07 09:05:01.042__", "{:_<25}", dateTime);
    ExpectText("2024-12-31 23:59:59.999", "{}", DateTime(2024, 12, 31, 23, 59, 59, 999));
    ExpectText("0009-01-01 00:00:00.007", "{}", DateTime(9, 1, 1, 0, 0, 0, 7));
    ExpectText("0000-00-00 00:00:00.000", "{}", KEDateTime());
}

TEST(DateTimeTest, FieldsAreNotChecked) {
    KEDateTime all;
    all.mDateTime = ~std::uint64_t{0};
    ExpectText("65535-15-31 31:63:63.1023", "{}", all);
    KEDateTime unused;
    unused.mDateTime = 0xFFF0000000000000;
    ExpectText("0000-00-00 00:00:00.000", "{}", unused);
}

TEST(DateTimeTest, Fields) {
    const KEDateTime dateTime = DateTime(2024, 11, 27, 19, 45, 31, 678);
    EXPECT_EQ(dateTime.Year(), 2024u);
    EXPECT_EQ(dateTime.Month(), 11u);
    EXPECT_EQ(dateTime.Day(), 27u);
    EXPECT_EQ(dateTime.Hours(), 19u);
    EXPECT_EQ(dateTime.Minutes(), 45u);
    EXPECT_EQ(dateTime.Seconds(), 31u);
    EXPECT_EQ(dateTime.Milliseconds(), 678u);
}

} // namespace
