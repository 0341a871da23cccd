#include "processor/sfiochannel.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "platform/log.h"

namespace kelp {

SFIOChannel::~SFIOChannel() {
    Close();
}

int SFIOChannel::Open(const char* path, bool blocking) {
    if (fd >= 0) {
        KLOG(kLogDebug) << "already open. FD(" << fd << ")";
        return 0;
    }
    if (path == nullptr || *path == '\0') {
        KLOG(kLogError) << "name error";
        return -1;
    }
    const int flags = blocking ? O_RDWR : O_RDWR | O_NOCTTY | O_NONBLOCK | O_SYNC;
    fd = open(path, flags | O_CLOEXEC);
    if (fd < 0) {
        KLOG(kLogError) << "open fail";
        KLOG(kLogInfo) << path << ": errno = " << errno << " (" << strerror(errno) << ")";
        return -1;
    }
    if (isatty(fd) == 1 && flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        KLOG(kLogError) << path << ": locked by another program, which may take part of the input";
    }
    KLOG(kLogInfo) << "Opened. FD is " << fd;
    return fd;
}

int SFIOChannel::Close() {
    if (fd >= 0) {
        // A duplicate of the descriptor may stay open, and would keep the lock.
        flock(fd, LOCK_UN);
        close(fd);
        fd = -1;
    }
    return 0;
}

}  // namespace kelp
