#include "platform/log.h"

#include <errno.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "platform/logbackend.h"

namespace kelp {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr size_t kMaxDumpBytes = 256;

bool IsControl(unsigned char c) {
    return c < 0x20 || c == 0x7f;
}

// Whether one of eight bytes is a control byte.
bool AnyControl(uint64_t bytes) {
    constexpr uint64_t kOnes = 0x0101010101010101;
    constexpr uint64_t kHighBits = 0x80 * kOnes;
    const uint64_t deletes = bytes ^ (0x7f * kOnes);
    return (((bytes - 0x20 * kOnes) & ~bytes) | ((deletes - kOnes) & ~deletes)) & kHighBits;
}

bool AnyControl(const char* data, size_t length) {
    uint64_t bytes;
    if (length < sizeof(bytes)) {
        return std::any_of(data, data + length,
                           [](char c) { return IsControl(static_cast<unsigned char>(c)); });
    }
    // The last eight bytes are looked at as a whole, too, whatever of them was seen before.
    for (size_t i = 0;; i = std::min(i + sizeof(bytes), length - sizeof(bytes))) {
        memcpy(&bytes, data + i, sizeof(bytes));
        if (AnyControl(bytes)) {
            return true;
        }
        if (i + sizeof(bytes) == length) {
            return false;
        }
    }
}

// How a dump shows each byte: " 00" to " FF", and in the fourth place the character itself or a
// dot.
struct DumpTable {
    constexpr DumpTable() : text() {
        for (size_t i = 0; i < 256; ++i) {
            text[i][0] = ' ';
            text[i][1] = kHexDigits[i >> 4];
            text[i][2] = kHexDigits[i & 15];
            text[i][3] = i >= 0x20 && i < 0x7f ? static_cast<char>(i) : '.';
        }
    }
    char text[256][4];
};
constexpr DumpTable kDumpTable;

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
    mPlainLength =
        log_backend::Prefix(mStream.mText, LogStream::kCapacity, severity, tag, function);
    mStream.mLength = mPlainLength;
    errno = mErrno;
}

LogMessage::~LogMessage() {
    if (LogEnabled(mSeverity)) {
        if (AnyControl(mStream.mText + mPlainLength, mStream.mLength - mPlainLength)) {
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
        const auto c = static_cast<unsigned char>(mStream.mText[i]);
        char escaped[4] = {mStream.mText[i]};
        const size_t n = IsControl(c) ? Escape(c, escaped) : 1;
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
    char hex[kMaxDumpBytes * 3 + 1];  // each byte is copied with one more behind it
    char ascii[kMaxDumpBytes];
    for (size_t i = 0; i < shown; ++i) {
        const char* const text = kDumpTable.text[bytes[i]];
        memcpy(hex + 3 * i, text, 4);
        ascii[i] = text[3];
    }
    stream << std::string_view(hex, shown * 3) << " |" << std::string_view(ascii, shown)
           << (shown < length ? "|..." : "|");
    record.MarkPlain();
}

}  // namespace kelp
