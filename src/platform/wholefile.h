// Regular files that are read and replaced as a whole.
#pragma once

#include <cstddef>
#include <string>

namespace kelp {

// Reads the file at `path`. False, with errno set and `content` empty, when it cannot be opened or
// read, is no regular file (EISDIR for a directory, else EINVAL) or is longer than `maxBytes`
// (EFBIG). Blocks for the disk only: a FIFO or a device at `path` is refused, not waited for.
bool ReadWholeFile(const std::string& path, size_t maxBytes, std::string& content);

// Replaces the content of the existing regular file at `path`; a symbolic link stays one.
//
// A new file of the same owner and mode takes the old one's place in one step once its bytes are on
// the disk, so that neither a reader nor a power cut meets half a file. Only where no such file can
// be made (a directory that the caller may not write to, an owner it may not give, a mount point)
// the old one is rewritten in place, which a power cut may cut short.
//
// False, with errno set and the old content untouched, when the old file cannot be opened for
// writing or the new bytes find no room; a device that fails in the middle of a rewrite in place
// leaves it mixed. Only a process that is killed in the middle leaves its temporary file (.kelp-*)
// behind. Two threads or processes that replace at once leave one of the two contents, unless both
// rewrite in place: callers keep their own threads apart. Blocks for the disk.
bool ReplaceWholeFile(const std::string& path, const std::string& content);

}  // namespace kelp
