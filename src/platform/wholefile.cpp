#include "platform/wholefile.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/falloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "platform/uniquefd.h"

namespace kelp {

namespace {

// Never blocks: O_NONBLOCK opens a FIFO or a device at once, and the type check refuses it before
// any read. The flag has no effect on regular files.
UniqueFd OpenRegular(const std::string& path, int access, struct stat& status) {
    UniqueFd fd(open(path.c_str(), access | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd.Ok()) {
        return fd;
    }
    if (fstat(fd.Get(), &status) != 0) {
        return UniqueFd();
    }
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return UniqueFd();
    }
    return fd;
}

bool WriteAll(int fd, const std::string& content) {
    size_t written = 0;
    while (written < content.size()) {
        const ssize_t n = write(fd, content.data() + written, content.size() - written);
        if (n > 0) {
            written += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool CopyOwnerAndMode(int fd, const struct stat& from) {
    struct stat own;
    if (fstat(fd, &own) != 0) {
        return false;
    }
    const bool sameOwner = own.st_uid == from.st_uid && own.st_gid == from.st_gid;
    // The owner first: changing it clears the set-id bits.
    return (sameOwner || fchown(fd, from.st_uid, from.st_gid) == 0) &&
           fchmod(fd, from.st_mode & 07777) == 0;
}

enum class Renaming { kDone, kFailed, kImpossible };

Renaming ReplaceByRename(const std::string& path, const struct stat& old,
                         const std::string& content) {
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr), free);
    if (resolved == nullptr) {
        return Renaming::kImpossible;
    }
    const std::string target(resolved.get());
    const std::string directory = target.substr(0, target.rfind('/') + 1);
    std::string name = directory + ".kelp-XXXXXX";  // short, whatever the length of the final one
    const UniqueFd temp(mkostemp(name.data(), O_CLOEXEC));
    if (!temp.Ok()) {
        return Renaming::kImpossible;
    }
    Renaming result = Renaming::kImpossible;
    if (CopyOwnerAndMode(temp.Get(), old)) {
        if (!WriteAll(temp.Get(), content) || fsync(temp.Get()) != 0) {
            result = Renaming::kFailed;
        } else if (rename(name.c_str(), target.c_str()) == 0) {
            result = Renaming::kDone;
        }
    }
    if (result != Renaming::kDone) {
        const int saved = errno;
        unlink(name.c_str());
        errno = saved;
        return result;
    }
    // Makes the rename durable; best effort: some filesystems cannot sync a directory.
    const UniqueFd parent(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.Ok()) {
        fsync(parent.Get());
    }
    return result;
}

bool RewriteInPlace(int fd, const std::string& content) {
    const auto length = static_cast<off_t>(content.size());
    // Reserve the space before the first old byte is overwritten; some filesystems cannot.
    if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, std::max<off_t>(length, 1)) != 0 &&
        (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) {
        return false;
    }
    return WriteAll(fd, content) && ftruncate(fd, length) == 0 && fsync(fd) == 0;
}

}  // namespace

bool ReadWholeFile(const std::string& path, size_t maxBytes, std::string& content) {
    content.clear();
    struct stat status;
    const UniqueFd fd = OpenRegular(path, O_RDONLY, status);
    if (!fd.Ok()) {
        return false;
    }
    char piece[16384];
    while (const ssize_t n = read(fd.Get(), piece, sizeof(piece))) {
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 || content.size() + static_cast<size_t>(n) > maxBytes) {
            errno = n < 0 ? errno : EFBIG;
            content.clear();
            return false;
        }
        content.append(piece, static_cast<size_t>(n));
    }
    return true;
}

bool ReplaceWholeFile(const std::string& path, const std::string& content) {
    struct stat old;
    // Opened first: a write-protected file is not replaced, even in a writable directory.
    const UniqueFd fd = OpenRegular(path, O_WRONLY, old);
    if (!fd.Ok()) {
        return false;
    }
    switch (ReplaceByRename(path, old, content)) {
        case Renaming::kDone:
            return true;
        case Renaming::kFailed:
            return false;
        default:
            return RewriteInPlace(fd.Get(), content);
    }
}

}  // namespace kelp
