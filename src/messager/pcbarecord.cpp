#include "messager/pcbarecord.h"

#include <algorithm>
#include <cstring>

namespace kelp {

namespace {

constexpr size_t kIntBytes = sizeof(int32_t);

}  // namespace

int32_t ReadPcbaInt(const char* data) {
    int32_t value;
    memcpy(&value, data, sizeof(value));
    return value;
}

PCBARecordState FindPcbaRecord(std::string_view bytes, size_t& length) {
    size_t end = kIntBytes;  // after the result
    for (int text = 0; text < 2; ++text) {
        if (bytes.size() < end + kIntBytes) {
            return PCBARecordState::kIncomplete;
        }
        const int32_t textBytes = ReadPcbaInt(bytes.data() + end);
        if (textBytes > kMaxPcbaTextBytes) {
            return PCBARecordState::kDamaged;
        }
        end += kIntBytes + static_cast<size_t>(std::max(textBytes, 0));
    }
    if (bytes.size() < end) {
        return PCBARecordState::kIncomplete;
    }
    length = end;
    return PCBARecordState::kComplete;
}

bool PcbaTextFits(std::string_view bytes, int64_t position) {
    const auto size = static_cast<int64_t>(bytes.size());
    const auto intBytes = static_cast<int64_t>(kIntBytes);
    if (position < 0 || position + intBytes > size) {
        return false;
    }
    const int64_t textBytes = ReadPcbaInt(bytes.data() + position);
    return position + intBytes + std::max<int64_t>(textBytes, 0) <= size;
}

}  // namespace kelp
