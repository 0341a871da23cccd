#include "platform/thread.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <utility>

#include "platform/clock.h"
#include "platform/turn.h"
#include "platform/uniquefd.h"
#include "processor/messagequeue.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

class Job : public Runnable {
  public:
    explicit Job(std::function<void()> run) : mRun(std::move(run)) {}
    void Run() override { mRun(); }

  private:
    const std::function<void()> mRun;
};

TEST(Thread, StopEndsEveryKindOfWait) {
    MessageQueue<int> queue;
    Turn turn;
    ASSERT_TRUE(turn.Enter());
    const std::pair<const char*, std::function<void()>> waits[] = {
        {"descriptor", [] { Thread::WaitFd(-1, 0, -1); }},
        {"receive",
         [] {
             int ends[2];
             ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
             const UniqueFd own(ends[0]), other(ends[1]);
             char byte;
             EXPECT_EQ(Thread::Receive(own.Get(), &byte, 1), -1);
             EXPECT_EQ(errno, ECANCELED);
         }},
        {"queue", [&] { delete queue.dequeue(); }},
        {"turn", [&] { TurnHolder holder(turn); }},
    };
    for (const auto& [name, wait] : waits) {
        // Mostly at once, so that it falls between the check of the stop flag and the wait.
        for (int round = 0; round < 300; ++round) {
            Job job(wait);
            Thread thread(&job);
            ASSERT_TRUE(thread.Start());
            if (round % 8 == 0) {
                Thread::SleepMs(1);  // here the thread waits
            }
            const int64_t begin = MonotonicMs();
            thread.Stop();
            ASSERT_LT(MonotonicMs() - begin, 5000) << name;
        }
    }
}

TEST(Turn, AWaitingThreadIsNotOvertaken) {
    // On one processor, where the waiting thread only runs while this one sleeps or waits.
    cpu_set_t all, one;
    ASSERT_EQ(sched_getaffinity(0, sizeof(all), &all), 0);
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
    Turn turn;
    std::atomic<pid_t> waiting{0};
    std::atomic<bool> entered{false};
    Thread* self = nullptr;
    Job job([&] {
        self->Stop();  // with `always` it waits all the same
        waiting = gettid();
        const TurnHolder holder(turn, true, true);
        entered = holder.Held();
    });
    Thread thread(&job);
    self = &thread;
    ASSERT_TRUE(turn.Enter());
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(WaitUntil([&] { return waiting != 0; }));
    Thread::SleepMs(100);
    const struct sched_param none = {};
    ASSERT_EQ(sched_setscheduler(waiting, SCHED_IDLE, &none), 0);
    turn.Leave();
    ASSERT_TRUE(turn.Enter());
    EXPECT_TRUE(entered);
    sched_setaffinity(0, sizeof(all), &all);
}

}  // namespace
}  // namespace kelp::test
