#include "support/bench.h"

#include <fnmatch.h>

#include <sstream>

#include "support/wait.h"

namespace kelp::test {

std::string Unsupported(const std::string& request) {
    return request + "\r\nUnsupport command\r\nERROR\r\n";
}

std::string Ok(const std::string& request) {
    return request + "\r\n\r\nOK\r\n";
}

void Bench::Start(bool keepAlive, const std::string& receiveMode,
                  const std::vector<std::string>& environment) {
    CheckUnchanged();
    mKelp.reset();
    const auto console = [](const std::string& name, const std::string& route) {
        return "\"" + name + R"(": {"active": true, "route": ")" + route + "\"";
    };
    const auto peer = [&](const std::string& name, const std::string& path) {
        return "\"" + name + R"(": {"keep-alive": )" + (keepAlive ? "true" : "false") +
               R"(, "timeout": 1, "path": ")" + path + "\"}";
    };
    const std::string config =
        R"({"console": {)" + console("usb", mUsb.Device()) + "}, " +
        console("uart", mUart.Device()) + "}, " + console("tcp", "127.0.0.1") + R"(, "port": )" +
        std::to_string(mPort) + R"(}}, "receive-mode": )" + receiveMode +
        R"(, "module": {"support-modules": ["wcn", "bench", "kelp", "pcba", "fm"], "interaction": {)" +
        peer("modem", mDir.Path("modem")) + ", " + peer("pcba", mDir.Path("pcba")) + ", " +
        peer("fm", mDir.Path("fm")) + ", " + peer("wcn", mDir.Path("wcn")) + ", " +
        peer("bench", mDefaultPath) +
        R"(}, "whitelist": {"wcn": ["AT+W"], "bench": ["AT+B"], "kelp": ["ZAT+"], "pcba": ["AT+P"],
                          "fm": ["AT+F"], "modem": ["AT+M"]},
            "test-commands": {"wcn": ["WT"], "bench": ["BT"]}}})";
    mDir.Write("kelp.json", config);
    mKelp = std::make_unique<KelpProcess>(
        std::vector<std::string>{"--file=" + mDir.Path("kelp.json")}, environment);
    {
        // The TCP console starts last.
        Station ready = Tcp();
        ASSERT_TRUE(ready.Answers("READY?\r\n", "READY?"));
        mDescriptors = mKelp->Descriptors() - 1;
        mThreads = mKelp->Threads();
    }
    ASSERT_TRUE(WaitUntil([&] { return mKelp->Descriptors() <= mDescriptors; }));
}

void Bench::Restart() {
    mKelp.reset();
    mKelp =
        std::make_unique<KelpProcess>(std::vector<std::string>{"--file=" + mDir.Path("kelp.json")});
    // Any consoles may be on now, so the counts at the start are unknown.
    EXPECT_TRUE(mKelp->WaitForLog(" server side: fd<"));
    mDescriptors = mThreads = 1000;
}

void Bench::StartWith(const std::string& old, const std::string& text, bool keepAlive) {
    Start(keepAlive);
    std::string file = mDir.Read("kelp.json");
    for (size_t at = 0; (at = file.find(old, at)) != file.npos; at += text.size()) {
        file.replace(at, old.size(), text);
    }
    mDir.Write("kelp.json", file);
    Restart();
}

std::unique_ptr<Peer> Bench::Daemon(const std::string& name, Peer::Script script) const {
    return std::make_unique<Peer>(mDir.Path(name), LocalNamespace::kFilesystem, std::move(script));
}

std::unique_ptr<Peer> Bench::Default(Peer::Script script) const {
    return std::make_unique<Peer>(mDefaultPath, LocalNamespace::kAbstract, std::move(script));
}

void Bench::Switch(Station& local, const std::string& command) {
    const std::string done = command.back() == '0' ? " deactive communication\n" : " active c";
    const size_t before = mKelp->Log().size();
    Command(local, command);
    ASSERT_TRUE(WaitUntil([&] { return mKelp->Log().find(done, before) != std::string::npos; }));
}

void Bench::CheckUnchanged() {
    if (mKelp == nullptr) {
        return;
    }
    WaitUntil([&] { return mKelp->Descriptors() <= mDescriptors && mKelp->Threads() <= mThreads; });
    EXPECT_LE(mKelp->Descriptors(), mDescriptors);
    EXPECT_LE(mKelp->Threads(), mThreads);
    EXPECT_TRUE(mKelp->Running());
    std::istringstream log(mKelp->Log());
    for (std::string line; std::getline(log, line);) {
        EXPECT_EQ(fnmatch("[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9].[0-9][0-9][0-9] "
                          "*[0-9] *[0-9] [DIE] KELP    : [A-Za-z]*: *",
                          line.c_str(), 0),
                  0)
            << line;
    }
}

}  // namespace kelp::test
