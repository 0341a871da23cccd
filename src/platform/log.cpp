#include "platform/log.h"

#include <errno.h>

#include <algorithm>
#include <cstring>

#include "platform/logbackend.h"

namespace kelp {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr size_t kMaxDumpBytes = 256;

bool IsPrintable(char c) {
    return c >= ' ' && c <= '~';
}

size_t Escape(unsigned char c, char* out) {
    static constexpr std::string_view kNamed = "\rr\nn\tt";  // pairs of a byte and its letter
    out[0] = '\\';
    const size_t pair = kNamed.find(static_cast<char>(c));
    if (pair != kNamed.npos) {
        out[1] = kNamed[pair + 1];
        return 2;
    }
    out[1] = 'x';
    out[2] = kHexDigits[c >> 4];
    out[3] = kHexDigits[c & 15];
    return 4;
}

}  // namespace

LogMessage::LogMessage(LogSeverity severity, const char* tag, const char* function)
    : mSeverity(severity), mTag(tag), mErrno(errno) {
    mStream.mLength =
        log_backend::Prefix(mStream.mText, LogStream::kCapacity, severity, tag, function);
    errno = mErrno;
}

LogMessage::~LogMessage() {
    if (LogEnabled(mSeverity)) {
        if (std::all_of(mStream.mText, mStream.mText + mStream.mLength, IsPrintable)) {
            log_backend::Emit(mSeverity, mTag, mStream.mText, mStream.mLength);
        } else {
            EmitEscaped();
        }
    }
    errno = mErrno;
}

void LogMessage::EmitEscaped() {
    char text[LogStream::kCapacity + 1];
    size_t length = 0;
    for (size_t i = 0; i < mStream.mLength; ++i) {
        const char c = mStream.mText[i];
        char escaped[4] = {c};
        const size_t n = IsPrintable(c) ? 1 : Escape(static_cast<unsigned char>(c), escaped);
        if (length + n > LogStream::kCapacity) {
            break;
        }
        memcpy(text + length, escaped, n);
        length += n;
    }
    log_backend::Emit(mSeverity, mTag, text, length);
}

void DumpLog(const char* tag, const char* function, const char* title, const void* data,
             size_t length) {
    const size_t shown = std::min(length, kMaxDumpBytes);
    const auto* bytes = static_cast<const unsigned char*>(data);
    LogMessage record(kLogDebug, tag, function);
    LogStream& stream = record.stream();
    stream << title << " (" << length << " bytes)";
    if (shown == 0) {
        return;
    }
    char hex[kMaxDumpBytes * 3];
    char ascii[kMaxDumpBytes];
    for (size_t i = 0; i < shown; ++i) {
        const unsigned char c = bytes[i];
        hex[3 * i] = ' ';
        hex[3 * i + 1] = kHexDigits[c >> 4];
        hex[3 * i + 2] = kHexDigits[c & 15];
        ascii[i] = IsPrintable(static_cast<char>(c)) ? static_cast<char>(c) : '.';
    }
    stream << std::string_view(hex, shown * 3) << " |" << std::string_view(ascii, shown)
           << (shown < length ? "|..." : "|");
}

}  // namespace kelp
