// The description of a bench peer, filled from a script.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kelp::tools {

enum class RoleKind { kWcn, kModem, kPcba };

// One output of a peer: the answer to a request, or an unsolicited message.
struct Answer {
    std::string match;     // the request; with isPrefix its beginning
    bool isPrefix = true;  // an empty prefix matches every request

    std::string text;
    bool isRaw = false;  // only `text` is sent: no echo, no record around it
    bool echo = false;   // the request precedes the text, or is in the record
    bool silent = false;
    bool close = false;   // the connection, after the answer
    int delayMs = 0;      // after the request
    int totalBytes = -1;  // not negative: the answer is cut or repeated to this length
    int pieceBytes = 0;   // not 0: written in pieces of this length ...
    int pauseMs = 0;      // ... with this pause between them

    // In the record of a pcba peer. Lengths, when given, replace the true ones.
    int result = 0;
    std::optional<int> requestLength;
    std::optional<int> responseLength;

    // Times of an unsolicited message, counted from the start of each connection.
    int afterMs = -1;  // the first time; -1: after everyMs
    int everyMs = 0;   // 0: once
};

struct Role {
    RoleKind kind = RoleKind::kWcn;
    std::string name;             // in the log; default: that of the kind
    std::string socket;           // a path, or '@' and an abstract name
    std::string requestEnd;       // empty: a request is what arrives together ...
    std::string requestStart;     // ... cut, unless this is empty, wherever this occurs again
    std::vector<Answer> answers;  // the first match is used
    std::vector<Answer> unsolicited;
};

using Script = std::vector<Role>;

}  // namespace kelp::tools
