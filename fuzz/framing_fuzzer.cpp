// Any bytes, in any pieces, with any terminator and in every mode: a console cuts the same commands
// as a naive implementation on the whole buffer.

#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "check.h"
#include "config/configmanager.h"
#include "processor/command.h"
#include "processor/processor.h"
#include "support/cutnaively.h"

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    kelp::ConfigManager config;
    kelp::ReceiveConfig& how = *config.GetReceiveConfig();
    how.mode = input.ConsumeIntegralInRange<int>(0, 2);
    const std::string tail = input.ConsumeRandomLengthString(kelp::kMaxTailBytes);
    std::copy(tail.begin(), tail.end(), how.tail);
    how.tailLength = static_cast<int>(tail.size());
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
        if (how.mode == kelp::kReceiveTimeTick && buffer.size() >= tail.size()) {
            expected.push_back(buffer);
        } else if (how.mode == kelp::kReceiveTail && !tail.empty()) {
            kelp::test::CutNaively(buffer, tail, expected);
        }
        KELP_FUZZ_CHECK(console.mCommands == expected);
    }
    return 0;
}
