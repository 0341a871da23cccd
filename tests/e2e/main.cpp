// Runs the end-to-end cases, in a network namespace of their own if the system permits: there no
// other process uses the daemon's fixed local name and the ports.

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

#include "platform/uniquefd.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (unshare(CLONE_NEWNET) == 0) {
        struct ifreq loopback = {};
        strcpy(loopback.ifr_name, "lo");
        loopback.ifr_flags = IFF_UP;
        const kelp::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (ioctl(fd.Get(), SIOCSIFFLAGS, &loopback) < 0) {
            perror("loopback interface");
            return 1;
        }
    }
    return RUN_ALL_TESTS();
}
