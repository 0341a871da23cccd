// Records through liblog; the message is "FUNCTION: TEXT".

#include <android/log.h>

#include <algorithm>
#include <cstdio>

#include "platform/logbackend.h"

namespace kelp {

namespace {

// The severities are numbered like Android's priorities, from "verbose".
constexpr int Priority(LogSeverity severity) {
    return ANDROID_LOG_VERBOSE + severity;
}
static_assert(Priority(kLogDebug) == ANDROID_LOG_DEBUG && Priority(kLogError) == ANDROID_LOG_ERROR);

}  // namespace

void SetLogFilter(const char*) {}

void OpenLog(const char*) {}

bool LogEnabled(LogSeverity severity) {
    return __android_log_is_loggable(Priority(severity), kLogTag, ANDROID_LOG_VERBOSE) != 0;
}

namespace log_backend {

size_t Prefix(char* out, size_t capacity, LogSeverity, const char*, const char* function) {
    const int length = snprintf(out, capacity, "%s: ", function);
    return std::min(static_cast<size_t>(std::max(length, 0)), capacity - 1);
}

void Emit(LogSeverity severity, const char* tag, char* text, size_t length) {
    text[length] = '\0';
    __android_log_write(Priority(severity), tag, text);
}

}  // namespace log_backend

}  // namespace kelp
