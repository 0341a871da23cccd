// The cost of each step of the command path, and its growth with the input: Google Benchmark fits a
// complexity to each; the exit status is 1 when one is worse than N log N. Redirect standard error,
// where the log records go, to /dev/null.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "config/configmanager.h"
#include "messager/formatter.h"
#include "messager/messagermanager.h"
#include "platform/localsocketclient.h"
#include "platform/log.h"
#include "processor/command.h"
#include "processor/framebuffer.h"
#include "support/peer.h"
#include "support/tempdir.h"

namespace kelp {
namespace {

constexpr std::string_view kTail = "\r\n";
constexpr std::string_view kRequest = "AT+WIFI=0123456";

// Feeds `stream` in pieces, as a console does. Returns the number of commands.
size_t Frame(const std::string& stream, size_t piece) {
    FrameBuffer buffer;
    size_t commands = 0;
    for (size_t at = 0; at < stream.size(); at += piece) {
        buffer.Append(stream.data() + at, std::min(piece, stream.size() - at));
        for (std::string_view line; buffer.CutLine(kTail, line);) {
            ++commands;
        }
    }
    return commands;
}

void FrameBurst(benchmark::State& state) {
    const auto commands = static_cast<size_t>(state.range(0));
    std::string stream;
    for (size_t i = 0; i < commands; ++i) {
        stream.append(kRequest).append(kTail);
    }
    for ([[maybe_unused]] auto _ : state) {
        if (Frame(stream, stream.size()) != commands) {
            state.SkipWithError("commands lost");
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(FrameBurst)->Arg(1)->Arg(16)->RangeMultiplier(4)->Range(256, 256 << 10)->Complexity();

void FrameLongLine(benchmark::State& state) {
    const std::string stream = std::string(static_cast<size_t>(state.range(0)), 'x') + "\r\n";
    for ([[maybe_unused]] auto _ : state) {
        if (Frame(stream, 64) != 1) {
            state.SkipWithError("line lost");
        }
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(FrameLongLine)->RangeMultiplier(4)->Range(4 << 10, 4 << 20)->Complexity();

// No white list matches the request, so the manager asks every module.
void Refuse(benchmark::State& state, bool byModules) {
    const auto size = static_cast<size_t>(state.range(0));
    const size_t modules = byModules ? size : 1, entries = byModules ? 3 : size;
    ConfigManager config;
    config.GetModuleConfigs()->clear();
    for (size_t i = 0; i < modules; ++i) {
        const std::string name = "module" + std::to_string(i);
        config.ConstructModuleConfig(name);
        for (size_t entry = 0; entry < entries; ++entry) {
            config.GetModuleByName(name)->whiteList.push_back("AT+WIFJ" + std::to_string(entry));
        }
    }
    MessagerManager manager(&config);
    Command command;
    command.mRequest.assign(kRequest.begin(), kRequest.end());
    for ([[maybe_unused]] auto _ : state) {
        if (manager.HandleRequest(&command, nullptr) != kErrorUnsupportCommand) {
            state.SkipWithError("not refused");
        }
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK_CAPTURE(Refuse, modules, true)->RangeMultiplier(4)->Range(1, 256)->Complexity();
BENCHMARK_CAPTURE(Refuse, list, false)->RangeMultiplier(4)->Range(4, 16 << 10)->Complexity();

void ReceiveFromPeer(benchmark::State& state) {
    const auto size = static_cast<size_t>(state.range(0));
    const test::TempDir directory;
    const test::Peer peer(
        directory.Path("peer"), LocalNamespace::kFilesystem,
        [&](const std::string&) { return test::Peer::Answer{std::string(size, 'x')}; });
    LocalSocketClient client(directory.Path("peer"));
    client.sopen();
    for ([[maybe_unused]] auto _ : state) {
        std::vector<char> answer;
        client.ssend({'?'});
        while (answer.size() < size && client.sreceive(answer, {5, 0}) == LocalResult::kDone) {
        }
        if (answer.size() != size) {
            state.SkipWithError("answer lost");
        }
    }
    client.sclose();
    state.SetComplexityN(state.range(0));
}
BENCHMARK(ReceiveFromPeer)->RangeMultiplier(4)->Range(64 << 10, 16 << 20)->Complexity();

void Format(benchmark::State& state) {
    const std::string answer(static_cast<size_t>(state.range(0)), 'x');
    Command command;
    command.mRequest.assign(kRequest.begin(), kRequest.end());
    for ([[maybe_unused]] auto _ : state) {
        Formatter formatter;
        formatter.SetResult(0);
        formatter.SetRequest(kRequest.data(), static_cast<int>(kRequest.size()));
        formatter.SetResponse(answer.data(), static_cast<int>(answer.size()));
        formatter.GetResponse(&command);
        benchmark::DoNotOptimize(command.mResponse.data());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(Format)->RangeMultiplier(4)->Range(64, 256 << 10)->Complexity();

// For the other benchmarks: log records would dominate their results.
constexpr char kNoRecords[] = "*:S";

class Filter {
  public:
    explicit Filter(const char* list) { SetLogFilter(list); }
    ~Filter() { SetLogFilter(kNoRecords); }
};

void LogRecord(benchmark::State& state, const char* filter) {
    const Filter held(filter);
    const std::string name = "local";
    for ([[maybe_unused]] auto _ : state) {
        KLOG(kLogDebug) << name << "-->" << 17 << " charactor(s) received. error->" << 0;
    }
}
BENCHMARK_CAPTURE(LogRecord, written, "KELP:V");
BENCHMARK_CAPTURE(LogRecord, filtered, "KELP:E");

void LogDump(benchmark::State& state, const char* filter) {
    const Filter held(filter);
    const std::string bytes(static_cast<size_t>(state.range(0)), 'x');
    for ([[maybe_unused]] auto _ : state) {
        DUMPLOG(kLogTag, "Command <<<<<<<", bytes.data(), bytes.size());
    }
}
BENCHMARK_CAPTURE(LogDump, written, "KELP:V")->Arg(17)->Arg(256);
BENCHMARK_CAPTURE(LogDump, filtered, "KELP:E")->Arg(17)->Arg(256);

// Reports the runs and counts those that grow too fast or failed.
class Judge : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const bool steep = run.report_big_o && (run.complexity == benchmark::oNSquared ||
                                                    run.complexity == benchmark::oNCubed);
            if (steep || run.error_occurred) {
                ++mFailures;
                GetOutputStream() << "FAILED: " << run.benchmark_name() << "\n";
            }
        }
    }
    int mFailures = 0;
};

}  // namespace
}  // namespace kelp

int main(int argc, char** argv) {
    // Reuse freed memory in the next repetition: the cost of fresh pages is the kernel's.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
    kelp::SetLogFilter(kelp::kNoRecords);
    benchmark::Initialize(&argc, argv);
    kelp::Judge judge;
    const size_t run = benchmark::RunSpecifiedBenchmarks(&judge);
    return run > 0 && judge.mFailures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
