#include "processor/consoleattribute.h"

#include <errno.h>

#include <cstring>

#include "platform/log.h"
#include "processor/sfiochannel.h"

namespace kelp {

ConsoleAttribute::ConsoleAttribute(SFIOChannel* channel, RecModeE mode, unsigned long value)
    : mChannel(channel),
      mReceive{{static_cast<unsigned>(value), mode}, {static_cast<unsigned>(value), mode}} {
    (void)mInSpeed;
    (void)mOutSpeed;
    (void)mReceive;
}

int ConsoleAttribute::LoadConfig(struct termios* out) {
    if (mChannel->fd < 0) {
        KLOG(kLogError) << "fd is invaild";
        return -1;
    }
    memset(out, 0, sizeof(*out));
    if (tcgetattr(mChannel->fd, out) != 0) {
        KLOG(kLogError) << "Fail to get attributes, error = " << errno;
        return -2;
    }
    return 0;
}

void ConsoleAttribute::OnConfig() {
    struct termios settings = {};
    unsigned inSpeed = B115200;
    unsigned outSpeed = B115200;
    if (LoadConfig(&settings) != 0) {
        KLOG(kLogError) << "Load default config failure";
        return;
    }
    if (mConfigHook != nullptr) {
        mConfigHook(&settings, &inSpeed, &outSpeed);
    } else {
        settings.c_iflag &= ~static_cast<tcflag_t>(INLCR | IGNCR | ICRNL | IXON | IXOFF);
        settings.c_oflag &= ~static_cast<tcflag_t>(ONLCR | OCRNL);
        settings.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO);
    }
    OnConfig(&settings, inSpeed, outSpeed);
}

void ConsoleAttribute::OnConfig(const struct termios* settings, unsigned int inSpeed,
                                unsigned int outSpeed) {
    struct termios raw;
    if (LoadConfig(&raw) != 0) {
        KLOG(kLogError) << "Load config failure";
        return;
    }
    cfmakeraw(&raw);
    // The caller's flags win; c_cflag and c_cc stay raw.
    raw.c_iflag = settings->c_iflag;
    raw.c_oflag = settings->c_oflag;
    raw.c_lflag = settings->c_lflag;
    cfsetospeed(&raw, outSpeed);
    cfsetispeed(&raw, inSpeed);
    if (tcsetattr(mChannel->fd, TCSANOW, &raw) != 0) {
        KLOG(kLogError) << "Fail to set attributes, error = " << errno;
    }
}

}  // namespace kelp
