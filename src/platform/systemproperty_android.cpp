#include <sys/system_properties.h>

#include <cstdint>

#include "platform/systemproperty.h"

namespace kelp {

bool SystemProperty::SetFile(const char*) {
    return true;
}

std::string SystemProperty::Get(const std::string& name, const std::string& defaultValue) {
    const prop_info* const info = __system_property_find(name.c_str());
    if (info == nullptr) {
        return defaultValue;
    }
    std::string result;
    // The callback form, because a value may be longer than PROP_VALUE_MAX.
    __system_property_read_callback(
        info,
        [](void* cookie, const char*, const char* value, uint32_t) {
            *static_cast<std::string*>(cookie) = value;
        },
        &result);
    return result.empty() ? defaultValue : result;
}

}  // namespace kelp
