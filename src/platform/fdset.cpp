#include "platform/fdset.h"

#include <stdlib.h>

#include "platform/log.h"

namespace kelp {

void FdMustFitSet(int fd, const char* operation) {
    if (!FdFitsSet(fd)) {
        KLOG_AS(operation, kLogError) << "descriptor " << fd << " does not fit into an fd_set";
        abort();
    }
}

}  // namespace kelp
