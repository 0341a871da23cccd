// Text in command lines and files, and bytes in readable form.
#pragma once

#include <string>
#include <string_view>

namespace kelp::tools {

// Resolves \r \n \t \\ and \xHH. False for any other backslash.
bool Unescape(std::string_view text, std::string& bytes);

// The inverse, for messages: printable ASCII stays, everything else is escaped. Bytes beyond
// `limit` are left out and reported as a count.
std::string Printable(std::string_view bytes, size_t limit = 256);

// Printable text in quotes, for messages.
std::string Quoted(std::string_view text);

// An even number of hex digits in either case, with optional blanks between pairs. Unlike the
// daemon's tolerant reader, any error is refused. Empty text gives no bytes.
bool ParseHex(std::string_view text, std::string& bytes);

// A decimal number without any other characters. False also when it is outside `min` to `max`.
bool ParseNumber(std::string_view text, int min, int max, int& number);

// Seconds with up to three decimals ("0.25"), as milliseconds.
bool ParseSeconds(std::string_view text, int maxSeconds, int& milliseconds);

// An IPv4 address in full form: four decimal numbers with dots between them.
bool IsIpv4(const std::string& text);

// Removes a UTF-8 byte-order mark at the start of a file's text.
std::string WithoutByteOrderMark(std::string text);

}  // namespace kelp::tools
