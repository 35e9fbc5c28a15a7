// The log: one formatted line to standard error for each thing that happened.
//
// There is no log object and no level filter. systemd's journal reads the priority in angle
// brackets at the head of each line: "<3>" an error that loses something, "<4>" a warning or a
// refused request, "<6>" information. Lines carry no time stamp and no program name, and are never
// localised. Secrets (passwords, unlock tokens, the device token) never reach it.

#ifndef TARNVALE_KIOSKD_CORE_LOG_H_
#define TARNVALE_KIOSKD_CORE_LOG_H_

namespace Tarnvale::KioskService {

// Writes one line, which ends with the format's own line feed, in a single write, so that the lines
// of several threads never mix. Any thread, any lock. A line that standard error refuses is lost
// silently: there is nowhere left to say so.
void Log(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_LOG_H_
