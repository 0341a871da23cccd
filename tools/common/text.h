// Text that people write, on a command line or in a file, and bytes as people read them.
#pragma once

#include <string>
#include <string_view>

namespace kelp::tools {

// Resolves \r \n \t \\ and \xHH. False for any other backslash.
bool Unescape(std::string_view text, std::string& bytes);

// The inverse, for messages: printable ASCII stays, everything else is escaped. What is beyond
// `limit` bytes is left out and told as a count.
std::string Printable(std::string_view bytes, size_t limit = 256);

// Printable text in quotes, for messages.
std::string Quoted(std::string_view text);

// An even number of hex digits, in either case; blanks may stand between the pairs. Unlike the
// daemon's tolerant reader a typing error is refused. Empty text gives no bytes.
bool ParseHex(std::string_view text, std::string& bytes);

// A decimal number, nothing around it. False also when it is outside `min` to `max`.
bool ParseNumber(std::string_view text, int min, int max, int& number);

// Seconds with up to three decimals ("0.25"), as milliseconds.
bool ParseSeconds(std::string_view text, int maxSeconds, int& milliseconds);

// As an address is written in full: four decimal numbers with dots between them.
bool IsIpv4(const std::string& text);

// Of a file that may begin with the UTF-8 one.
std::string WithoutByteOrderMark(std::string text);

}  // namespace kelp::tools
