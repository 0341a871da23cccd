// The keys that describe a peer. Scripts use them as member names, the command line as options, so
// both always have the same keys.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "peer/peerscript.h"

namespace kelp::tools {

enum class KeyType {
    kText,
    kHex,     // bytes, written as hex digits
    kNumber,  // from `min` to `max`
    kFlag,
};

// The converted value, in the member that fits the key's type.
struct KeyValue {
    std::string text;  // kText, and the bytes of kHex
    int number = 0;
    bool flag = false;
};

struct KeyInfo {
    const char* name;
    KeyType type;
    int min;
    int max;
    const char* help;
};

struct RoleKey {
    KeyInfo info;
    void (*set)(Role&, const KeyValue&);
};

enum AnswerUse : unsigned {
    kToRequests = 1,
    kBySelf = 2,
    kOnlyPcba = 4,  // with kToRequests
};

struct AnswerKey {
    KeyInfo info;
    unsigned use;          // of AnswerUse
    const char* excludes;  // a key that a script must not use together with this one; may be null
    void (*set)(Answer&, const KeyValue&);
};

const std::vector<RoleKey>& RoleKeys();
const std::vector<AnswerKey>& AnswerKeys();

// Null when there is no such key. `use` is kToRequests or kBySelf.
const RoleKey* FindRoleKey(std::string_view name);
const AnswerKey* FindAnswerKey(std::string_view name, AnswerUse use);

bool FindRoleKind(std::string_view name, RoleKind& kind);
const char* RoleKindName(RoleKind kind);

// With the default settings of this kind.
Role MakeRole(RoleKind kind);
Answer MakeAnswer(RoleKind kind);

// Empty, or the error in the complete description.
std::string CheckAnswer(const Answer& answer, AnswerUse use, RoleKind kind);
std::string CheckRole(const Role& role);

}  // namespace kelp::tools
