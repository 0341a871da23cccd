#include "platform/localsocketclient.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/peer.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace kelp {
namespace {

using test::Peer;
using Reopen = LocalSocketClient::Reopen;

class LocalSocket : public testing::Test {
  protected:
    void Serve(Peer::Script script = Peer::Echo("p"),
               LocalNamespace space = LocalNamespace::kFilesystem) {
        mPeer.reset();
        mPeer = std::make_unique<Peer>(mPath, space, std::move(script));
    }
    static std::vector<char> Bytes(const std::string& text) { return {text.begin(), text.end()}; }
    // The result, and behind it what came.
    static std::string Receive(LocalSocketClient& client, int milliseconds = 0) {
        struct timeval timeout = {milliseconds / 1000, milliseconds % 1000 * 1000};
        std::vector<char> data;
        const int result = client.sreceive(data, timeout);
        return std::to_string(result) + std::string(data.begin(), data.end());
    }

    const TempDir mDir;
    const std::string mPath = mDir.Path("peer");
    std::unique_ptr<Peer> mPeer;
};

TEST_F(LocalSocket, ExchangesAndTimesOut) {
    for (const LocalNamespace space : {LocalNamespace::kFilesystem, LocalNamespace::kAbstract}) {
        Serve(Peer::Echo("p"), space);
        LocalSocketClient client(mPath);
        EXPECT_EQ(client.ssend(Bytes("never opened")), 6005);
        EXPECT_EQ(Receive(client), "6005");
        ASSERT_NE(client.sopen(), -1);
        EXPECT_EQ(client.ssend(Bytes("a")), 0);
        EXPECT_EQ(Receive(client), "0<p:a>");
        const int64_t begin = MonotonicMs();
        EXPECT_EQ(Receive(client, 150), "6002");
        EXPECT_GE(MonotonicMs() - begin, 150);
        client.sclose();
        EXPECT_EQ(Receive(client), "6005");
    }
}

TEST_F(LocalSocket, ALongAnswerIsReadOnUntilItIsQuiet) {
    const std::string piece(5000, 'x');
    Serve([&](const std::string&) { return Peer::Answer{piece}; });
    LocalSocketClient client(mPath);
    client.sopen();
    client.ssend(Bytes("a"));
    std::thread more([&] {
        EXPECT_TRUE(mPeer->WaitForRequest("a"));
        EXPECT_TRUE(mPeer->Push(piece) && mPeer->Push(piece));
    });
    EXPECT_EQ(Receive(client).size(), 1 + 3 * piece.size());
    more.join();
}

TEST_F(LocalSocket, ReopensWhenItNextSends) {
    LocalSocketClient client(mPath);
    EXPECT_EQ(client.sopen(), -1);
    EXPECT_EQ(Receive(client), "6005");
    Serve([](const std::string&) { return Peer::Answer{"", true}; });
    ASSERT_NE(client.sopen(), -1);
    EXPECT_EQ(client.ssend(Bytes("a")), 0);
    EXPECT_EQ(Receive(client), "1");
    mPeer.reset();
    EXPECT_EQ(client.ssend(Bytes("b")), 6005);
    EXPECT_EQ(Receive(client), "6005");
    Serve();
    EXPECT_EQ(client.ssend(Bytes("c")), 0);
    EXPECT_EQ(Receive(client), "0<p:c>");
    Serve();  // a peer that died unnoticed: one send, one new connection
    EXPECT_EQ(client.ssend(Bytes("d")), 0);
    EXPECT_EQ(Receive(client), "0<p:d>");
    ASSERT_TRUE(mPeer->Push("late"));
    EXPECT_TRUE(test::WaitUntil([&] { return client.Discard() == 4; }));
}

TEST_F(LocalSocket, AReaderReopensByItself) {
    Serve();
    LocalSocketClient client(mPath, Reopen::kOnReceive);
    ASSERT_NE(client.sopen(), -1);
    mPeer.reset();
    EXPECT_EQ(Receive(client), "1");
    client.sclose();  // of the lost connection: it stays to be reopened
    const int64_t begin = MonotonicMs();
    EXPECT_EQ(Receive(client, 300), "6002");
    EXPECT_GE(MonotonicMs() - begin, 300);
    Serve();
    EXPECT_EQ(client.ssend(Bytes("a")), 0);
    client.sclose();  // not of the connection that the request has reopened
    EXPECT_EQ(Receive(client), "0<p:a>");
}

}  // namespace
}  // namespace kelp
