// Whole conversations with the PCBA test daemon: several pending requests; records truncated,
// duplicated, late, damaged or missing; connections that end. The real module, with its thread,
// runs over connections that the fuzzer simulates; a model without threads predicts the answer of
// each request and the connection it is written on.

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "check.h"
#include "config/configmanager.h"
#include "messager/formatter.h"
#include "messager/messagermanager.h"
#include "messager/pcbamessager.h"
#include "platform/localsocketclient.h"
#include "platform/sync.h"
#include "processor/command.h"
#include "processor/processor.h"

namespace {

using kelp::LocalResult;

constexpr int kMaxSteps = 300;
constexpr size_t kMaxPending = 256;
constexpr int32_t kMaxText = 1 << 20;

// The daemon's end of all connections, and the answers that the consoles got. Guarded by mutex.
struct World {
    struct Wire {
        std::string bytes;    // sent by the daemon, not yet received
        bool closed = false;  // by the daemon
        bool shut = false;    // by the module
    };

    bool CanReceive(size_t wire) const {
        return timeOut || wires[wire].closed || wires[wire].shut || !wires[wire].bytes.empty();
    }
    // True when all requests are answered or the module's thread blocks in sreceive.
    bool Settled() const {
        return answers.size() == asked || (receiving && !CanReceive(receivingOn));
    }

    kelp::Mutex mutex;
    kelp::CondVar changed;
    bool absent = false;
    bool timeOut = false;  // of the next receive that waits
    std::vector<Wire> wires;
    std::map<const void*, size_t> wireOf;  // by the client that opened it last
    std::vector<size_t> writtenOn;         // the wire of each request that was written
    bool receiving = false;
    size_t receivingOn = 0;
    size_t asked = 0;
    std::map<const kelp::Command*, size_t> numbers;
    std::map<size_t, std::string> answers;  // by the number of the request
};

World& TheWorld() {
    static auto* world = new World;
    return *world;
}

}  // namespace

namespace kelp {

// Replaces src/platform/localsocketclient.cpp, which the linker then does not take from its
// archive.
int ToErrorCode(LocalResult result) {
    return result == LocalResult::kDone      ? 0
           : result == LocalResult::kTimeOut ? 6002
           : result == LocalResult::kClosed  ? 6005
                                             : 1;
}

LocalSocketClient::LocalSocketClient(std::string path) : mPath(std::move(path)) {}

int LocalSocketClient::sopen(int) {
    World& world = TheWorld();
    MutexLock lock(world.mutex);
    if (world.absent) {
        return -1;
    }
    world.wireOf[this] = world.wires.size();
    world.wires.emplace_back();
    return 1000;
}

LocalResult LocalSocketClient::ssend(const std::vector<char>&, int64_t) {
    World& world = TheWorld();
    MutexLock lock(world.mutex);
    const size_t wire = world.wireOf.at(this);
    if (world.wires[wire].closed || world.wires[wire].shut) {
        return LocalResult::kLost;
    }
    world.writtenOn.push_back(wire);
    return LocalResult::kDone;
}

LocalResult LocalSocketClient::sreceive(std::vector<char>& data, struct timeval) {
    World& world = TheWorld();
    MutexLock lock(world.mutex);
    world.receivingOn = world.wireOf.at(this);
    world.receiving = true;
    while (!world.CanReceive(world.receivingOn)) {
        world.changed.Broadcast();
        world.changed.Wait(world.mutex);
    }
    world.receiving = false;
    World::Wire& wire = world.wires[world.receivingOn];
    if (!wire.bytes.empty()) {
        data.insert(data.end(), wire.bytes.begin(), wire.bytes.end());
        wire.bytes.clear();
        return LocalResult::kDone;
    }
    return wire.closed || wire.shut || !std::exchange(world.timeOut, false) ? LocalResult::kLost
                                                                            : LocalResult::kTimeOut;
}

LocalResult LocalSocketClient::Discard(size_t& dropped) {
    World& world = TheWorld();
    MutexLock lock(world.mutex);
    World::Wire& wire = world.wires[world.wireOf.at(this)];
    dropped += wire.bytes.size();
    wire.bytes.clear();
    return wire.closed || wire.shut ? LocalResult::kLost : LocalResult::kDone;
}

void LocalSocketClient::Shutdown() {
    World& world = TheWorld();
    MutexLock lock(world.mutex);
    world.wires[world.wireOf.at(this)].shut = true;
}

}  // namespace kelp

namespace {

class Console : public kelp::Processor {
  public:
    Console(kelp::ConfigManager* config, kelp::MessagerManager* manager)
        : Processor(config, manager, kelp::SERVER_MODE) {}
    int Connect() override { return -1; }
    void DisConnect(int&) override {}
    void SendDataDone(kelp::Command* command) override {
        World& world = TheWorld();
        kelp::MutexLock lock(world.mutex);
        const auto number = world.numbers.find(command);
        world.answers[number->second].assign(command->mResponse.begin(), command->mResponse.end());
        world.numbers.erase(number);
        delete command;
        world.changed.Broadcast();
    }
};

// Predicts the answer of each request from what the daemon does.
class Model {
  public:
    explicit Model(bool kept) : mKeepAlive(kept) {}

    // The wire that the request is written on, or -1; `open` opens one, or returns -1.
    template <typename Open>
    int Ask(const std::string& request, Open open) {
        mRequests.push_back(request);
        if (mInFlight.size() == kMaxPending) {
            mExpected[mRequests.size() - 1] = Mismatch(request);
            return -1;
        }
        if (mKeepAlive && mKept != -1) {
            Wire& wire = mWires[mKept];
            const bool idle = std::none_of(mInFlight.begin(), mInFlight.end(),
                                           [&](const Asked& a) { return a.wire == mKept; });
            if (idle) {
                wire.bytes.clear();
            }
            mKept = wire.closed ? -1 : mKept;
        }
        const int wire = mKeepAlive && mKept != -1 ? mKept : open();
        mKept = mKeepAlive ? wire : -1;
        mInFlight.push_back({mRequests.size() - 1, wire});
        Settle();
        return wire;
    }
    void Say(int wire, const std::string& bytes) {
        if (!mWires[wire].closed) {
            mWires[wire].bytes += bytes;
        }
        Settle();
    }
    void Close(int wire) {
        mWires[wire].closed = true;
        Settle();
    }
    bool Waits() const { return !mInFlight.empty(); }
    void TimeOut() {
        GiveUp(mInFlight.front().wire);
        Settle();
    }
    bool IsOver(int wire) { return mWires[wire].over; }
    const std::map<size_t, std::string>& Expected() const { return mExpected; }

  private:
    struct Wire {
        std::string bytes;
        bool closed = false;
        bool over = false;
    };
    struct Asked {
        size_t number;
        int wire;
    };

    static std::string Mismatch(const std::string& request) {
        return request + "\r\n\r\n6012\r\n\r\nERROR\r\n";
    }
    static int32_t Int(const std::string& bytes, size_t at) {
        int32_t value;
        memcpy(&value, bytes.data() + at, sizeof(value));
        return value;
    }
    // The field at `at`, empty when a length leads out of the record. Advances `at`.
    static std::string Text(const std::string& record, int64_t& at) {
        if (at < 0 || at + 4 > static_cast<int64_t>(record.size())) {
            return "";
        }
        const int32_t length = Int(record, static_cast<size_t>(at));
        const int64_t begin = at + 4;
        at = begin + length;
        return length < 1 || at > static_cast<int64_t>(record.size())
                   ? ""
                   : record.substr(static_cast<size_t>(begin), static_cast<size_t>(length));
    }
    // Length of the record at the front; 0: incomplete; -1: damaged.
    static int64_t RecordLength(const std::string& bytes) {
        size_t end = 4;
        for (int text = 0; text < 2; ++text) {
            if (bytes.size() < end + 4) {
                return 0;
            }
            if (Int(bytes, end) > kMaxText) {
                return -1;
            }
            end += 4 + static_cast<size_t>(std::max(Int(bytes, end), 0));
        }
        return bytes.size() < end ? 0 : static_cast<int64_t>(end);
    }

    void GiveUp(int wire) {
        mWires[wire].over = true;
        mKept = mKept == wire ? -1 : mKept;
    }

    // Answers all requests that can be answered, in order.
    void Settle() {
        for (; !mInFlight.empty(); mInFlight.pop_front()) {
            const Asked asked = mInFlight.front();
            const std::string& request = mRequests[asked.number];
            std::string& answer = mExpected[asked.number];
            answer = Mismatch(request);
            if (asked.wire == -1 || mWires[asked.wire].over) {
                continue;
            }
            Wire& wire = mWires[asked.wire];
            const int64_t length = RecordLength(wire.bytes);
            if (length == 0 && !wire.closed) {
                mExpected.erase(asked.number);
                return;
            }
            if (length <= 0) {
                GiveUp(asked.wire);
                continue;
            }
            const std::string record = wire.bytes.substr(0, static_cast<size_t>(length));
            wire.bytes.erase(0, record.size());
            int64_t at = 4;
            const std::string echo = Text(record, at), text = Text(record, at);
            if (echo.substr(0, request.size()) != request) {
                mKept = mKept == asked.wire ? -1 : mKept;
                continue;
            }
            kelp::Formatter formatter;
            formatter.SetResult(Int(record, 0));
            formatter.SetRequest(echo.data(), static_cast<int>(echo.size()));
            formatter.SetResponse(text.data(), static_cast<int>(text.size()));
            kelp::Command command;
            command.mRequest.assign(request.begin(), request.end());
            formatter.GetResponse(&command);
            answer.assign(command.mResponse.begin(), command.mResponse.end());
        }
    }

    const bool mKeepAlive;
    std::vector<std::string> mRequests;
    std::map<size_t, std::string> mExpected;
    std::deque<Asked> mInFlight;
    std::map<int, Wire> mWires;  // by number; an unknown one is open and empty
    int mKept = -1;              // takes the next request
};

std::string Int(int32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

// One run: the real module and the model both do each step of the input.
class Conversation {
  public:
    Conversation(const uint8_t* data, size_t size, bool kept, kelp::PCBAMessager* module,
                 Console* console)
        : mData(data), mSize(size), mModule(module), mConsole(console), mModel(kept) {}

    void Run() {
        for (int steps = 0; mSize > 0 && steps < kMaxSteps; ++steps) {
            Step();
            Compare();
        }
        for (size_t wire = 0; wire < mSaid.size(); ++wire) {
            Close(static_cast<int>(wire));
        }
        Compare();
        KELP_FUZZ_CHECK(!mModel.Waits());
        Forget(mModule, mConsole);
    }

    // Resets the module to no connection, and empties the world.
    static void Forget(kelp::PCBAMessager* module, Console* console) {
        World& world = TheWorld();
        auto* command = new kelp::Command;
        {
            kelp::MutexLock lock(world.mutex);
            for (World::Wire& wire : world.wires) {
                wire.closed = true;
            }
            world.absent = true;
            world.numbers[command] = world.asked++;
        }
        module->HandleMessager(command, console);
        kelp::MutexLock lock(world.mutex);
        while (!world.Settled()) {
            world.changed.Wait(world.mutex);
        }
        world.wires.clear();
        world.wireOf.clear();
        world.writtenOn.clear();
        world.answers.clear();
        world.asked = 0;
        world.absent = false;
    }

  private:
    // One connection, as the daemon sees it.
    struct Said {
        std::deque<std::string> requests;  // not answered
        std::string last, rest;            // the last record; the rest of one that was cut
    };

    uint8_t Next() {
        if (mSize == 0) {
            return 0;
        }
        --mSize;
        return *mData++;
    }

    void Step() {
        const uint8_t step = Next();
        const int wire = mSaid.empty() ? -1 : static_cast<int>((step >> 4) % mSaid.size());
        switch (step % 12) {
            case 0:
            case 1:
                return Ask(1);
            case 2:
                return Ask(70);
            case 3:
                mAbsent = !mAbsent;
                return;
            case 4:
                if (mModel.Waits()) {
                    kelp::MutexLock lock(mWorld.mutex);
                    mWorld.timeOut = true;
                    mModel.TimeOut();
                }
                return;
        }
        if (wire == -1) {
            return;
        }
        Said& said = mSaid[static_cast<size_t>(wire)];
        switch (step % 12) {
            case 5:
                return Say(wire, NextRecord(said));
            case 6: {
                const std::string record = NextRecord(said);
                return Say(wire, record + NextRecord(said));
            }
            case 7: {
                const std::string record = NextRecord(said);
                const size_t length = std::min<size_t>(Next(), record.size());
                Say(wire, record.substr(0, length));
                said.rest = record.substr(length);
                return;
            }
            case 8:
                return Say(wire, said.last);
            case 9: {
                std::string bytes;
                for (uint8_t length = Next() % 64; length > 0 && mSize > 0; --length) {
                    bytes.push_back(static_cast<char>(Next()));
                }
                return Say(wire, bytes);
            }
            case 10:
                if (!said.requests.empty()) {
                    said.requests.pop_front();
                }
                return;
            default:
                return Close(wire);
        }
    }

    void Ask(int times) {
        const std::string request = std::string("AT+P") + static_cast<char>('a' + Next() % 4) + "?";
        for (; times > 0; --times) {
            auto* command = new kelp::Command;
            command->mRequest.assign(request.begin(), request.end());
            size_t written;
            {
                kelp::MutexLock lock(mWorld.mutex);
                mWorld.absent = mAbsent;
                mWorld.numbers[command] = mWorld.asked++;
                written = mWorld.writtenOn.size();
            }
            mModule->HandleMessager(command, mConsole);
            const int wire = mModel.Ask(request, [&] {
                if (mAbsent) {
                    return -1;
                }
                mSaid.emplace_back();
                return static_cast<int>(mSaid.size()) - 1;
            });
            kelp::MutexLock lock(mWorld.mutex);
            KELP_FUZZ_CHECK(mWorld.wires.size() == mSaid.size());
            KELP_FUZZ_CHECK(mWorld.writtenOn.size() == written + (wire == -1 ? 0 : 1));
            if (wire != -1) {
                KELP_FUZZ_CHECK(mWorld.writtenOn.back() == static_cast<size_t>(wire));
                mSaid[static_cast<size_t>(wire)].requests.push_back(request);
            }
            while (!mWorld.Settled()) {
                mWorld.changed.Wait(mWorld.mutex);
            }
        }
    }

    // The rest of a record that was cut, else a correct one for the oldest request, with a unique
    // text.
    std::string NextRecord(Said& said) {
        if (!said.rest.empty()) {
            return std::exchange(said.rest, "");
        }
        if (said.requests.empty()) {
            return "";
        }
        const std::string request = said.requests.front();
        said.requests.pop_front();
        const std::string text = "v" + std::to_string(++mRecords);
        said.last = Int(0) + Int(static_cast<int32_t>(request.size())) + request +
                    Int(static_cast<int32_t>(text.size())) + text;
        return said.last;
    }

    void Say(int wire, const std::string& bytes) {
        {
            kelp::MutexLock lock(mWorld.mutex);
            World::Wire& to = mWorld.wires[static_cast<size_t>(wire)];
            KELP_FUZZ_CHECK(to.shut == mModel.IsOver(wire));
            if (to.closed || to.shut) {
                return;
            }
            to.bytes += bytes;
        }
        mModel.Say(wire, bytes);
    }

    void Close(int wire) {
        {
            kelp::MutexLock lock(mWorld.mutex);
            mWorld.wires[static_cast<size_t>(wire)].closed = true;
        }
        mModel.Close(wire);
    }

    void Compare() {
        kelp::MutexLock lock(mWorld.mutex);
        mWorld.changed.Broadcast();
        while (!mWorld.Settled()) {
            mWorld.changed.Wait(mWorld.mutex);
        }
        KELP_FUZZ_CHECK(mWorld.answers == mModel.Expected());
    }

    const uint8_t* mData;
    size_t mSize;
    kelp::PCBAMessager* const mModule;
    Console* const mConsole;
    World& mWorld = TheWorld();
    Model mModel;
    bool mAbsent = false;
    int mRecords = 0;
    std::vector<Said> mSaid;  // by the number of the wire
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kelp::ConfigManager* const config = [] {
        auto* made = new kelp::ConfigManager;
        made->GetModuleConfigs()->clear();
        for (const char* name : {"pcba", "fm"}) {
            made->ConstructModuleConfig(name);
            made->GetModuleByName(name)->keepAlive = name == std::string("pcba");
        }
        return made;
    }();
    static kelp::MessagerManager* const manager = new kelp::MessagerManager(config);
    static auto* const console = new Console(config, manager);
    static auto* const kept = new kelp::PCBAMessager(manager, "pcba");
    static auto* const perRequest = new kelp::PCBAMessager(manager, "fm");
    static const bool started = (Conversation::Forget(kept, console), true);
    if (started && size > 0) {
        const bool keep = data[0] % 4 != 0;
        Conversation(data + 1, size - 1, keep, keep ? kept : perRequest, console).Run();
    }
    return 0;
}
