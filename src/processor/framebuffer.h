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
    static constexpr size_t kNotFound = static_cast<size_t>(-1);

    void Append(const char* data, size_t length);
    void Clear();
    size_t Size() const { return mBytes.size() - mHead; }
    std::string_view View() const { return {mBytes.data() + mHead, Size()}; }

    // Removes every terminator that the buffer begins with.
    void StripLeading(std::string_view tail);

    // The length of the first command: the position of the first terminator among positions 1 to
    // size - 2. A command has at least one byte, and a one-byte terminator at the very end is found
    // only when more bytes follow. A buffer no longer than the terminator, or of two bytes, yields
    // none. `tail` must stay the same until the buffer has been cleared or a terminator was found.
    size_t FindTail(std::string_view tail);

    // Removes `length` bytes, at most Size(), from the front.
    void Consume(size_t length);

  private:
    std::vector<char> mBytes;
    size_t mHead = 0;      // bytes consumed and not yet moved out
    size_t mSearched = 1;  // positions below hold no terminator, counted from mHead
};

}  // namespace kelp
