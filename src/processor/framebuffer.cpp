#include "processor/framebuffer.h"

#include <algorithm>

namespace kelp {

namespace {

// Capacity kept by an emptied buffer: that of a giant line goes back to the allocator, which may
// keep it for the next one.
constexpr size_t kKeptCapacity = 256 * 1024;

}  // namespace

void FrameBuffer::Append(const char* data, size_t length) {
    if (mHead > 0) {
        // Moves at most the rest of one read: everything before it was consumed.
        mBytes.erase(mBytes.begin(), mBytes.begin() + static_cast<ptrdiff_t>(mHead));
        mHead = 0;
    }
    mBytes.insert(mBytes.end(), data, data + length);
}

void FrameBuffer::Clear() {
    mHead = 0;
    mSearched = 1;
    mBytes.clear();
    if (mBytes.capacity() > kKeptCapacity) {
        mBytes.shrink_to_fit();
    }
}

void FrameBuffer::StripLeading(std::string_view tail) {
    while (Size() >= tail.size() && View().substr(0, tail.size()) == tail) {
        mHead += tail.size();
        mSearched = 1;
    }
}

size_t FrameBuffer::FindTail(std::string_view tail) {
    const std::string_view bytes = View();
    if (bytes.size() <= std::max<size_t>(2, tail.size())) {
        return kNotFound;
    }
    // The last position where a terminator may begin.
    const size_t last = bytes.size() - std::max<size_t>(2, tail.size());
    const size_t found = bytes.substr(0, last + tail.size()).find(tail, mSearched);
    if (found == std::string_view::npos) {
        mSearched = std::max(mSearched, last + 1);
        return kNotFound;
    }
    return found;
}

bool FrameBuffer::CutLine(std::string_view tail, std::string_view& line) {
    StripLeading(tail);
    const size_t length = FindTail(tail);
    if (length == kNotFound) {
        if (Size() == 0) {
            Clear();
        }
        return false;
    }
    line = View().substr(0, length + tail.size());
    mHead += line.size();
    mSearched = 1;
    StripLeading(tail);
    return true;
}

}  // namespace kelp
