// Texts as people write them on a command line, and bytes as people read them.
#pragma once

#include <string>
#include <string_view>

namespace kelp {

// Resolves \r \n \t \\ and \xHH. False for any other backslash.
bool Unescape(std::string_view text, std::string& bytes);

// The inverse, for messages: printable ASCII stays, everything else is escaped. What is beyond
// `limit` bytes is left out and told as a count.
std::string Printable(std::string_view bytes, size_t limit = 256);

// An even number of hex digits, in either case; blanks may stand between the pairs. Unlike the
// daemon's tolerant reader a typing error is refused. Empty text gives no bytes.
bool ParseHex(std::string_view text, std::string& bytes);

// A decimal number, nothing around it. False also when it is outside `min` to `max`.
bool ParseNumber(std::string_view text, int min, int max, int& number);

// Seconds with up to three decimals ("0.25"), as milliseconds.
bool ParseSeconds(std::string_view text, int maxSeconds, int& milliseconds);

// False, with errno, when the file cannot be read or has more than 64 MiB.
bool ReadWholeFile(const std::string& path, std::string& content);

}  // namespace kelp
