// Records as one line on standard error, in the shape of `logcat -v threadtime`.

#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "platform/logbackend.h"

namespace kelp {

namespace {

// Android's priorities, as the filter spells them.
constexpr char kPriorityLetters[] = "VDIWEFS";

char Letter(LogSeverity severity) {
    switch (severity) {
        case kLogDebug:
            return 'D';
        case kLogInfo:
            return 'I';
        default:
            return 'E';
    }
}

int Rank(char letter) {
    if (letter >= 'a' && letter <= 'z') {
        letter = static_cast<char>(letter - 'a' + 'A');
    }
    const char* found = letter != '\0' ? strchr(kPriorityLetters, letter) : nullptr;
    return found != nullptr ? static_cast<int>(found - kPriorityLetters) : 0;
}

// The lowest rank that passes, from a list like "KELP:E *:S": the entry of our tag wins over "*",
// a later entry over an earlier one, and an entry without a priority lets everything through.
int ReadFilter() {
    const char* list = getenv("ANDROID_LOG_TAGS");
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
    return std::max(own >= 0 ? own : all, 0);
}

// Read while the program loads, before any thread exists; only read afterwards.
const int sLowestRank = ReadFilter();

// What all records of one thread and tag in one second begin with:
// "MM-DD HH:MM:SS.mmm PID TID P TAG     : ". Only milliseconds and priority are written anew for
// each.
struct ThreadStamp {
    static constexpr size_t kMilliseconds = 15;  // where they stand

    void Refresh(time_t now, const char* newTag) {
        struct tm local;
        localtime_r(&now, &local);
        char date[24] = {};
        strftime(date, sizeof(date), "%m-%d %H:%M:%S", &local);
        const int before =
            snprintf(head, sizeof(head), "%s.000 %5d %5ld ", date, getpid(), syscall(SYS_gettid));
        priority = static_cast<size_t>(before);
        const int rest = snprintf(head + priority, sizeof(head) - priority, "D %-8s: ", newTag);
        length = std::min(priority + static_cast<size_t>(rest), sizeof(head) - 1);
        second = now;
        tag = newTag;
    }

    time_t second = -1;
    const char* tag = nullptr;
    size_t priority = 0;  // where it stands
    size_t length = 0;
    char head[128];
};

}  // namespace

// The severities are the ranks of Android's debug, info and error.
bool LogEnabled(LogSeverity severity) {
    return severity >= sLowestRank;
}

namespace log_backend {

size_t Prefix(char* out, size_t capacity, LogSeverity severity, const char* tag,
              const char* function) {
    thread_local ThreadStamp stamp;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != stamp.second || tag != stamp.tag) {
        stamp.Refresh(now.tv_sec, tag);
    }
    auto left = static_cast<unsigned>(now.tv_nsec / 1000000);
    for (size_t digit = ThreadStamp::kMilliseconds + 3; digit-- > ThreadStamp::kMilliseconds;) {
        stamp.head[digit] = static_cast<char>('0' + left % 10);
        left /= 10;
    }
    stamp.head[stamp.priority] = Letter(severity);
    size_t length = 0;
    for (const std::string_view part : {std::string_view(stamp.head, stamp.length),
                                        std::string_view(function), std::string_view(": ")}) {
        const size_t taken = std::min(part.size(), capacity - length);
        memcpy(out + length, part.data(), taken);
        length += taken;
    }
    return length;
}

void Emit(LogSeverity, const char*, char* text, size_t length) {
    text[length] = '\n';
    // A record that standard error does not take is given up: the log must never hold up a console.
    if (write(STDERR_FILENO, text, length + 1) < 0) {
        return;
    }
}

}  // namespace log_backend

}  // namespace kelp
