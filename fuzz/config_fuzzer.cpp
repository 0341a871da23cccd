// Any bytes as the configuration file: written back and read again, the configuration is the same;
// written once more, so is the file.

#include <stdio.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "check.h"
#include "config/configmanager.h"
#include "platform/wholefile.h"

namespace {

// All settings as one text, to compare the two readings.
std::string Describe(kelp::ConfigManager& manager) {
    std::string text;
    const auto add = [&](const std::string& value) {
        text += std::to_string(value.size()) + ":" + value;
    };
    for (const kelp::CommonConfig& c : manager.GetConsoleConfig()->consoles) {
        add(c.name);
        add(c.route);
        for (const int value : {int{c.active}, int{c.support}, int{c.port}, int{c.timeout}}) {
            add(std::to_string(value));
        }
    }
    for (const kelp::ModuleInfo& m : *manager.GetModuleConfigs()) {
        add(m.name + (m.keepAlive ? "+" : "-") + std::to_string(m.timeout));
        add(std::to_string(m.quietMs));
        add(m.path);
        for (const auto* list : {&m.whiteList, &m.testCmds}) {
            add(std::to_string(list->size()));
            for (const std::string& entry : *list) {
                add(entry);
            }
        }
    }
    const kelp::ReceiveConfig& r = *manager.GetReceiveConfig();
    KELP_FUZZ_CHECK(r.tailLength >= 0 && r.tailLength <= kelp::kMaxTailBytes);
    add(std::string(r.tail, r.tail + r.tailLength));
    return text + std::to_string(r.mode) + "/" + std::to_string(r.millisecond);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(tmpfile(), fclose);
    KELP_FUZZ_CHECK(file != nullptr);
    const int fd = fileno(file.get());
    KELP_FUZZ_CHECK(write(fd, data, size) == static_cast<ssize_t>(size));
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    kelp::ConfigManager first, second;
    if (!first.ParseJSONDoc(path)) {
        KELP_FUZZ_CHECK(!first.RefreshConfig());
        return 0;
    }
    std::string once, twice;
    KELP_FUZZ_CHECK(first.RefreshConfig() && kelp::ReadWholeFile(path, 1 << 24, once));
    KELP_FUZZ_CHECK(second.ParseJSONDoc(path) && Describe(first) == Describe(second));
    KELP_FUZZ_CHECK(second.RefreshConfig() && kelp::ReadWholeFile(path, 1 << 24, twice));
    KELP_FUZZ_CHECK(once == twice);
    return 0;
}
