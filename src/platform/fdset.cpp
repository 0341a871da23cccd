#include "platform/fdset.h"

#include <stdlib.h>

#include "platform/log.h"

namespace kelp {

namespace {

void Check(int fd, const char* operation) {
    if (!FdFitsSet(fd)) {
        KLOG(kLogError) << operation << ": descriptor " << fd << " does not fit into an fd_set";
        abort();
    }
}

}  // namespace

void FdSetInsert(int fd, fd_set& set) {
    Check(fd, "FdSetInsert");
    FD_SET(fd, &set);
}

void FdSetRemove(int fd, fd_set& set) {
    Check(fd, "FdSetRemove");
    FD_CLR(fd, &set);
}

bool FdSetContains(int fd, const fd_set& set) {
    Check(fd, "FdSetContains");
    return FD_ISSET(fd, &set);
}

}  // namespace kelp
