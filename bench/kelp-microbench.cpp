// The single steps of a command's road, each by itself. Run with standard error to /dev/null: it is
// where the records go that "log record" measures.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "config/configmanager.h"
#include "messager/defaultmessager.h"
#include "messager/formatter.h"
#include "messager/messagermanager.h"
#include "platform/log.h"
#include "processor/command.h"
#include "processor/framebuffer.h"
#include "processor/messagequeue.h"

namespace kelp {
namespace {

constexpr std::string_view kTail = "\r\n";
constexpr std::string_view kRequest = "AT+WIFI=0123456";

void Framing(benchmark::State& state) {
    const auto commands = static_cast<size_t>(state.range(0));
    std::string stream;
    for (size_t i = 0; i < commands; ++i) {
        stream.append(kRequest).append(kTail);
    }
    FrameBuffer buffer;
    for (auto _ : state) {
        buffer.Append(stream.data(), stream.size());
        std::string_view line;
        while (buffer.CutLine(kTail, line)) {
            benchmark::DoNotOptimize(line);
        }
        benchmark::DoNotOptimize(buffer.Size());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(commands));
}
BENCHMARK(Framing)->Arg(1)->Arg(16)->Arg(4096);

// A module with a white list of which the last entry, or none, takes the request.
void Matching(benchmark::State& state, bool hit) {
    ConfigManager config;
    config.GetModuleConfigs()->clear();
    config.ConstructModuleConfig("bench");
    ModuleInfo* const record = config.GetModuleByName("bench");
    for (int64_t i = 1; i < state.range(0); ++i) {
        record->whiteList.push_back("AT+ENTRY" + std::to_string(i));
    }
    record->whiteList.emplace_back(hit ? "AT+WIFI" : "AT+WIFJ");
    MessagerManager manager(&config);
    const std::unique_ptr<Messager> messager(DefaultMessager::Create(&manager, "bench"));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            messager->isSupportCmd(kRequest.data(), static_cast<int>(kRequest.size())));
    }
}
BENCHMARK_CAPTURE(Matching, hit, true)->Arg(3)->Arg(100);
BENCHMARK_CAPTURE(Matching, miss, false)->Arg(3)->Arg(100);

void Format(benchmark::State& state) {
    const std::string answer(static_cast<size_t>(state.range(0)), 'x');
    Command command;
    command.mRequest.assign(kRequest.begin(), kRequest.end());
    for (auto _ : state) {
        Formatter formatter;
        formatter.SetResult(0);
        formatter.SetRequest(kRequest.data(), static_cast<int>(kRequest.size()));
        formatter.SetResponse(answer.data(), static_cast<int>(answer.size()));
        formatter.GetResponse(&command);
        benchmark::DoNotOptimize(command.mResponse.data());
    }
}
BENCHMARK(Format)->Arg(16)->Arg(4096);

// A command's creation, its way through a queue on one thread, and its end.
void QueueUncontended(benchmark::State& state) {
    MessageQueue<Command> queue;
    for (auto _ : state) {
        queue.enqueue(new Command());
        delete queue.dequeue();
    }
}
BENCHMARK(QueueUncontended);

// There and back: two wake-ups of a sleeping thread. Half of it is what one hand-over costs.
void QueueHandOver(benchmark::State& state) {
    MessageQueue<Command> there;
    MessageQueue<Command> back;
    std::thread other([&] {
        for (;;) {
            Command* const command = there.dequeue();
            if (command == nullptr) {
                continue;
            }
            const bool last = command->mClientFd == 0;
            back.enqueue(command);
            if (last) {
                return;
            }
        }
    });
    const auto exchange = [&](Command* command) {
        there.enqueue(command);
        Command* answer;
        do {
            answer = back.dequeue();
        } while (answer == nullptr);
        return answer;
    };
    auto* command = new Command();
    for (auto _ : state) {
        command = exchange(command);
    }
    command->mClientFd = 0;
    delete exchange(command);
    other.join();
}
BENCHMARK(QueueHandOver)->UseRealTime();

// Written or filtered as ANDROID_LOG_TAGS says, which the program reads as it loads.
void LogRecord(benchmark::State& state) {
    const std::string name = "local";
    for (auto _ : state) {
        KLOG(kLogDebug) << name << "-->" << 17 << " charactor(s) received. error->" << 0;
    }
    state.SetLabel(LogEnabled(kLogDebug) ? "written" : "filtered");
}
BENCHMARK(LogRecord);

void LogDump(benchmark::State& state) {
    const std::string bytes(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        DUMPLOG(kLogTag, "Command <<<<<<<", bytes.data(), bytes.size());
    }
    state.SetLabel(LogEnabled(kLogDebug) ? "written" : "filtered");
}
BENCHMARK(LogDump)->Arg(17)->Arg(256);

}  // namespace
}  // namespace kelp

BENCHMARK_MAIN();
