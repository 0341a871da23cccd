// The keys that describe the answers of a peer; kelp-peer's help says what they mean.
#pragma once

#include <string>
#include <string_view>

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

enum AnswerUse : unsigned {
    kToRequests = 1,
    kBySelf = 2,
    kOnlyPcba = 4,  // with kToRequests
};

struct AnswerKey {
    const char* name;
    KeyType type;
    int min;
    int max;
    unsigned use;          // of AnswerUse
    const char* excludes;  // a key that must not be used together with this one; may be null
    void (*set)(Answer&, const KeyValue&);
};

// Null when there is no such key. `use` is kToRequests or kBySelf.
const AnswerKey* FindAnswerKey(std::string_view name, AnswerUse use);

// Empty, or the error in the complete description.
std::string CheckAnswer(const Answer& answer, AnswerUse use, RoleKind kind);

}  // namespace kelp::tools
