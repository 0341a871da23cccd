#include "support/pty.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>

namespace kelp::test {

Pty::Pty() : mMaster(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    unlockpt(mMaster.Get());
    mDevice = ptsname(mMaster.Get());
    mSlave.Reset(open(mDevice.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    struct termios settings;
    tcgetattr(mSlave.Get(), &settings);
    cfmakeraw(&settings);
    tcsetattr(mSlave.Get(), TCSANOW, &settings);
}

void Pty::Flush() {
    tcflush(mSlave.Ok() ? mSlave.Get() : mMaster.Get(), mSlave.Ok() ? TCIFLUSH : TCOFLUSH);
    char scratch[4096];
    struct pollfd ready = {mMaster.Get(), POLLIN, 0};
    while (poll(&ready, 1, 0) > 0 && read(mMaster.Get(), scratch, sizeof(scratch)) > 0) {
    }
}

}  // namespace kelp::test
