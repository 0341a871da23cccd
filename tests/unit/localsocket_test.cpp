#include "platform/localsocketclient.h"

#include <gtest/gtest.h>

#include "config/configmanager.h"
#include "messager/messagermanager.h"
#include "platform/clock.h"
#include "support/logcapture.h"
#include "support/peer.h"
#include "support/tempdir.h"

namespace kelp {
namespace {

using test::Peer;

class LocalSocket : public testing::Test {
  protected:
    void Serve() {
        mPeer = std::make_unique<Peer>(mPath, LocalNamespace::kFilesystem, Peer::Echo("p"));
    }
    static std::vector<char> Bytes(const std::string& text) { return {text.begin(), text.end()}; }
    // The error code, and behind it what came.
    static std::string Receive(LocalSocketClient& client, int milliseconds = 0) {
        struct timeval timeout = {milliseconds / 1000, milliseconds % 1000 * 1000};
        std::vector<char> data;
        const int result = ToErrorCode(client.sreceive(data, timeout));
        return std::to_string(result) + std::string(data.begin(), data.end());
    }

    const TempDir mDir;
    const std::string mPath = mDir.Path("peer");
    std::unique_ptr<Peer> mPeer;
};

TEST_F(LocalSocket, AnOpeningReplacesOnlyWhenItStandsAndTheLastBytesAreReceived) {
    LocalSocketClient client(mPath);
    EXPECT_EQ(client.ssend(Bytes("never opened")), LocalResult::kClosed);
    EXPECT_EQ(Receive(client), "6005");
    Serve();
    ASSERT_NE(client.sopen(), -1);
    const int64_t begin = MonotonicMs();
    EXPECT_EQ(Receive(client, 150), "6002");
    EXPECT_GE(MonotonicMs() - begin, 150);
    ASSERT_EQ(rename(mPath.c_str(), (mPath + "2").c_str()), 0);
    EXPECT_EQ(client.sopen(), -1);
    EXPECT_EQ(client.ssend(Bytes("a")), LocalResult::kDone);
    EXPECT_EQ(Receive(client), "0<p:a>");
    ASSERT_TRUE(mPeer->Push("bye"));
    mPeer.reset();
    EXPECT_EQ(client.ssend(Bytes("b")), LocalResult::kLost);
    EXPECT_EQ(Receive(client), "0bye");
    EXPECT_EQ(Receive(client), "1");
}

TEST_F(LocalSocket, AModuleThatIsDestroyedLogsNoError) {
    Serve();
    ConfigManager config;
    config.GetModuleByName("modem")->path = mPath;
    LogCapture log;
    std::make_unique<MessagerManager>(&config).reset();
    for (const std::string& record : log.Take()) {
        EXPECT_NE(record[0], 'E') << record;
    }
}

}  // namespace
}  // namespace kelp
