#include "peer/requestcutter.h"

#include <algorithm>
#include <utility>

namespace kelp::tools {

RequestCutter::RequestCutter(std::string end, std::string start)
    : mEnd(std::move(end)), mStart(std::move(start)) {}

bool RequestCutter::Next(std::string_view& request) {
    const std::string_view all = mBuffer;
    size_t length = all.npos;
    if (!mEnd.empty()) {
        const size_t found = all.find(mEnd, std::max(mSearched, mHead));
        length = found == all.npos ? all.npos : found - mHead;
    } else if (mHead < all.size()) {
        const size_t next = mStart.empty() ? all.npos : all.find(mStart, mHead + 1);
        length = std::min(next, all.size()) - mHead;
    }
    if (length == all.npos) {
        mBuffer.erase(0, mHead);
        mHead = 0;
        mSearched = mBuffer.size() - std::min(mBuffer.size(), mEnd.size());
        return false;
    }
    request = all.substr(mHead, length);
    mHead += length + mEnd.size();
    return true;
}

}  // namespace kelp::tools
