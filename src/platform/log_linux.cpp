// Records as one line on standard error, in the shape of `logcat -v threadtime`.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/logbackend.h"
#include "platform/sync.h"
#include "platform/uppercase.h"

namespace kelp {

namespace {

// Longest wait of a record for a slow reader.
constexpr int kMaxWaitMs = 50;

// Android's priorities, lowest first: a severity is the rank of its letter. Below them the
// journal's.
constexpr char kPriorityLetters[] = "VDIWEFS";
constexpr char kJournalDigits[] = "7764322";

int Rank(char letter) {
    const char* found = letter != '\0' ? strchr(kPriorityLetters, UpperCase(letter)) : nullptr;
    return found != nullptr ? static_cast<int>(found - kPriorityLetters) : 0;
}

enum class Sink {
    kBlocking,  // a regular file; anything, before OpenLog
    kOwn,       // reopened, so that it can be non-blocking
    kSocket,    // non-blocking by MSG_DONTWAIT
    kShared,    // could not be reopened: polled before each write
};

// Set by the main thread before any other thread runs.
int sLowestRank = 0;
Sink sSink = Sink::kBlocking;
int sFd = STDERR_FILENO;
bool sTty = false;
bool sTakesParts = false;  // partial writes happen: a tty, a stream socket
bool sJournal = false;     // standard error goes to systemd's journal

// Records dropped since the last successful write. While it is not 0, no record waits.
std::atomic<size_t> sLost{0};
// The last record was written in part: the next one begins with a line end.
std::atomic<bool> sCut{false};
// On sinks with partial writes, keeps the parts of a record together. Other sinks take a record
// whole or not at all and need no lock. The innermost lock: threads log while they hold others.
Mutex sPartsMutex;

// Prefix of the records of one thread and tag, cached for one second:
// "MM-DD HH:MM:SS.mmm PID TID P TAG     : ". Only milliseconds and priority differ between them.
struct Head {
    static constexpr size_t kMilliseconds = 15;  // their offset in text

    void Refresh(time_t now, const char* newTag) {
        struct tm local;
        localtime_r(&now, &local);
        char date[24] = {};
        strftime(date, sizeof(date), "%m-%d %H:%M:%S", &local);
        priority = static_cast<size_t>(
            snprintf(text, sizeof(text), "%s.000 %5d %5ld ", date, getpid(), syscall(SYS_gettid)));
        const int rest = snprintf(text + priority, sizeof(text) - priority, "D %-8s: ", newTag);
        length = std::min(priority + static_cast<size_t>(rest), sizeof(text) - 1);
        second = now;
        tag = newTag;
    }

    time_t second = -1;
    const char* tag = nullptr;
    size_t priority = 0;  // offset of its letter in text
    size_t length = 0;
    char text[128];
};

bool WaitForRoom(int timeoutMs) {
    struct pollfd room = {sFd, POLLOUT, 0};
    return poll(&room, 1, timeoutMs) > 0;
}

ssize_t WriteSome(const char* text, size_t size) {
    if (sSink == Sink::kSocket) {
        return send(sFd, text, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    if (sSink == Sink::kShared) {
        if (!WaitForRoom(0)) {
            errno = EAGAIN;
            return -1;
        }
        // A blocking tty would block on more bytes than it has room for.
        size = sTty ? 1 : size;
    }
    return write(sFd, text, size);
}

bool EndCutRecord() {
    if (sCut.exchange(false) && WriteSome("\n", 1) != 1) {
        sCut = true;
    }
    return !sCut;
}

// False when the record, or the rest of it, was dropped.
bool WriteRecord(const char* text, size_t size) {
    if (sCut.load(std::memory_order_relaxed) && !EndCutRecord()) {
        return false;
    }
    size_t done = 0;
    int64_t deadlineMs = 0;
    for (;;) {
        const ssize_t n = WriteSome(text + done, size - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            if (done == size) {
                return true;
            }
        } else if (n < 0 && errno == EAGAIN && (done > 0 || sLost == 0)) {
            const int64_t now = MonotonicMs();
            deadlineMs = deadlineMs == 0 ? now + kMaxWaitMs : deadlineMs;
            if (now >= deadlineMs) {
                break;
            }
            // Retry after a time-out, too: a tty has room long before poll reports it.
            WaitForRoom(static_cast<int>(deadlineMs - now));
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    if (done > 0) {
        sCut = true;
    }
    return false;
}

void ReportLost() {
    const size_t lost = sLost.exchange(0);
    if (lost == 0) {
        return;  // another thread reports it
    }
    char text[256];
    size_t length = log_backend::Prefix(text, sizeof(text), kLogError, kLogTag, "Log");
    length +=
        static_cast<size_t>(snprintf(text + length, sizeof(text) - length,
                                     "%zu record(s) dropped: standard error was full\n", lost));
    if (!WriteRecord(text, length)) {
        sLost += lost;
    }
}

void EmitLine(const char* text, size_t size) {
    if (!WriteRecord(text, size)) {
        ++sLost;
    } else if (sLost.load(std::memory_order_relaxed) != 0) {
        ReportLost();
    }
}

}  // namespace

// Sets the lowest rank that passes, from a list like "KELP:E *:S": the entry of our tag wins over
// "*", a later entry over an earlier one, and an entry without a priority lets everything through.
void SetLogFilter(const char* list) {
    int own = -1;
    int all = -1;
    const char* p = list != nullptr ? list : "";
    while (*p != '\0') {
        p += strspn(p, " \t,");
        const size_t length = strcspn(p, " \t,");
        const char* colon = static_cast<const char*>(memchr(p, ':', length));
        const size_t name = colon != nullptr ? static_cast<size_t>(colon - p) : length;
        const int rank = colon != nullptr && name + 1 < length ? Rank(colon[1]) : 0;
        if (name == strlen(kLogTag) && strncmp(p, kLogTag, name) == 0) {
            own = rank;
        } else if (name == 1 && *p == '*') {
            all = rank;
        }
        p += length;
    }
    sLowestRank = std::max(own >= 0 ? own : all, 0);
}

void OpenLog(const char* journal) {
    struct stat status;
    if (fstat(STDERR_FILENO, &status) != 0) {
        return;
    }
    sJournal = journal != nullptr &&
               journal == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
    if (S_ISREG(status.st_mode)) {
        return;
    }
    if (S_ISSOCK(status.st_mode)) {
        int type = SOCK_STREAM;
        socklen_t length = sizeof(type);
        getsockopt(STDERR_FILENO, SOL_SOCKET, SO_TYPE, &type, &length);
        sSink = Sink::kSocket;
        sTakesParts = type == SOCK_STREAM;
        return;
    }
    sTty = sTakesParts = isatty(STDERR_FILENO) == 1;
    // Reopen: O_NONBLOCK on fd 2 would affect all processes that share the open file.
    constexpr int kFlags = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int own = open("/proc/self/fd/2", kFlags);
    if (own < 0 && sTty && tcgetsid(STDERR_FILENO) == getsid(0)) {
        // Another user's terminal, as after su: all processes of its session may open /dev/tty.
        own = open("/dev/tty", kFlags);
    }
    sSink = own >= 0 ? Sink::kOwn : Sink::kShared;
    sFd = own >= 0 ? own : STDERR_FILENO;
}

bool LogEnabled(LogSeverity severity) {
    return severity >= sLowestRank;
}

namespace log_backend {

size_t Prefix(char* out, size_t capacity, LogSeverity severity, const char* tag,
              const char* function) {
    thread_local Head head;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != head.second || tag != head.tag) {
        head.Refresh(now.tv_sec, tag);
    }
    auto milliseconds = static_cast<unsigned>(now.tv_nsec / 1000000);
    for (char* digit = head.text + Head::kMilliseconds + 2;
         digit >= head.text + Head::kMilliseconds; --digit) {
        *digit = static_cast<char>('0' + milliseconds % 10);
        milliseconds /= 10;
    }
    head.text[head.priority] = kPriorityLetters[severity];
    const char level[] = {'<', kJournalDigits[severity], '>'};
    size_t length = 0;
    for (const std::string_view part : {std::string_view(level, sJournal ? sizeof(level) : 0),
                                        std::string_view(head.text, head.length),
                                        std::string_view(function), std::string_view(": ")}) {
        const size_t taken = std::min(part.size(), capacity - length);
        memcpy(out + length, part.data(), taken);
        length += taken;
    }
    return length;
}

void Emit(LogSeverity, const char*, char* text, size_t length) {
    text[length] = '\n';
    if (sTakesParts) {
        MutexLock lock(sPartsMutex);
        EmitLine(text, length + 1);
    } else {
        EmitLine(text, length + 1);
    }
}

}  // namespace log_backend

}  // namespace kelp
