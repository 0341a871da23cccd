#include "send/terminal.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "common/text.h"
#include "platform/clock.h"

namespace kelp::tools {

namespace {

// Noise must not switch the terminal's mode: only printable ASCII and layout characters pass.
std::string WithoutControls(std::string_view bytes) {
    std::string shown;
    for (const char c : bytes) {
        const bool isLayout = c == '\r' || c == '\n' || c == '\t';
        const bool passes = isLayout || (c >= ' ' && c < 0x7f);
        shown += passes ? std::string(1, c) : Printable({&c, 1});
    }
    return shown;
}

}  // namespace

Terminal::Terminal(Target target, StationSettings settings)
    : mTarget(std::move(target)),
      mSettings(std::move(settings)),
      mToTerminal(isatty(STDOUT_FILENO) == 1) {}

bool Terminal::Run(std::string& error) {
    mFd = OpenTarget(mTarget, mSettings.timeoutMs, error);
    if (!mFd.Ok()) {
        return false;
    }
    const int64_t startMs = MonotonicMs();
    error = "the connection ended";
    for (;;) {
        // Read no more from the keyboard until the typed bytes have been written.
        struct pollfd polled[2] = {
            {mFd.Get(), static_cast<short>(POLLIN | (mUnsent.empty() ? 0 : POLLOUT)), 0},
            {mUnsent.empty() ? STDIN_FILENO : -1, POLLIN, 0},
        };
        const int ready = poll(polled, 2, mInLine ? mSettings.quietMs : -1);
        if (ready == 0) {
            Show("\n");  // so that typed text begins a new line
        }
        if (ready <= 0) {
            continue;
        }
        if ((polled[0].revents != 0 && !TakeReceived()) || !Write()) {
            const bool atOnce = !mHeard && MonotonicMs() - startMs < kAtOnceMs;
            error += atOnce && isatty(mFd.Get()) == 0 ? kMayBeFull : "";
            return false;
        }
        if (polled[1].revents != 0 && !TakeTyped()) {
            return true;
        }
    }
}

bool Terminal::TakeReceived() {
    char buffer[4096];
    const ssize_t n = read(mFd.Get(), buffer, sizeof(buffer));
    if (n > 0) {
        mHeard = true;
        Show({buffer, static_cast<size_t>(n)});
    }
    return n > 0 || (n < 0 && (errno == EAGAIN || errno == EINTR));
}

bool Terminal::TakeTyped() {
    char buffer[4096];
    const ssize_t n = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (n <= 0) {
        return n < 0 && errno == EINTR;
    }
    mInLine = false;
    mTyped.append(buffer, static_cast<size_t>(n));
    for (size_t end; (end = mTyped.find('\n')) != mTyped.npos; mTyped.erase(0, end + 1)) {
        mUnsent += mTyped.substr(0, end) + mSettings.terminator;
    }
    return true;
}

bool Terminal::Write() {
    const ssize_t n = mUnsent.empty() ? 0 : write(mFd.Get(), mUnsent.data(), mUnsent.size());
    mUnsent.erase(0, n > 0 ? static_cast<size_t>(n) : 0);
    return n >= 0 || errno == EAGAIN || errno == EINTR;
}

void Terminal::Show(std::string_view bytes) {
    const std::string shown = mToTerminal ? WithoutControls(bytes) : std::string(bytes);
    fwrite(shown.data(), 1, shown.size(), stdout);
    fflush(stdout);
    mInLine = mToTerminal && bytes.back() != '\n';
}

}  // namespace kelp::tools
