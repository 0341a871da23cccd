// Checks that what the daemon does grows no faster than its input. Ends with 1 when something does.
//
// Two measures that say the same on any machine: how much memory is asked for (an exact count), and
// the slope of the processor time over the size on double logarithmic paper: 1 is linear. Each time
// is the least of several tries, because disturbances only ever add to it.

#include <malloc.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "config/configmanager.h"
#include "messager/defaultmessager.h"
#include "messager/formatter.h"
#include "messager/messagermanager.h"
#include "platform/localaddress.h"
#include "platform/localsocketclient.h"
#include "platform/uniquefd.h"
#include "processor/command.h"
#include "processor/framebuffer.h"
#include "stats.h"

namespace {

std::atomic<uint64_t> sAllocatedBytes{0};

}  // namespace

void* operator new(size_t size) {
    sAllocatedBytes.fetch_add(size, std::memory_order_relaxed);
    void* const memory = malloc(size);
    if (memory == nullptr) {
        abort();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    free(memory);
}

namespace kelp::bench {
namespace {

constexpr double kMaxSlope = 1.1;
constexpr int kMinTries = 3;
constexpr int kMaxTries = 12;
constexpr double kPatienceNs = 4e8;  // spent on the tries of one size at most
constexpr std::string_view kTail = "\r\n";

double CpuNs() {
    struct timespec used;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e9 + static_cast<double>(used.tv_nsec);
}

struct Growth {
    const char* name;
    std::vector<size_t> sizes;
    // Prepares the work for one size; what it returns is what is measured. It returns how much it
    // has done, so that no part of it can be left out unnoticed.
    std::function<std::function<size_t()>(size_t size)> prepare;
    std::function<size_t(size_t size)> expected;
};

// The slope over all sizes, or over the larger half of them where that is more: what a step costs
// whatever the size must not hide how the rest of it grows.
double Steepness(const std::vector<double>& x, const std::vector<double>& y) {
    const auto half = static_cast<std::ptrdiff_t>((x.size() - 1) / 2);
    return std::max(LogLogSlope(x, y),
                    LogLogSlope({x.begin() + half, x.end()}, {y.begin() + half, y.end()}));
}

bool Check(const Growth& growth) {
    std::vector<double> sizes;
    std::vector<double> times;
    std::vector<double> bytes;
    for (const size_t size : growth.sizes) {
        const std::function<size_t()> work = growth.prepare(size);
        double least = 0;
        double spent = 0;
        double allocated = 0;
        for (int i = 0; i < kMaxTries && (i < kMinTries || spent < kPatienceNs); ++i) {
            const uint64_t before = sAllocatedBytes;
            const double begin = CpuNs();
            const size_t done = work();
            const double took = CpuNs() - begin;
            const auto asked = static_cast<double>(sAllocatedBytes - before);
            allocated = i == 0 ? asked : std::min(allocated, asked);
            if (done != growth.expected(size)) {
                printf("%-24s WRONG: %zu done instead of %zu\n", growth.name, done,
                       growth.expected(size));
                return false;
            }
            least = i == 0 ? took : std::min(least, took);
            spent += took;
        }
        sizes.push_back(static_cast<double>(size));
        times.push_back(least);
        bytes.push_back(allocated + 1);
    }
    const double time = Steepness(sizes, times);
    const double memory = Steepness(sizes, bytes);
    const bool good = time <= kMaxSlope && memory <= kMaxSlope;
    printf("%-24s %8zu to %8zu: slope of the time %5.2f, of the memory asked for %5.2f  %s\n",
           growth.name, growth.sizes.front(), growth.sizes.back(), time, memory,
           good ? "ok" : "TOO STEEP");
    return good;
}

// Feeds `stream` in pieces and counts the commands, as a console does.
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

constexpr std::string_view kSmallCommand = "AT+WIFI?\r\n";

std::function<size_t()> Burst(size_t size) {
    auto stream = std::make_shared<std::string>();
    while (stream->size() + kSmallCommand.size() <= size) {
        *stream += kSmallCommand;
    }
    return [stream] { return Frame(*stream, 65535); };
}

std::function<size_t()> LongLine(size_t size) {
    auto stream = std::make_shared<std::string>(size - kTail.size(), 'x');
    *stream += kTail;
    return [stream] { return Frame(*stream, 64); };
}

std::function<size_t()> FormatAnswer(size_t size) {
    auto answer = std::make_shared<std::string>(size, 'x');
    return [answer] {
        constexpr std::string_view kRequest = "AT+WIFI?";
        Command command;
        command.mRequest.assign(kRequest.begin(), kRequest.end());
        Formatter formatter;
        formatter.SetResult(0);
        formatter.SetRequest(kRequest.data(), static_cast<int>(kRequest.size()));
        formatter.SetResponse(answer->data(), static_cast<int>(answer->size()));
        formatter.GetResponse(&command);
        return static_cast<size_t>(
            std::count(command.mResponse.begin(), command.mResponse.end(), 'x'));
    };
}

// A peer that answers every request with one byte sequence of `size`.
class AnsweringPeer {
  public:
    AnsweringPeer(std::string path, size_t size) : mPath(std::move(path)), mAnswer(size, 'x') {
        unlink(mPath.c_str());
        LocalAddress address;
        MakeLocalAddress(mPath, LocalNamespace::kFilesystem, address);
        mListener.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (bind(mListener.Get(), address.Get(), address.length) != 0 ||
            listen(mListener.Get(), 1) != 0) {
            perror("bind");
            abort();
        }
        mThread = std::thread([this] { Serve(); });
    }
    ~AnsweringPeer() {
        shutdown(mListener.Get(), SHUT_RDWR);
        mThread.join();
        unlink(mPath.c_str());
    }
    AnsweringPeer(const AnsweringPeer&) = delete;
    AnsweringPeer& operator=(const AnsweringPeer&) = delete;

  private:
    void Serve() {
        const UniqueFd client(accept(mListener.Get(), nullptr, nullptr));
        char request[64];
        while (read(client.Get(), request, sizeof(request)) > 0) {
            size_t sent = 0;
            while (sent < mAnswer.size()) {
                const ssize_t n =
                    send(client.Get(), mAnswer.data() + sent, mAnswer.size() - sent, MSG_NOSIGNAL);
                if (n <= 0) {
                    return;
                }
                sent += static_cast<size_t>(n);
            }
        }
    }

    const std::string mPath;
    const std::string mAnswer;
    UniqueFd mListener;
    std::thread mThread;
};

std::function<size_t()> ReceiveAnswer(size_t size) {
    struct Pair {
        explicit Pair(size_t bytes)
            : path("/tmp/kelp-growth-" + std::to_string(getpid())),
              peer(path, bytes),
              client(path) {
            client.sopen();
        }
        ~Pair() { client.sclose(); }
        const std::string path;
        AnsweringPeer peer;
        LocalSocketClient client;
    };
    auto pair = std::make_shared<Pair>(size);
    return [pair, size] {
        std::vector<char> answer;
        pair->client.ssend({'?'});
        // A short answer may come in several pieces; the long ones must come in one.
        while (answer.size() < size && pair->client.sreceive(answer, {5, 0}) == 0) {
        }
        return answer.size();
    };
}

// Modules with white lists that nothing matches, and a manager that asks them all.
struct Modules {
    Modules(size_t count, size_t entries) {
        config.GetModuleConfigs()->clear();
        for (size_t i = 0; i < count; ++i) {
            const std::string name = "module" + std::to_string(i);
            config.ConstructModuleConfig(name);
            ModuleInfo* const record = config.GetModuleByName(name);
            for (size_t entry = 0; entry < entries; ++entry) {
                record->whiteList.push_back("AT+ENTRY" + std::to_string(entry));
            }
        }
        manager = std::make_unique<MessagerManager>(&config);
    }
    // How many of `times` requests no module has taken.
    size_t Refused(size_t times) {
        constexpr std::string_view kRequest = "AT+ENTRX=1";
        Command command;
        command.mRequest.assign(kRequest.begin(), kRequest.end());
        size_t refused = 0;
        for (size_t i = 0; i < times; ++i) {
            refused += manager->HandleRequest(&command, nullptr) == kErrorUnsupportCommand ? 1 : 0;
        }
        return refused;
    }
    ConfigManager config;
    std::unique_ptr<MessagerManager> manager;
};

constexpr size_t kRequests = 2000;

std::function<size_t()> MatchList(size_t entries) {
    auto modules = std::make_shared<Modules>(1, entries);
    return [modules] { return modules->Refused(kRequests); };
}

std::function<size_t()> AskModules(size_t count) {
    auto modules = std::make_shared<Modules>(count, 3);
    return [modules] { return modules->Refused(kRequests); };
}

std::vector<size_t> Steps(size_t first, size_t last, size_t factor) {
    std::vector<size_t> sizes;
    for (size_t size = first; size <= last; size *= factor) {
        sizes.push_back(size);
    }
    return sizes;
}

int Main() {
    // What one try has freed the next one reuses: the price of fresh pages is the kernel's.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
    const auto same = [](size_t size) { return size; };
    const auto one = [](size_t) -> size_t { return 1; };
    const auto requests = [](size_t) { return kRequests; };
    // Dense where an answer takes more than one read: up to there it is received in one piece.
    const std::vector<size_t> answers = {1,         16,      256,     4096,    64 << 10,
                                         256 << 10, 1 << 20, 4 << 20, 16 << 20};
    const Growth growths[] = {
        {"burst of commands", Steps(64 << 10, 16 << 20, 4), Burst,
         [](size_t size) { return size / kSmallCommand.size(); }},
        {"line in small pieces", Steps(64 << 10, 16 << 20, 4), LongLine, one},
        {"answer from a peer", answers, ReceiveAnswer, same},
        {"answer formatted", answers, FormatAnswer, same},
        {"white list", Steps(10, 10000, 10), MatchList, requests},
        {"modules", {1, 5, 20, 50, 100, 200}, AskModules, requests},
    };
    int failures = 0;
    for (const Growth& growth : growths) {
        failures += Check(growth) ? 0 : 1;
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace
}  // namespace kelp::bench

int main(int, char** argv) {
    // Records would be most of the time that is measured, and the filter is read while a program
    // loads.
    if (getenv("ANDROID_LOG_TAGS") == nullptr) {
        setenv("ANDROID_LOG_TAGS", "*:S", 1);
        execv("/proc/self/exe", argv);
    }
    return kelp::bench::Main();
}
