#include "platform/log.h"

#include <errno.h>

#include <algorithm>
#include <cstring>

#include "platform/logbackend.h"

namespace kelp {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr size_t kMaxDumpBytes = 256;

bool IsControl(unsigned char c) {
    return c < 0x20 || c == 0x7f;
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

void LogStream::Append(const char* data, size_t length) {
    const char* const end = data + length;
    while (data < end && mLength < kCapacity) {
        const char* const control = std::find_if(
            data, end, [](char c) { return IsControl(static_cast<unsigned char>(c)); });
        const size_t plain = std::min(static_cast<size_t>(control - data), kCapacity - mLength);
        memcpy(mText + mLength, data, plain);
        mLength += plain;
        if (control == end) {
            return;
        }
        data = control + 1;
        const auto c = static_cast<unsigned char>(*control);
        char escaped[4];
        const size_t n = Escape(c, escaped);
        if (mLength + n > kCapacity) {
            return;
        }
        memcpy(mText + mLength, escaped, n);
        mLength += n;
    }
}

LogMessage::LogMessage(LogSeverity severity, const char* tag, const char* function)
    : mSeverity(severity), mTag(tag), mErrno(errno) {
    mStream.mLength =
        log_backend::Prefix(mStream.mText, LogStream::kCapacity, severity, tag, function);
    errno = mErrno;
}

LogMessage::~LogMessage() {
    if (LogEnabled(mSeverity)) {
        log_backend::Emit(mSeverity, mTag, mStream.mText, mStream.mLength);
    }
    errno = mErrno;
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
    char hex[kMaxDumpBytes * 3] = {};
    char ascii[kMaxDumpBytes] = {};
    for (size_t i = 0; i < shown; ++i) {
        hex[3 * i] = ' ';
        hex[3 * i + 1] = kHexDigits[bytes[i] >> 4];
        hex[3 * i + 2] = kHexDigits[bytes[i] & 15];
        ascii[i] = bytes[i] >= 0x20 && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
    }
    stream << std::string_view(hex, shown * 3) << " |" << std::string_view(ascii, shown)
           << (shown < length ? "|..." : "|");
}

}  // namespace kelp
