// What a bench peer is to play: plain data, filled from a script file or from options.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kelp::tools {

enum class RoleKind { kWcn, kModem, kPcba };

// One thing that a peer says: to a request, or by itself at a time.
struct Answer {
    std::string match;     // the request this answers; with isPrefix its beginning
    bool isPrefix = true;  // an empty prefix answers everything

    std::string text;
    bool isRaw = false;  // `text` is all that is sent: nothing echoed, no record around it
    bool echo = false;   // the request stands in front of the text, or in the record
    bool silent = false;
    bool close = false;   // the connection, once the answer is out
    int delayMs = 0;      // after the request
    int repeat = 1;       // times the whole answer is sent
    int totalBytes = -1;  // not negative: the answer is cut or repeated to this length
    int pieceBytes = 0;   // not 0: written in pieces of this length ...
    int pauseMs = 0;      // ... with this pause between them

    // In the record of a pcba peer. The lengths, when given, stand in place of the true ones.
    int result = 0;
    std::optional<std::string> echoText;
    std::optional<int> requestLength;
    std::optional<int> responseLength;

    // When it is said by itself, counted from the making of each connection.
    int afterMs = -1;  // the first time; -1: after everyMs
    int everyMs = 0;   // 0: once
    int times = 0;     // 0: without end
};

struct Role {
    RoleKind kind = RoleKind::kWcn;
    std::string name;             // in the log
    std::string socket;           // a path, or '@' and an abstract name
    std::string requestEnd;       // empty: a request is what arrives together ...
    std::string requestStart;     // ... cut, when this is not empty, wherever this begins again
    bool deaf = false;            // never reads
    std::vector<Answer> answers;  // the first that matches counts
    std::vector<Answer> unsolicited;
};

using Script = std::vector<Role>;

}  // namespace kelp::tools
