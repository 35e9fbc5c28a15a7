#include "device/sntp.h"

#include <gtest/gtest.h>

#include <random>

#include "device/sntp_answer.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kUntouched = -77;
// 2027-01-15T08:00:00Z, and the same on NTP's scale.
constexpr std::int64_t kLocalMs = 1'800'000'000'000;
constexpr std::uint32_t kLocalNtpSeconds = 1'800'000'000U + 2'208'988'800U;

std::string MakeGoodAnswer() {
  return MakeSntpAnswer({kLocalNtpSeconds + 5}, {kLocalNtpSeconds + 5});
}

std::int64_t ReadOffset(const std::string& packet, std::int64_t sentAtMs = kLocalMs,
                        std::int64_t receivedAtMs = kLocalMs) {
  std::int64_t offsetMs = kUntouched;
  EXPECT_TRUE(ReadSntpAnswer(packet, sentAtMs, receivedAtMs, offsetMs));
  return offsetMs;
}

void ExpectRefused(const std::string& packet) {
  std::int64_t offsetMs = kUntouched;
  EXPECT_FALSE(ReadSntpAnswer(packet, kLocalMs, kLocalMs, offsetMs));
  EXPECT_EQ(offsetMs, kUntouched);
}

TEST(SntpRequestTest, IsAllZeroButForItsHead) {
  const std::string request = SntpRequest();

  ASSERT_EQ(request.size(), 48U);
  EXPECT_EQ(request[0], 0x1B);
  EXPECT_EQ(request.substr(1), std::string(47, '\0'));
}

TEST(ReadSntpAnswerTest, ReadsAsItsHeaderShows) {
  std::string refusal = MakeGoodAnswer();
  refusal[1] = 0;

  EXPECT_EQ(ReadOffset(MakeGoodAnswer()), 5000);
  ExpectRefused(refusal);
  ExpectRefused(MakeGoodAnswer().substr(0, 47));
}

TEST(ReadSntpAnswerTest, ReadsTheStampsWhereTheyStandInThePacket) {
  // Byte for byte: the receive stamp at 32 is 2027-01-15T08:00:01.500Z, the transmit stamp at 40
  // is 2027-01-15T08:00:02.250Z.
  const std::string packet(
      "\x24\x01\x03\xEC\x00\x00\x00\x10\x00\x00\x00\x20GPS\x00"
      "\xED\x12\x70\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
      "\xEE\xF4\x50\x81\x80\x00\x00\x00\xEE\xF4\x50\x82\x40\x00\x00\x00",
      48);

  EXPECT_EQ(ReadOffset(packet), (1500 + 2250) / 2);
}

TEST(ReadSntpAnswerTest, TakesTheMeanOfBothWays) {
  // The request took 1 s and the answer 3 s on a clock that is right: the way's own asymmetry.
  const std::string packet = MakeSntpAnswer({kLocalNtpSeconds + 1}, {kLocalNtpSeconds + 1});

  EXPECT_EQ(ReadOffset(packet, kLocalMs, kLocalMs + 4000), (1000 - 3000) / 2);
}

TEST(ReadSntpAnswerTest, IsNegativeForAClockThatIsAhead) {
  EXPECT_EQ(ReadOffset(MakeSntpAnswer({kLocalNtpSeconds - 5}, {kLocalNtpSeconds - 5})), -5000);
}

TEST(ReadSntpAnswerTest, TruncatesTowardZero) {
  const std::string packet = MakeSntpAnswer({kLocalNtpSeconds}, {kLocalNtpSeconds});

  EXPECT_EQ(ReadOffset(packet, kLocalMs - 1, kLocalMs), 0);
  EXPECT_EQ(ReadOffset(packet, kLocalMs + 1, kLocalMs), 0);
  EXPECT_EQ(ReadOffset(packet, kLocalMs + 1, kLocalMs + 2), -1);
  EXPECT_EQ(ReadOffset(packet, kLocalMs - 1, kLocalMs - 2), 1);
}

struct FractionRow {
  std::uint32_t fraction;
  std::int64_t milliseconds;
};

TEST(ReadSntpAnswerTest, CutsTheFractionToMilliseconds) {
  const FractionRow rows[] = {
      {0, 0},
      {1, 0},
      {4'294'967, 0},
      {4'294'968, 1},
      {0x8000'0000, 500},
      {0x7FFF'FFFF, 499},
      {0xFFFF'FFFF, 999},
  };
  for (const FractionRow& row : rows) {
    const SntpStamp stamp = {kLocalNtpSeconds, row.fraction};
    EXPECT_EQ(ReadOffset(MakeSntpAnswer(stamp, stamp)), row.milliseconds) << row.fraction;
  }
}

TEST(ReadSntpAnswerTest, CountsTheSecondsUpToTheEndOfTheirEra) {
  const SntpStamp first = {0};
  const SntpStamp last = {0xFFFF'FFFF, 0xFFFF'FFFF};

  EXPECT_EQ(ReadOffset(MakeSntpAnswer(first, first), 0, 0), -2'208'988'800'000);
  EXPECT_EQ(ReadOffset(MakeSntpAnswer(last, last), 0, 0), 2'085'978'495'999);
}

TEST(ReadSntpAnswerTest, TakesAServersModeAlone) {
  for (int head = 0; head < 256; ++head) {
    std::string packet = MakeGoodAnswer();
    packet[0] = static_cast<char>(head);
    if ((head & 7) == 4) {
      EXPECT_EQ(ReadOffset(packet), 5000) << head;
    } else {
      ExpectRefused(packet);
    }
  }
}

TEST(ReadSntpAnswerTest, TakesEveryStratumButZero) {
  for (int stratum = 1; stratum < 256; ++stratum) {
    std::string packet = MakeGoodAnswer();
    packet[1] = static_cast<char>(stratum);
    EXPECT_EQ(ReadOffset(packet), 5000) << stratum;
  }
}

TEST(ReadSntpAnswerTest, LooksAtNothingElse) {
  std::string packet(kSntpPacketBytes, '\xFF');
  packet[0] = '\xE4';  // a clock that says of itself that it is not synchronised
  packet.replace(32, 16, MakeGoodAnswer(), 32, 16);

  EXPECT_EQ(ReadOffset(packet), 5000);
}

TEST(ReadSntpAnswerTest, RefusesEveryOtherLength) {
  for (std::size_t length = 0; length < 100; ++length) {
    std::string packet = MakeGoodAnswer();
    packet.resize(length, '\0');
    if (length != kSntpPacketBytes) ExpectRefused(packet);
  }
}

TEST(ReadSntpAnswerTest, TakesAnyBytes) {
  std::mt19937 numbers(2026);
  for (int count = 0; count < 20'000; ++count) {
    std::string packet(numbers() % 60, '\0');
    for (char& byte : packet)
      byte = static_cast<char>(numbers() % 256);
    if (count % 2 == 0) packet.resize(kSntpPacketBytes);
    std::int64_t offsetMs = kUntouched;
    if (!ReadSntpAnswer(packet, kLocalMs, kLocalMs + 10, offsetMs)) {
      EXPECT_EQ(offsetMs, kUntouched);
    }
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService
