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
// A new file with the same owner and mode is synced and then renamed over the old one, so that
// neither a reader nor a power failure sees a partial file. Only where that is impossible (a
// directory that the caller may not write to, an owner it may not set, a mount point) the old one
// is rewritten in place, and a power failure may leave it incomplete.
//
// False, with errno set and the old content untouched, when the old file cannot be opened for
// writing or there is no space for the new bytes; an I/O error during a rewrite in place leaves
// mixed content. The temporary file (.kelp-*) remains only when the process is killed or the power
// fails. Of two concurrent replacements the content of one remains, unless both rewrite in place:
// callers must serialise their threads. Blocks on disk I/O.
bool ReplaceWholeFile(const std::string& path, const std::string& content);

}  // namespace kelp
