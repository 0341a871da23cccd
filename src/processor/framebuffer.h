// Received bytes that are not yet cut into commands.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace kelp {

// No descriptor, no log. Consuming only moves an offset, and a search resumes where the last one
// stopped, so framing is linear in the bytes however they arrive. One thread at a time. Views are
// valid until the next change.
class FrameBuffer {
  public:
    void Append(const char* data, size_t length);
    void Clear();
    size_t Size() const { return mBytes.size() - mHead; }
    std::string_view View() const { return {mBytes.data() + mHead, Size()}; }

    // Cuts the first complete command; false when there is none. `line` is the command with its
    // terminator; the remaining bytes do not begin with a terminator. A command has at least one
    // byte. The search for a terminator stops two bytes before the end: a one-byte terminator at
    // the very end is found when more bytes follow. `tail` is not empty, and must not change until
    // the buffer has been cleared or a command was cut.
    bool CutLine(std::string_view tail, std::string_view& line);

  private:
    static constexpr size_t kNotFound = static_cast<size_t>(-1);

    void StripLeading(std::string_view tail);
    size_t FindTail(std::string_view tail);

    std::vector<char> mBytes;
    size_t mHead = 0;      // bytes consumed and not yet removed
    size_t mSearched = 1;  // no terminator below this position, counted from mHead
};

}  // namespace kelp
