#include <errno.h>
#include <string.h>

#include <string_view>

#include "platform/log.h"
#include "platform/systemproperty.h"
#include "platform/wholefile.h"

namespace kelp {

namespace {

constexpr size_t kMaxFileBytes = 1u << 20;

std::string sText;  // of the file; set before any other thread runs

std::string_view Trim(std::string_view text) {
    constexpr char kBlanks[] = " \t\r\n\v\f";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return std::string_view();
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view FindValue(std::string_view text, std::string_view name) {
    std::string_view value;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = Trim(text.substr(0, end));
        text.remove_prefix(end != std::string_view::npos ? end + 1 : text.size());
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos || line.front() == '#') {
            continue;
        }
        if (Trim(line.substr(0, equals)) == name) {
            value = Trim(line.substr(equals + 1));
        }
    }
    return value;
}

}  // namespace

bool SystemProperty::SetFile(const char* path) {
    sText.clear();
    if (path == nullptr || *path == '\0' || ReadWholeFile(path, kMaxFileBytes, sText)) {
        return true;
    }
    KLOG(kLogError) << "property file(" << path << ") not read, errno = " << errno << " ("
                    << strerror(errno) << ")";
    return false;
}

std::string SystemProperty::Get(const std::string& name, const std::string& defaultValue) {
    const std::string_view value = FindValue(sText, name);
    return value.empty() ? defaultValue : std::string(value);
}

}  // namespace kelp
