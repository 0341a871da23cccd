// Regular files that are read and replaced as a whole.
#pragma once

#include <cstddef>
#include <string>

namespace kelp {

// Reads the file at `path`. False, with errno set and `content` empty, when it cannot be opened or
// read, is no regular file (EISDIR for a directory, else EINVAL) or is longer than `maxBytes`
// (EFBIG). Blocks on disk I/O only: a FIFO or a device at `path` is refused, not waited for.
bool ReadWholeFile(const std::string& path, size_t maxBytes, std::string& content);

// Replaces the content of the existing regular file at `path`; a symbolic link stays one.
//
// A new file with the same owner and mode is synced and then renamed over the old one, so that no
// reader and no power cut meets half a file. Only where that is impossible (a directory that the
// caller may not write to, an owner it may not set, a mount point) the old one is rewritten in
// place, and a power cut may leave it incomplete.
//
// False, with errno set and the old content untouched, when the old file cannot be opened for
// writing or there is no space for the new bytes; an I/O error during a rewrite in place leaves
// mixed content. The temporary file (.kelp-*) stays behind only when the process is killed. Of two
// replacements at once one content remains, unless both rewrite in place: callers serialise their
// own threads. Blocks on disk I/O.
bool ReplaceWholeFile(const std::string& path, const std::string& content);

}  // namespace kelp
