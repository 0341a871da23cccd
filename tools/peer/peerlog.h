// The traffic log of kelp-peer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kelp::tools {

// One line per event on standard error. One thread.
class PeerLog {
  public:
    explicit PeerLog(bool enabled) : mEnabled(enabled) {}

    // "WHO TEXT"; nothing when the log is off.
    void Line(const std::string& who, const std::string& text) const;
    // "WHO < BYTES" and "WHO > BYTES", escaped and cut. Adds `total` when it is more.
    void Request(const std::string& who, std::string_view bytes) const;
    void Answer(const std::string& who, std::string_view bytes, uint64_t total) const;

  private:
    const bool mEnabled;
};

}  // namespace kelp::tools
