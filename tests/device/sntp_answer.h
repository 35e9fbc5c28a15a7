// Answers of a time server, for tests to send or to damage.

#ifndef TARNVALE_KIOSKD_TESTS_DEVICE_SNTP_ANSWER_H_
#define TARNVALE_KIOSKD_TESTS_DEVICE_SNTP_ANSWER_H_

#include <cstdint>
#include <string>

#include "device/sntp.h"

namespace Tarnvale::KioskService {

// Seconds since 1900 and a binary fraction of a second.
struct SntpStamp {
  std::uint32_t seconds;
  std::uint32_t fraction = 0;
};

inline void PutBigEndian(std::string& packet, std::size_t at, std::uint32_t value) {
  for (std::size_t byte = 0; byte < 4; ++byte)
    packet[at + byte] = static_cast<char>(value >> (24 - 8 * byte));
}

// Version 4, server, stratum 2.
inline std::string MakeSntpAnswer(const SntpStamp& receive, const SntpStamp& transmit) {
  std::string packet(kSntpPacketBytes, '\0');
  packet[0] = 0x24;
  packet[1] = 2;
  PutBigEndian(packet, 32, receive.seconds);
  PutBigEndian(packet, 36, receive.fraction);
  PutBigEndian(packet, 40, transmit.seconds);
  PutBigEndian(packet, 44, transmit.fraction);
  return packet;
}

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_DEVICE_SNTP_ANSWER_H_
