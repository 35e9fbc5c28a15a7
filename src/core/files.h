// Reading and writing the service's own files with care: bounded, no link followed, never half
// written.

#ifndef TARNVALE_KIOSKD_CORE_FILES_H_
#define TARNVALE_KIOSKD_CORE_FILES_H_

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace Tarnvale::KioskService {

// Replaces `path` with a regular file of these bytes and this mode, whatever the umask says: writes
// `path`.tmp, syncs it and renames it, so that a crash at any moment leaves the old file or the new
// one. A leftover ".tmp" is removed first; a link at `path` is replaced, not followed. On failure
// logs it, removes the temporary file, leaves the old file alone and answers false.
[[nodiscard]] bool WriteFileAtomic(const std::string& path, std::string_view bytes, mode_t mode);

// Reads a regular file of at most `maxBytes`, not through a link. Silent. Answers false, with `out`
// untouched, when the file cannot be opened, and with `out` emptied when it is no regular file or
// too large; a short read answers false as well. An empty file is read well.
[[nodiscard]] bool ReadFileLimited(const std::string& path, std::size_t maxBytes, std::string& out);

// The whole text of a file of the system's own (/proc, /sys, /etc), of any size. Empty when it
// cannot be opened, short when it cannot be read: a missing file and an empty one are alike to all
// who ask here.
[[nodiscard]] std::string ReadWholeFile(const std::string& path);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_FILES_H_
