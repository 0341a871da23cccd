// Log records of the daemon. Every record has a severity, the tag "KELP", the name of the function
// that writes it, and a text that is streamed in:
//
//     KLOG(kLogError) << name << "-->start fail";
//
// A record is emitted when the statement ends. All operations but the first two may be called from
// any thread, and leave errno as it was. A record that finds no room waits 50 ms for it and is then
// dropped; after that the next ones are dropped at once until there is room again, and one record
// of severity 4 tells how many were.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace kelp {

enum LogSeverity : int {
    kLogDebug = 1,  // progress and echoes of parameters
    kLogInfo = 2,   // configuration dumps and changes
    kLogError = 4,  // errors
};

inline constexpr char kLogTag[] = "KELP";

// Both are called by main before any other thread runs, and do nothing on Android, where liblog has
// a filter of its own and never waits for its reader.
//
// Sets which records are dropped, by a list in the form of ANDROID_LOG_TAGS ("KELP:E *:S"); null,
// like no call, lets all pass.
void SetLogFilter(const char* list);
// Makes writing to standard error non-blocking for the log alone. Without it a record may wait as
// long as its reader likes.
void OpenLog();

// False when the filter drops records of this severity; a caller that
// asks first spends nothing on a record that nobody sees.
bool LogEnabled(LogSeverity severity);

// The text of one record under construction, in a buffer of fixed size: a record that does not fit
// is cut, never lost.
class LogStream {
  public:
    LogStream& operator<<(std::string_view text) {
        const size_t taken = text.size() < kCapacity - mLength ? text.size() : kCapacity - mLength;
        memcpy(mText + mLength, text.data(), taken);
        mLength += taken;
        return *this;
    }
    LogStream& operator<<(const char* text) {
        return *this << std::string_view(text != nullptr ? text : "(null)");
    }
    LogStream& operator<<(const std::string& text) { return *this << std::string_view(text); }
    LogStream& operator<<(char c) { return *this << std::string_view(&c, 1); }
    template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
    LogStream& operator<<(T value) {
        if constexpr (std::is_same_v<T, bool>) {
            return *this << (value ? '1' : '0');
        } else {
            char digits[24];
            const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
            return *this << std::string_view(digits, static_cast<size_t>(end - digits));
        }
    }

  private:
    friend class LogMessage;
    // liblog takes 4068 bytes of tag and message together; the same bound holds everywhere.
    static constexpr size_t kCapacity = 4000;

    size_t mLength = 0;
    char mText[kCapacity + 1];  // one more for the platform's line end or terminator
};

// Control bytes are escaped when the record is emitted (\r \n \t, else \xNN), so that a record is
// always one line and nothing that a client sends can forge another.
class LogMessage {
  public:
    // `tag` is a literal: it is not copied.
    LogMessage(LogSeverity severity, const char* tag, const char* function);
    ~LogMessage();  // emits
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    LogStream& stream() { return mStream; }

  private:
    void EmitEscaped();

    const LogSeverity mSeverity;
    const char* const mTag;
    const int mErrno;
    LogStream mStream;
};

// One severity-1 record: the title, the byte count, and hex with ASCII of at most the first 256
// bytes. `data` may be null when `length` is below 1.
void DumpLog(const char* tag, const char* function, const char* title, const void* data,
             size_t length);

namespace log_internal {
struct Voidify {
    void operator&(LogStream&) {}
};
}  // namespace log_internal

}  // namespace kelp

#define KLOG(severity) KLOG_AS(__func__, severity)

#define DUMPLOG(tag, title, data, length) DUMPLOG_AS(__func__, tag, title, data, length)

// For a helper that writes a record of the operation it is part of: the function's name in a record
// is as much an interface as its text.
#define KLOG_AS(function, severity)         \
    !::kelp::LogEnabled(severity)           \
        ? (void)0                           \
        : ::kelp::log_internal::Voidify() & \
              ::kelp::LogMessage(severity, ::kelp::kLogTag, function).stream()

#define DUMPLOG_AS(function, tag, title, data, length)           \
    do {                                                         \
        if (::kelp::LogEnabled(::kelp::kLogDebug)) {             \
            ::kelp::DumpLog(tag, function, title, data, length); \
        }                                                        \
    } while (0)
