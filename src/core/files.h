// Reading and writing the service's own files with care: bounded, no link followed, never half
// written.
//
// Two writers, by what a crash may cost. WriteFileAtomic is for files that matter after a power cut
// (the state document, the branding cache, the presence report) and waits for the disk.
// WriteIfChanged is for small files that other programs read (below /etc) and that are written
// again at the next occasion; it does not wait, and tells whether anything has changed. Two
// readers, by whom the file belongs to: the service's own are read with a limit, the system's as
// they are. Any thread; no lock here, so who writes one file from two threads brings one.

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

// Whether there is something at the path. Follows links, so one that leads nowhere is nothing.
[[nodiscard]] bool PathExists(const std::string& path);

// Writes a small system file, mode 0644, unless it holds this very text already. True when the file
// changed: whatever must follow a change hangs on this. A failure is logged, counts as no change,
// and leaves the old file. Writes `path`.tmp and renames it; there is no fsync, for what is written
// here is written again at the next occasion. A link at `path` is looked through, and replaced by a
// file when the texts differ; one at `path`.tmp is a failure. A temporary file that could not be
// written whole stays, for the next attempt to overwrite. The caller makes sure that nobody writes
// the same file meanwhile, where that matters.
[[nodiscard]] bool WriteIfChanged(const std::string& path, const std::string& text);

// The whole text of a file of the system's own (/proc, /sys, /etc), of any size. Empty when it
// cannot be opened, short when it cannot be read: a missing file and an empty one are alike to all
// who ask here.
[[nodiscard]] std::string ReadWholeFile(const std::string& path);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_FILES_H_
