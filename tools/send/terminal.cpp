#include "send/terminal.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "common/text.h"

namespace kelp::tools {

namespace {

// Noise must not switch the terminal into another mode: only layout is passed on to it.
std::string WithoutControls(std::string_view bytes) {
    std::string shown;
    for (const char c : bytes) {
        const bool isControl = static_cast<unsigned char>(c) < ' ' || c == 0x7f;
        const bool isLayout = c == '\r' || c == '\n' || c == '\t';
        shown += isControl && !isLayout ? Printable({&c, 1}) : std::string(1, c);
    }
    return shown;
}

}  // namespace

Terminal::Terminal(Target target, StationSettings settings)
    : mTarget(std::move(target)),
      mSettings(std::move(settings)),
      mForEyes(isatty(STDOUT_FILENO) == 1) {}

bool Terminal::Run(std::string& error) {
    mFd = OpenTarget(mTarget, mSettings.timeoutMs, error);
    if (!mFd.Ok()) {
        return false;
    }
    error = "the connection ended";
    for (;;) {
        // Nothing more is read from the keyboard before the other side has taken what was typed.
        struct pollfd polled[2] = {
            {mFd.Get(), static_cast<short>(POLLIN | (mUnsent.empty() ? 0 : POLLOUT)), 0},
            {mUnsent.empty() ? STDIN_FILENO : -1, POLLIN, 0},
        };
        const int ready = poll(polled, 2, mInLine ? mSettings.quietMs : -1);
        if (ready == 0) {
            Show("\n");  // so that what is typed next begins a line
        }
        if (ready <= 0) {
            continue;
        }
        if ((polled[0].revents != 0 && !TakeReceived()) || !Write()) {
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
    const std::string shown = mForEyes ? WithoutControls(bytes) : std::string(bytes);
    fwrite(shown.data(), 1, shown.size(), stdout);
    fflush(stdout);
    mInLine = mForEyes && bytes.back() != '\n';
}

}  // namespace kelp::tools
