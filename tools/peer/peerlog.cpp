#include "peer/peerlog.h"

#include <algorithm>
#include <cstdio>

#include "common/text.h"

namespace kelp::tools {

namespace {

constexpr size_t kShownBytes = 256;

}  // namespace

void PeerLog::Line(const std::string& who, const std::string& text) const {
    if (mEnabled) {
        fprintf(stderr, "%s %s\n", who.c_str(), text.c_str());
    }
}

void PeerLog::Request(const std::string& who, std::string_view bytes) const {
    if (mEnabled) {
        Line(who, "< " + Printable(bytes, kShownBytes));
    }
}

void PeerLog::Answer(const std::string& who, std::string_view bytes, uint64_t total) const {
    if (!mEnabled || total == 0) {
        return;
    }
    std::string text = "> " + Printable(bytes.substr(0, std::min<uint64_t>(total, kShownBytes)));
    if (total > kShownBytes) {
        text += "... (" + std::to_string(total) + " bytes)";
    }
    Line(who, text);
}

}  // namespace kelp::tools
