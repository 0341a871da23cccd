#include "platform/localsocketclient.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <thread>

#include "messager/peeranswer.h"
#include "platform/clock.h"
#include "support/peer.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace kelp {
namespace {

using test::Peer;

class LocalSocket : public testing::Test {
  protected:
    void Serve(Peer::Script script = Peer::Echo("p"),
               LocalNamespace space = LocalNamespace::kFilesystem) {
        mPeer.reset();
        mPeer = std::make_unique<Peer>(mPath, space, std::move(script));
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

TEST_F(LocalSocket, OneConnectionFromItsOpeningToItsEnd) {
    for (const LocalNamespace space : {LocalNamespace::kFilesystem, LocalNamespace::kAbstract}) {
        LocalSocketClient client(mPath);
        EXPECT_EQ(client.sopen(), -1);
        size_t dropped = 0;
        EXPECT_EQ(client.ssend(Bytes("never opened")), LocalResult::kClosed);
        EXPECT_EQ(client.Discard(dropped), LocalResult::kClosed);
        EXPECT_EQ(Receive(client), "6005");
        Serve(Peer::Echo("p"), space);
        ASSERT_NE(client.sopen(), -1);
        EXPECT_EQ(client.ssend(Bytes("a")), LocalResult::kDone);
        EXPECT_EQ(Receive(client), "0<p:a>");
        const int64_t begin = MonotonicMs();
        EXPECT_EQ(Receive(client, 150), "6002");
        EXPECT_GE(MonotonicMs() - begin, 150);
        ASSERT_TRUE(mPeer->Push("late"));
        EXPECT_TRUE(test::WaitUntil(
            [&] { return client.Discard(dropped) == LocalResult::kDone && dropped == 4; }));
        // An opening that fails disturbs nothing, one that stands replaces.
        const std::string moved = mPath + "2";
        if (space == LocalNamespace::kFilesystem) {
            ASSERT_EQ(rename(mPath.c_str(), moved.c_str()), 0);
            EXPECT_EQ(client.sopen(), -1);
            ASSERT_EQ(rename(moved.c_str(), mPath.c_str()), 0);
            EXPECT_EQ(client.ssend(Bytes("b")), LocalResult::kDone);
            EXPECT_EQ(Receive(client), "0<p:b>");
        }
        ASSERT_NE(client.sopen(), -1);
        EXPECT_EQ(client.ssend(Bytes("c")), LocalResult::kDone);
        EXPECT_EQ(Receive(client), "0<p:c>");
        ASSERT_TRUE(mPeer->Push("bye"));
        mPeer.reset();
        EXPECT_EQ(client.ssend(Bytes("d")), LocalResult::kLost);
        EXPECT_EQ(Receive(client), "0bye");
        EXPECT_EQ(Receive(client), "1");
        EXPECT_EQ(client.Discard(dropped), LocalResult::kLost);
        client.sclose();
        EXPECT_EQ(Receive(client), "6005");
    }
}

TEST_F(LocalSocket, NoMessageFollowsAPartOfAnother) {
    LocalAddress address;
    ASSERT_TRUE(MakeLocalAddress(mPath, LocalNamespace::kFilesystem, address));
    const UniqueFd listener(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(listener.Get(), address.Get(), address.length), 0);
    ASSERT_EQ(listen(listener.Get(), 1), 0);
    LocalSocketClient client(mPath);
    ASSERT_NE(client.sopen(), -1);
    const UniqueFd peer(accept(listener.Get(), nullptr, nullptr));
    const int64_t begin = MonotonicMs();
    EXPECT_EQ(client.ssend(std::vector<char>(8 << 20, 'x'), begin + 100), LocalResult::kCut);
    EXPECT_GE(MonotonicMs() - begin, 100);
    EXPECT_EQ(client.ssend(Bytes("next")), LocalResult::kLost);
    ASSERT_EQ(send(peer.Get(), "answer", 6, 0), 6);
    EXPECT_EQ(Receive(client), "0answer");
    LocalSocketClient full(mPath);
    ASSERT_NE(full.sopen(), -1);
    while (send(full.Descriptor(), "x", 1, MSG_DONTWAIT) == 1) {
    }
    EXPECT_EQ(full.ssend(Bytes("more"), MonotonicMs()), LocalResult::kTimeOut);
    std::thread ending([&] { full.Shutdown(); });
    EXPECT_EQ(Receive(full), "1");
    ending.join();
}

TEST_F(LocalSocket, WhereAnAnswerEnds) {
    const std::string four(4096, 'x');
    // What the peer says, piece by piece: at once, then after the pause in milliseconds, as often.
    const struct {
        const char* name;
        std::string first, piece;
        int pauseMs, times, seconds;
        AnswerEnd end;
        size_t atLeast, atMost;
        bool whole;
        int64_t minMs, maxMs;
    } rows[] = {
        {"short", "a", "b", 5, 3, 0, {}, 1, 1, true, 0, 100},
        {"long", four, four, 0, 40, 0, {}, 41 * 4096, 41 * 4096, true, 20, 2000},
        {"long, then drops", four, "b", 4, 700, 0, {}, 4100, 4696, false, 1000, 1500},
        {"long, then drops, limited", four, "b", 4, 700, 2, {}, 4100, 4696, false, 2000, 2200},
        {"long and bounded", four, four, 1, 40, 0, {0, 16384}, 16384, 32768, false, 2, 2000},
        {"in pieces", "a", "b", 50, 5, 0, {200}, 6, 6, true, 450, 700},
        {"in pieces, pauses too long", "a", "b", 150, 2, 0, {50}, 1, 1, true, 50, 140},
        {"in pieces, with time-out", "a", "b", 50, 30, 1, {200}, 10, 25, false, 1000, 1100},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Serve([&](const std::string&) { return Peer::Answer{row.first}; });
        LocalSocketClient client(mPath);
        ASSERT_NE(client.sopen(), -1);
        ASSERT_EQ(client.ssend(Bytes("?")), LocalResult::kDone);
        const int64_t begin = MonotonicMs();
        std::atomic<bool> done{false};
        std::thread more([&] {
            EXPECT_TRUE(mPeer->WaitForRequest("?"));
            for (int i = 0; i < row.times && !done; ++i) {
                Thread::SleepMs(row.pauseMs);
                mPeer->Push(row.piece);
            }
        });
        std::vector<char> answer;
        bool whole = true;
        EXPECT_EQ(ReceiveAnswer(client, answer, row.seconds, row.end, whole), LocalResult::kDone);
        const int64_t tookMs = MonotonicMs() - begin;
        done = true;
        more.join();
        EXPECT_EQ(whole, row.whole);
        EXPECT_GE(answer.size(), row.atLeast);
        EXPECT_LE(answer.size(), row.atMost);
        EXPECT_GE(tookMs, row.minMs);
        EXPECT_LE(tookMs, KELP_SANITIZED ? 10000 : row.maxMs);
    }
}

}  // namespace
}  // namespace kelp
