// Cuts the bytes that a peer receives into requests.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelp::tools {

// With an end, a request is the text before each end. Without, it is everything appended so far,
// cut wherever `start` occurs again. Linear in the bytes for each end or start.
class RequestCutter {
  public:
    RequestCutter(std::string end, std::string start);

    void Append(std::string_view bytes) { mBuffer.append(bytes); }
    // The next request, without its end. The view is valid until the next Append.
    bool Next(std::string_view& request);
    size_t Waiting() const { return mBuffer.size() - mHead; }  // bytes

  private:
    const std::string mEnd;
    const std::string mStart;
    std::string mBuffer;
    size_t mHead = 0;      // bytes returned and not yet removed
    size_t mSearched = 0;  // no end begins below
};

}  // namespace kelp::tools
