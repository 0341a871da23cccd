// Runs the end-to-end cases, in a network namespace of their own if the system permits: there no
// other process uses the daemon's fixed local name and the ports. Otherwise they take turns.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <iostream>

#include "platform/localserver.h"
#include "platform/uniquefd.h"

namespace {

bool EnterOwnNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return false;
    }
    struct ifreq loopback = {{"lo"}, {}};
    loopback.ifr_flags = IFF_UP;
    const kelp::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return ioctl(fd.Get(), SIOCSIFFLAGS, &loopback) == 0;
}

// A child tries first: some systems permit the namespaces and then refuse every right in them.
bool MayEnterOwnNetwork() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(EnterOwnNetwork() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const kelp::UniqueFd turn(open("/tmp", O_RDONLY | O_CLOEXEC));  // as scripts/own-network
    if (!(MayEnterOwnNetwork() && EnterOwnNetwork())) {
        flock(turn.Get(), LOCK_EX);
        if (!GTEST_FLAG_GET(list_tests) &&
            !kelp::UniqueFd(kelp::ListenLocalAbstract("/dev/socket/kelp")).Ok()) {
            std::cerr << "The name @/dev/socket/kelp is in use; end that daemon\n";
            return 1;
        }
    }
    return RUN_ALL_TESTS();
}
