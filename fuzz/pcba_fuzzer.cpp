// Any bytes from the PCBA test daemon: the records are cut and decoded as a naive reading of their
// layout says, and nothing outside them is read.

#include <algorithm>
#include <cstring>
#include <string>

#include "check.h"
#include "config/configmanager.h"
#include "messager/formatter.h"
#include "messager/messagermanager.h"
#include "messager/pcbamessager.h"
#include "messager/pcbarecord.h"
#include "processor/command.h"

namespace {

constexpr char kRequest[] = "AT+PCBA?";

std::string Answer(kelp::Formatter& formatter) {
    kelp::Command command;
    command.mRequest.assign(kRequest, kRequest + strlen(kRequest));
    formatter.GetResponse(&command);
    return std::string(command.mResponse.begin(), command.mResponse.end());
}

// The field at `at`; what a negative length leads out of the record to is absent. Moves `at`.
std::string NaiveText(const std::string& record, int64_t& at) {
    int32_t length = 0;
    if (at < 0 || at + 4 > static_cast<int64_t>(record.size()))
        return "";
    memcpy(&length, record.data() + at, 4);
    const int64_t begin = at + 4;
    at = begin + length;
    return length < 1 || at > static_cast<int64_t>(record.size())
               ? ""
               : record.substr(static_cast<size_t>(begin), static_cast<size_t>(length));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A module without a peer: it opens no socket, and its thread waits for ever.
    static kelp::ConfigManager* const config = [] {
        auto* made = new kelp::ConfigManager;
        made->GetModuleConfigs()->clear();
        made->ConstructModuleConfig("pcba");
        return made;
    }();
    static kelp::MessagerManager* const manager = new kelp::MessagerManager(config);
    static kelp::PCBAMessager* const module = new kelp::PCBAMessager(manager, "pcba");

    std::string bytes(data, data + size);
    size_t length = 0;
    while (kelp::FindPcbaRecord(bytes, length) == kelp::PCBARecordState::kComplete) {
        KELP_FUZZ_CHECK(length >= 12 && length <= bytes.size());
        // On the heap and no byte longer, so that reading beyond it is seen.
        std::vector<char> record(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length));
        record.shrink_to_fit();
        kelp::Formatter decoded, naive;
        module->Decode(record, &decoded);
        int32_t result;
        memcpy(&result, bytes.data(), 4);
        int64_t at = 4;
        const std::string own = bytes.substr(0, length);
        const std::string request = NaiveText(own, at), response = NaiveText(own, at);
        naive.SetResult(result);
        naive.SetRequest(request.data(), static_cast<int>(request.size()));
        naive.SetResponse(response.data(), static_cast<int>(response.size()));
        KELP_FUZZ_CHECK(Answer(decoded) == Answer(naive));
        bytes.erase(0, length);
    }
    return 0;
}
