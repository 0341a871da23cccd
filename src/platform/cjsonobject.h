// A JSON document and the values in it, for configuration files.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace neb {

// A position in a text: lines and columns count from 1, columns in bytes (a byte-order mark in
// front of the first line does not count). 0 and 0 when there is no position.
struct CJsonPosition {
    int line = 0;
    int column = 0;
};

// A handle to one value of a shared document. Copies, and the results of operator[], refer to a
// value of the same document by its path, so that
//
//     doc["console"]["tcp"].Replace("active", true);
//
// changes `doc`; Parse gives the handle a new document and leaves other handles with the old one. A
// handle may refer to an absent value: reading it finds nothing and creates nothing.
//
// No operation throws, aborts or recurses over the text. Objects keep the order of their members;
// of members with the same name the last value wins, at the first one's place. Numbers keep their
// value, not their spelling; an integer beyond 64 bits becomes a double.
//
// Handles to one document may be used by one thread at a time.
class CJsonObject {
  public:
    // Limit of nested arrays and objects, the outermost included. Parse and Replace refuse more.
    static constexpr int kMaxDepth = 64;

    CJsonObject();
    // Copies only: a moved-from handle would have no document.
    CJsonObject(const CJsonObject&) = default;
    CJsonObject& operator=(const CJsonObject&) = default;

    // Reads one JSON text (RFC 8259, UTF-8, with or without a byte-order mark). False, with an
    // empty document, for anything else: malformed or truncated text, invalid UTF-8, a zero byte,
    // a number beyond the range of a double, nesting beyond kMaxDepth. Time is linear in `text`.
    bool Parse(const std::string& text);
    // After a failed Parse: the last byte read when the error was found, or the position after the
    // last byte of a truncated text.
    CJsonPosition ErrorPosition() const;
    // The reason of the failure: "not valid JSON", or the limit that valid JSON exceeded.
    const char* ErrorReason() const;

    // The names of the object's members in order, one per call; false after the last (the next call
    // starts over) and for a value that is no object. Each handle has its own position.
    bool GetKey(std::string& key);
    // The name at `index`; false beyond the last.
    bool GetKeyAt(size_t index, std::string& key) const;
    CJsonObject operator[](const std::string& key) const;
    // A string in an array; no value when the element is absent or of another type.
    std::optional<std::string> operator()(int index) const;
    int GetArraySize() const;  // in elements; 0 when not an array

    // A member's value. False, leaving `value` as it was, when the member is absent or of another
    // type; a number is an int when it is integral (3.0 is) and in range.
    bool Get(const std::string& key, bool& value) const;
    bool Get(const std::string& key, int& value) const;
    bool Get(const std::string& key, std::string& value) const;
    // A handle to a member that is an object or a plain true or false. On failure `value` becomes
    // an empty document.
    bool Get(const std::string& key, CJsonObject& value) const;

    bool IsEmpty() const;          // absent, null, or an object or array without elements
    std::string ToString() const;  // on one line; empty when the value is absent
    // Indented by 4, with a line end at the end. Bytes that are not valid UTF-8, which Replace
    // accepts, come out as U+FFFD here and in ToString: the result can always be parsed.
    std::string ToFormattedString() const;

    // Sets a member of this object; an absent one is added at the end. This object and those on its
    // path are created when absent, and replace a value of another type. False, with nothing
    // changed, only beyond kMaxDepth.
    bool Replace(const std::string& key, bool value);
    bool Replace(const std::string& key, int value);
    bool Replace(const std::string& key, const std::string& value);
    bool Replace(const std::string& key, const char* value) {
        return Replace(key, std::string(value));
    }
    template <typename T>
    bool Replace(const std::string& key, T* value) = delete;  // would become a bool

  private:
    struct Document;

    void Keep(const void* node) const;

    std::shared_ptr<Document> mDocument;  // never null
    std::vector<std::string> mPath;       // from the document's outermost value to this one
    // Cache of the value at mPath, null when absent; valid while the document's `changes` is
    // mChanges.
    mutable const void* mNode = nullptr;
    mutable unsigned mChanges = 0;
    size_t mNextKey = 0;
};

}  // namespace neb
