// fd_set operations that check their descriptor in every build type. A descriptor below 0 or not
// below FD_SETSIZE would be written outside the set: the process aborts instead, after a severity-4
// record with the descriptor, and its supervisor restarts it.
#pragma once

#include <sys/select.h>

namespace kelp {

// True when the functions below accept `fd`.
inline bool FdFitsSet(int fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

// Aborts unless it does; `operation` is the function that the record names.
void FdMustFitSet(int fd, const char* operation);

inline void FdSetInsert(int fd, fd_set& set) {
    FdMustFitSet(fd, __func__);
    FD_SET(fd, &set);
}

inline void FdSetRemove(int fd, fd_set& set) {
    FdMustFitSet(fd, __func__);
    FD_CLR(fd, &set);
}

inline bool FdSetContains(int fd, const fd_set& set) {
    FdMustFitSet(fd, __func__);
    return FD_ISSET(fd, &set);
}

}  // namespace kelp
