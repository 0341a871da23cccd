// Upper case of ASCII letters, independent of the locale; other bytes stay unchanged.
#pragma once

#include <string>

namespace kelp {

inline char UpperCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

inline std::string UpperCase(std::string text) {
    for (char& c : text) {
        c = UpperCase(c);
    }
    return text;
}

}  // namespace kelp
