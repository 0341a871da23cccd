// Any bytes, in any pieces, with any terminator and in every mode: a console cuts the commands that
// the cutting rule gives when it is followed naively on the whole buffer.

#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "check.h"
#include "config/configmanager.h"
#include "processor/processor.h"

namespace {

using Commands = std::vector<std::string>;

class Console : public kelp::Processor {
  public:
    explicit Console(kelp::ConfigManager* config) : Processor(config, nullptr, kelp::DEVICE_MODE) {
        mConsoleConfig = config->GetConfigByName("usb");
        mReceiveConfig = config->GetReceiveConfig();
    }
    int Connect() override { return -1; }
    void DisConnect(int&) override {}
    using Processor::ProcessCmdData;
    void ProcessCmdData(kelp::Command* command) override {
        mCommands.emplace_back(command->mRequest.begin(), command->mRequest.end());
        delete command;
    }
    using Processor::ReadBuffer;

    Commands mCommands;
};

void CutNaively(std::string& buffer, const kelp::ReceiveConfig& how, Commands& commands) {
    const std::string tail(how.tail, how.tail + how.tailLength);
    const auto strip = [&] {
        while (!tail.empty() && buffer.compare(0, tail.size(), tail) == 0)
            buffer.erase(0, tail.size());
    };
    if (buffer.size() < tail.size())
        return;
    if (how.mode == kelp::kReceiveTimeTick)
        commands.push_back(buffer);
    if (how.mode != kelp::kReceiveTail || tail.empty())
        return;
    strip();
    while (buffer.size() > tail.size() && buffer.size() > 2) {
        const size_t p = buffer.find(tail, 1);
        if (p > buffer.size() - 2)
            return;
        commands.push_back(buffer.substr(0, p));
        buffer.erase(0, p + tail.size());
        strip();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    kelp::ConfigManager config;
    kelp::ReceiveConfig& how = *config.GetReceiveConfig();
    how.mode = input.ConsumeIntegralInRange<int>(0, 2);
    const std::string tail = input.ConsumeRandomLengthString(kelp::kMaxTailBytes);
    how.SetTail(reinterpret_cast<const unsigned char*>(tail.data()), static_cast<int>(tail.size()));
    Console console(&config);
    int ends[2];
    KELP_FUZZ_CHECK(pipe2(ends, O_CLOEXEC) == 0);
    const kelp::UniqueFd out(ends[0]), in(ends[1]);
    std::string buffer;
    Commands expected;
    while (input.remaining_bytes() > 0) {
        const std::string piece = input.ConsumeRandomLengthString(4096);
        const auto length = static_cast<int>(piece.size());
        KELP_FUZZ_CHECK(write(in.Get(), piece.data(), piece.size()) == length);
        KELP_FUZZ_CHECK(console.ReadBuffer(out.Get(), length) == length);
        console.ProcessCmdData();
        buffer += piece;
        CutNaively(buffer, how, expected);
        KELP_FUZZ_CHECK(console.mCommands == expected);
    }
    return 0;
}
