#include "platform/cjsonobject.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <utility>

namespace neb {

namespace {

// Without exceptions the library aborts where it would throw. Only calls that cannot throw are used
// here: get_ptr in place of get (except for a known number) and at, sax_parse, and dump with the
// replacing handler.
using Json = nlohmann::ordered_json;

constexpr auto kReplaceBadBytes = Json::error_handler_t::replace;

// Input iterator for the parser; it also stores the parser's position in *mReached.
class Cursor {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Cursor(const char* at, const char** reached) : mAt(at), mReached(reached) {}
    reference operator*() const { return *mAt; }
    Cursor& operator++() {
        *mReached = ++mAt;
        return *this;
    }
    bool operator==(const Cursor& other) const { return mAt == other.mAt; }
    bool operator!=(const Cursor& other) const { return mAt != other.mAt; }

  private:
    const char* mAt;
    const char** mReached;
};

// Builds the document from the parser's callbacks (their names are the library's). The library's
// own builder has no depth limit, and finds duplicate names by a linear search.
class Builder {
  public:
    explicit Builder(Json& root) : mRoot(root) {}

    bool null() { return Add(nullptr); }
    bool boolean(bool value) { return Add(value); }
    bool number_integer(Json::number_integer_t value) { return Add(value); }
    bool number_unsigned(Json::number_unsigned_t value) { return Add(value); }
    bool number_float(Json::number_float_t value, const std::string&) { return Add(value); }
    bool string(std::string& value) { return Add(std::move(value)); }
    bool binary(Json::binary_t&) { return false; }  // JSON texts have none
    bool start_object(std::size_t) { return Open(Json::object()); }
    bool start_array(std::size_t) { return Open(Json::array()); }
    bool end_object() { return Close(); }
    bool end_array() { return Close(); }
    bool key(std::string& name);
    bool parse_error(std::size_t bytesRead, const std::string&, const Json::exception& error) {
        constexpr int kNumberOverflow = 406;
        const char* const message = error.what();
        const char* const found = strstr(message, "invalid string: surrogate");
        const char* const quoted = strstr(message, "; last read: ");  // the input follows
        mErrorBytes = bytesRead;
        if (error.id == kNumberOverflow) {
            mReason = "a number beyond the range of a double";
        } else if (found != nullptr && (quoted == nullptr || found < quoted)) {
            mReason = "an unpaired surrogate";
        }
        return false;
    }

    // Bytes read when the parser found the error; no value when a callback stopped it.
    std::optional<size_t> ErrorBytes() const { return mErrorBytes; }
    const char* Reason() const { return mReason; }

  private:
    Json* Place(Json value);
    bool Add(Json value) {
        Place(std::move(value));
        return true;
    }
    bool Open(Json container);
    bool Close() {
        mOpen.pop_back();
        return true;
    }

    Json& mRoot;
    struct Level {
        Json* node;  // stable: only the innermost container grows
        std::unordered_map<std::string, size_t> members;
    };

    std::vector<Level> mOpen;
    size_t mMember = 0;  // index in the innermost object: whose value comes next
    std::optional<size_t> mErrorBytes;
    const char* mReason = "not valid JSON";
};

Json* Builder::Place(Json value) {
    if (mOpen.empty()) {
        mRoot = std::move(value);
        return &mRoot;
    }
    Json& node = *mOpen.back().node;
    if (auto* const array = node.get_ptr<Json::array_t*>()) {
        array->push_back(std::move(value));
        return &array->back();
    }
    Json::object_t::Container& members = *node.get_ptr<Json::object_t*>();
    members[mMember].second = std::move(value);
    return &members[mMember].second;
}

bool Builder::Open(Json container) {
    if (mOpen.size() >= CJsonObject::kMaxDepth) {
        mReason = "more than 64 nested arrays and objects";
        return false;
    }
    mOpen.push_back({Place(std::move(container)), {}});
    return true;
}

bool Builder::key(std::string& name) {
    Level& level = mOpen.back();
    Json::object_t::Container& members = *level.node->get_ptr<Json::object_t*>();
    const auto [found, isNew] = level.members.emplace(name, members.size());
    if (isNew) {
        members.emplace_back(std::move(name), nullptr);
    }
    mMember = found->second;
    return true;
}

// Position of the last of `bytesRead` bytes; the library counts the end of the text as one more.
CJsonPosition Locate(const std::string& text, size_t bytesRead) {
    const size_t offset = std::min(bytesRead > 0 ? bytesRead - 1 : 0, text.size());
    const auto begin = text.begin();
    const auto at = begin + static_cast<std::ptrdiff_t>(offset);
    const size_t newline = offset > 0 ? text.rfind('\n', offset - 1) : std::string::npos;
    CJsonPosition position;
    position.line = static_cast<int>(std::count(begin, at, '\n')) + 1;
    if (newline != std::string::npos) {
        position.column = static_cast<int>(offset - newline);
    } else {
        const size_t mark = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
        position.column = static_cast<int>(offset - std::min(mark, offset)) + 1;
    }
    return position;
}

// The value, if there is one of this type, else null.
template <typename T>
const T* As(const Json* node) {
    return node != nullptr ? node->get_ptr<const T*>() : nullptr;
}

template <typename T>
bool CopyTo(const Json* node, T& value) {
    const T* const found = As<T>(node);
    if (found != nullptr) {
        value = *found;
    }
    return found != nullptr;
}

const Json* FindMember(const Json* node, const std::string& key) {
    const auto* const object = As<Json::object_t>(node);
    if (object == nullptr) {
        return nullptr;
    }
    const auto found = object->find(key);
    return found != object->end() ? &found->second : nullptr;
}

Json& MakeMember(Json& node, const std::string& key) {
    if (!node.is_object()) {
        node = Json::object();
    }
    return (*node.get_ptr<Json::object_t*>())[key];
}

}  // namespace

// Members are stored in vectors, so adding one may invalidate pointers to the others: a handle
// keeps the path to its value, and caches the pointer only until the document changes.
struct CJsonObject::Document {
    Json root = Json(Json::value_t::discarded);  // until something is parsed or replaced
    CJsonPosition error;
    const char* reason = "";
    unsigned changes = 0;

    // The handle's value; null when absent.
    static const Json* Find(const CJsonObject& handle) {
        const Document& document = *handle.mDocument;
        if (handle.mChanges != document.changes) {
            const Json* node = document.root.is_discarded() ? nullptr : &document.root;
            for (const std::string& key : handle.mPath) {
                node = FindMember(node, key);
            }
            handle.Keep(node);
        }
        return static_cast<const Json*>(handle.mNode);
    }

    bool Set(const std::vector<std::string>& path, const std::string& key, Json value) {
        if (path.size() >= kMaxDepth) {
            return false;
        }
        ++changes;
        Json* node = &root;
        for (const std::string& name : path) {
            node = &MakeMember(*node, name);
        }
        MakeMember(*node, key) = std::move(value);
        return true;
    }
};

CJsonObject::CJsonObject() : mDocument(std::make_shared<Document>()) {}

void CJsonObject::Keep(const void* node) const {
    mNode = node;
    mChanges = mDocument->changes;
}

bool CJsonObject::Parse(const std::string& text) {
    *this = CJsonObject();
    // The library takes a zero byte for the end of the text; here it is a syntax error.
    const size_t length = std::min(text.find('\0'), text.size());
    const char* reached = text.data();
    Builder builder(mDocument->root);
    const bool good = Json::sax_parse(Cursor(text.data(), &reached),
                                      Cursor(text.data() + length, &reached), &builder);
    if (good && length == text.size()) {
        Keep(&mDocument->root);
        return true;
    }
    const size_t refused = good ? length + 1 : static_cast<size_t>(reached - text.data());
    mDocument->root = Json(Json::value_t::discarded);
    mDocument->error = Locate(text, builder.ErrorBytes().value_or(refused));
    mDocument->reason = builder.Reason();
    return false;
}

CJsonPosition CJsonObject::ErrorPosition() const {
    return mDocument->error;
}

const char* CJsonObject::ErrorReason() const {
    return mDocument->reason;
}

bool CJsonObject::GetKey(std::string& key) {
    const bool found = GetKeyAt(mNextKey, key);
    mNextKey = found ? mNextKey + 1 : 0;
    return found;
}

bool CJsonObject::GetKeyAt(size_t index, std::string& key) const {
    const auto* const object = As<Json::object_t>(Document::Find(*this));
    if (object == nullptr || index >= object->size()) {
        return false;
    }
    const Json::object_t::Container& members = *object;
    key = members[index].first;
    return true;
}

CJsonObject CJsonObject::operator[](const std::string& key) const {
    CJsonObject member(*this);
    member.mPath.push_back(key);
    member.mNextKey = 0;
    member.Keep(FindMember(Document::Find(*this), key));
    return member;
}

std::optional<std::string> CJsonObject::operator()(int index) const {
    if (index < 0 || index >= GetArraySize()) {
        return std::nullopt;
    }
    const auto& array = *As<Json::array_t>(Document::Find(*this));
    const auto* const text = As<std::string>(&array[static_cast<size_t>(index)]);
    return text != nullptr ? std::optional<std::string>(*text) : std::nullopt;
}

int CJsonObject::GetArraySize() const {
    const auto* const array = As<Json::array_t>(Document::Find(*this));
    return array != nullptr ? static_cast<int>(array->size()) : 0;
}

bool CJsonObject::Get(const std::string& key, bool& value) const {
    return CopyTo(FindMember(Document::Find(*this), key), value);
}

bool CJsonObject::Get(const std::string& key, int& value) const {
    constexpr int kMin = std::numeric_limits<int>::min();
    constexpr int kMax = std::numeric_limits<int>::max();
    const Json* const node = FindMember(Document::Find(*this), key);
    if (node == nullptr || !node->is_number()) {
        return false;
    }
    const auto real = node->get<double>();  // exact for every value of an int
    if (!(real >= kMin && real <= kMax) || std::trunc(real) != real) {
        return false;
    }
    value = static_cast<int>(real);
    return true;
}

bool CJsonObject::Get(const std::string& key, std::string& value) const {
    return CopyTo(FindMember(Document::Find(*this), key), value);
}

bool CJsonObject::Get(const std::string& key, CJsonObject& value) const {
    const Json* const node = FindMember(Document::Find(*this), key);
    const bool found = node != nullptr && (node->is_object() || node->is_boolean());
    value = found ? (*this)[key] : CJsonObject();
    return found;
}

bool CJsonObject::IsEmpty() const {
    const Json* const node = Document::Find(*this);
    return node == nullptr || node->empty();
}

std::string CJsonObject::ToString() const {
    const Json* const node = Document::Find(*this);
    return node != nullptr ? node->dump(-1, ' ', false, kReplaceBadBytes) : std::string();
}

std::string CJsonObject::ToFormattedString() const {
    const Json* const node = Document::Find(*this);
    return node != nullptr ? node->dump(4, ' ', false, kReplaceBadBytes) + "\n" : std::string();
}

bool CJsonObject::Replace(const std::string& key, bool value) {
    return mDocument->Set(mPath, key, value);
}

bool CJsonObject::Replace(const std::string& key, int value) {
    return mDocument->Set(mPath, key, value);
}

bool CJsonObject::Replace(const std::string& key, const std::string& value) {
    return mDocument->Set(mPath, key, value);
}

}  // namespace neb
