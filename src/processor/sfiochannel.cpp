#include "processor/sfiochannel.h"

#include <fcntl.h>
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
        return -1;
    }
    KLOG(kLogInfo) << "Opened. FD is " << fd;
    return fd;
}

int SFIOChannel::Close() {
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
    return 0;
}

}  // namespace kelp
