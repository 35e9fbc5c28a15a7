// The build's own name, made by the build itself (cmake/BuildStamp.cmake).

#ifndef TARNVALE_KIOSKD_CORE_BUILD_STAMP_H_
#define TARNVALE_KIOSKD_CORE_BUILD_STAMP_H_

namespace Tarnvale::KioskService {

// Year, month, day, hour and minute of the build in UTC, such as "2026-10-11-2304". It stands in
// the start line, in the user agent, and in what the portal is told as `appVersion`.
extern const char kBuildStamp[];

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_BUILD_STAMP_H_
