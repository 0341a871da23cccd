// The bytes that a console has received and not yet cut into commands.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace kelp {

// Pure bytes: no descriptor, no log. Consuming only moves an offset and searching resumes where it
// left off, so the cost of framing is linear in the bytes however they arrive. One thread at a
// time. Views are valid until the next change.
class FrameBuffer {
  public:
    void Append(const char* data, size_t length);
    void Clear();
    size_t Size() const { return mBytes.size() - mHead; }
    std::string_view View() const { return {mBytes.data() + mHead, Size()}; }

    // Cuts the next command off the front; false when none is complete. `line` is the command with
    // its terminator, and what remains no longer begins with a terminator. A command has at least
    // one byte, and a terminator is looked for up to two bytes before the end only: one of a single
    // byte at the very end is found when more bytes follow. `tail` is not empty, and stays the same
    // until the buffer has been cleared or a command was cut.
    bool CutLine(std::string_view tail, std::string_view& line);

  private:
    static constexpr size_t kNotFound = static_cast<size_t>(-1);

    void StripLeading(std::string_view tail);
    size_t FindTail(std::string_view tail);

    std::vector<char> mBytes;
    size_t mHead = 0;      // bytes consumed and not yet moved out
    size_t mSearched = 1;  // positions below hold no terminator, counted from mHead
};

}  // namespace kelp
