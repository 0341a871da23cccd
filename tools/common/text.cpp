#include "common/text.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstdio>
#include <utility>

namespace kelp::tools {

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool HexByte(std::string_view text, char& byte) {
    const int high = text.size() >= 2 ? HexDigit(text[0]) : -1;
    const int low = text.size() >= 2 ? HexDigit(text[1]) : -1;
    byte = static_cast<char>(high * 16 + low);
    return high >= 0 && low >= 0;
}

void AppendPrintable(char c, std::string& out) {
    switch (c) {
        case '\r':
            out += "\\r";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\t':
            out += "\\t";
            return;
        case '\\':
            out += "\\\\";
            return;
        default:
            break;
    }
    if (c >= 0x20 && c < 0x7f) {
        out += c;
        return;
    }
    char escaped[5];
    snprintf(escaped, sizeof(escaped), "\\x%02X", static_cast<unsigned char>(c));
    out += escaped;
}

}  // namespace

bool Unescape(std::string_view text, std::string& bytes) {
    bytes.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        const char kind = ++i < text.size() ? text[i] : '\0';
        char byte = kind;
        if (kind == 'r') {
            byte = '\r';
        } else if (kind == 'n') {
            byte = '\n';
        } else if (kind == 't') {
            byte = '\t';
        } else if (kind == 'x') {
            if (!HexByte(text.substr(i + 1), byte)) {
                return false;
            }
            i += 2;
        } else if (kind != '\\') {
            return false;
        }
        bytes += byte;
    }
    return true;
}

std::string Printable(std::string_view bytes, size_t limit) {
    std::string out;
    for (const char c : bytes.substr(0, limit)) {
        AppendPrintable(c, out);
    }
    if (bytes.size() > limit) {
        out += "... (" + std::to_string(bytes.size()) + " bytes)";
    }
    return out;
}

std::string Quoted(std::string_view text) {
    return "\"" + Printable(text) + "\"";
}

bool ParseHex(std::string_view text, std::string& bytes) {
    bytes.clear();
    for (size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        char byte;
        if (!HexByte(text.substr(i), byte)) {
            return false;
        }
        bytes += byte;
        i += 2;
    }
    return true;
}

bool ParseNumber(std::string_view text, int min, int max, int& number) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < min || value > max) {
        return false;
    }
    number = value;
    return true;
}

bool ParseSeconds(std::string_view text, int maxSeconds, int& milliseconds) {
    const size_t dot = text.find('.');
    std::string decimals(dot == text.npos ? "0" : text.substr(dot + 1));
    int whole = 0;
    int thousandths = 0;
    if (decimals.size() > 3 || !ParseNumber(text.substr(0, dot), 0, maxSeconds, whole)) {
        return false;
    }
    const bool hasDecimals = !decimals.empty();
    decimals.resize(3, '0');
    if (!hasDecimals || !ParseNumber(decimals, 0, 999, thousandths)) {
        return false;
    }
    milliseconds = whole * 1000 + thousandths;
    return true;
}

bool IsIpv4(const std::string& text) {
    struct in_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string WithoutByteOrderMark(std::string text) {
    return text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? text.substr(3) : std::move(text);
}

}  // namespace kelp::tools
