// A JSON document and the values in it, for configuration files.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace neb {

// A place in a text: lines and columns count from 1, columns in bytes (a byte-order mark in front
// of the first line does not count). 0 and 0 when there is no place to name.
struct CJsonPosition {
    int line = 0;
    int column = 0;
};

// A handle to one value of a shared document. Copies, and what operator[] returns, name a value of
// the same document by the way to it, so that
//
//     doc["console"]["tcp"].Replace("active", true);
//
// changes `doc`; Parse gives the handle a new document and leaves other handles with the old one.
// A handle may name a value that is not there: reading it finds nothing and makes nothing.
//
// No operation throws, aborts or recurses with the text. Objects keep the order of their members;
// of several members with one name the last value counts, at the place of the first. Numbers keep
// their value, not their spelling; what does not fit 64 bits becomes a double.
//
// Handles to one document may be used by one thread at a time.
class CJsonObject {
  public:
    // Arrays and objects inside each other, the outermost included. A text that nests deeper is
    // refused; a Replace that would, too.
    static constexpr int kMaxDepth = 64;

    CJsonObject();
    // Copies only: a handle that was moved from would name no document.
    CJsonObject(const CJsonObject&) = default;
    CJsonObject& operator=(const CJsonObject&) = default;

    // Reads one JSON text (RFC 8259, UTF-8, with or without a byte-order mark). False, with an
    // empty document, for anything else: malformed or truncated text, invalid UTF-8, a zero byte,
    // a number beyond the range of a double, nesting beyond kMaxDepth. Time is linear in `text`.
    bool Parse(const std::string& text);
    // After a failed Parse: the last byte that was read when the error showed, or the place behind
    // the last byte of a text that is cut short.
    CJsonPosition ErrorPosition() const;
    // What it was refused for, in a few words: "not valid JSON", or the limit that valid JSON
    // broke.
    const char* ErrorReason() const;

    // The names of the object's members, one per call in their order; false after the last (the
    // next call begins again) and for what is no object. Each handle counts for itself.
    bool GetKey(std::string& key);
    // One of these names by its place; false behind the last.
    bool GetKeyAt(size_t index, std::string& key) const;
    CJsonObject operator[](const std::string& key) const;
    // An array element; nothing when the element is no string or not there.
    std::optional<std::string> operator()(int index) const;
    int GetArraySize() const;  // in elements; 0 for what is no array

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

    // Sets a member of this object, adding it at the end when it is absent. This object and those
    // on the way to it are made when absent, and replace what is there but no object. False, with
    // nothing changed, only beyond kMaxDepth.
    bool Replace(const std::string& key, bool value);
    bool Replace(const std::string& key, int value);
    bool Replace(const std::string& key, const std::string& value);
    bool Replace(const std::string& key, const char* value);
    template <typename T>
    bool Replace(const std::string& key, T* value) = delete;  // would become a bool

  private:
    struct Document;

    void Keep(const void* node) const;

    std::shared_ptr<Document> mDocument;  // never null
    std::vector<std::string> mPath;       // from the document's outermost value to this one
    // The value that the path leads to, null without one, while the document counts mChanges.
    mutable const void* mNode = nullptr;
    mutable unsigned mChanges = 0;
    size_t mNextKey = 0;
};

}  // namespace neb
