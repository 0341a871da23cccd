#include "platform/log.h"

#include <errno.h>

#include <algorithm>
#include <cstring>

#include "platform/logbackend.h"

namespace kelp {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr size_t kMaxDumpBytes = 256;

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

size_t Escape(unsigned char c, char* out) {
    out[0] = '\\';
    switch (c) {
        case '\r':
            out[1] = 'r';
            return 2;
        case '\n':
            out[1] = 'n';
            return 2;
        case '\t':
            out[1] = 't';
            return 2;
        default:
            out[1] = 'x';
            out[2] = kHexDigits[c >> 4];
            out[3] = kHexDigits[c & 15];
            return 4;
    }
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
        if (std::any_of(mStream.mText, mStream.mText + mStream.mLength, IsControl)) {
            EmitEscaped();
        } else {
            log_backend::Emit(mSeverity, mTag, mStream.mText, mStream.mLength);
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
        const size_t n = IsControl(c) ? Escape(static_cast<unsigned char>(c), escaped) : 1;
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
        ascii[i] = c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '.';
    }
    stream << std::string_view(hex, shown * 3) << " |" << std::string_view(ascii, shown)
           << (shown < length ? "|..." : "|");
}

}  // namespace kelp
