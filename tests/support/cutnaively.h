// Reference for the "tail" mode: cuts commands byte by byte, on the whole buffer.
#pragma once

#include <string>
#include <vector>

namespace kelp::test {

// Appends the commands that `buffer` holds to `commands` and leaves the rest. `tail` is not empty.
inline void CutNaively(std::string& buffer, const std::string& tail,
                       std::vector<std::string>& commands) {
    const auto strip = [&] {
        while (buffer.compare(0, tail.size(), tail) == 0) {
            buffer.erase(0, tail.size());
        }
    };
    // A buffer shorter than the terminator is not searched.
    if (buffer.size() < tail.size()) {
        return;
    }
    strip();
    while (buffer.size() > tail.size() && buffer.size() > 2) {
        const size_t p = buffer.find(tail, 1);
        if (p > buffer.size() - 2) {
            return;
        }
        commands.push_back(buffer.substr(0, p));
        buffer.erase(0, p + tail.size());
        strip();
    }
}

}  // namespace kelp::test
