#include "device/sntp.h"

#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

// Leap indicator 0, version 3, mode 3.
constexpr char kClientHead = 0x1B;
constexpr unsigned kModeBits = 7;
constexpr unsigned kServerMode = 4;

constexpr std::size_t kStratumAt = 1;
constexpr std::size_t kReceiveStampAt = 32;
constexpr std::size_t kTransmitStampAt = 40;

// NTP counts from 1900, Unix from 1970.
constexpr std::int64_t kNtpToUnixMs = 2'208'988'800 * kSecondMs;

std::uint32_t ReadBigEndian(std::string_view packet, std::size_t at) {
  std::uint32_t value = 0;
  for (const char byte : packet.substr(at, 4))
    value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

// Seconds and a binary fraction of a second, as milliseconds since 1900.
std::int64_t ReadStampMs(std::string_view packet, std::size_t at) {
  const std::int64_t seconds = ReadBigEndian(packet, at);
  const std::int64_t fraction = ReadBigEndian(packet, at + 4);
  return seconds * kSecondMs + ((fraction * kSecondMs) >> 32);
}

}  // namespace

std::string SntpRequest() {
  std::string request(kSntpPacketBytes, '\0');
  request[0] = kClientHead;
  return request;
}

bool ReadSntpAnswer(std::string_view packet, std::int64_t sentAtMs, std::int64_t receivedAtMs,
                    std::int64_t& offsetMs) {
  if (packet.size() != kSntpPacketBytes) return false;
  if ((static_cast<unsigned char>(packet[0]) & kModeBits) != kServerMode) return false;
  if (packet[kStratumAt] == 0) return false;
  const std::int64_t outwardMs = ReadStampMs(packet, kReceiveStampAt) - (sentAtMs + kNtpToUnixMs);
  const std::int64_t homewardMs =
      ReadStampMs(packet, kTransmitStampAt) - (receivedAtMs + kNtpToUnixMs);
  offsetMs = (outwardMs + homewardMs) / 2;
  return true;
}

}  // namespace Tarnvale::KioskService
