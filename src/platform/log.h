// Log records of the daemon. Every record has a severity, the tag "KELP", the name of the function
// that writes it, and a text that is streamed in:
//
//     KLOG(kLogError) << name << "-->start fail";
//
// A record is emitted when the statement ends. All functions except SetLogFilter and OpenLog may be
// called from any thread, and preserve errno. When the sink is full, a record waits for 50 ms and
// is then dropped; later ones are dropped at once until there is room again, and one record of
// severity 4 reports their number.
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
// its own filter and never waits for its reader.
//
// Sets the filter, a list in the form of ANDROID_LOG_TAGS ("KELP:E *:S"). Null, or no call: all
// records pass.
void SetLogFilter(const char* list);
// Makes writes to standard error non-blocking, for the log only. Without it a record may block
// without limit. Records begin with the journal's priority ("<3>") when `journal`, the value of
// systemd's JOURNAL_STREAM or null, names standard error.
void OpenLog(const char* journal);

// False when the filter drops records of this severity: callers then need not build them.
bool LogEnabled(LogSeverity severity);

// The text of one record under construction, in a buffer of fixed size: a record that does not fit
// is truncated, not dropped.
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

// Every byte that is not printable ASCII is escaped when the record is emitted (\r \n \t, else
// \xNN), so that a record is one line on every terminal and no client can forge another.
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

// For a helper that logs for its caller: the function's name in a record is part of the interface,
// like its text.
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
