// A thread-safe queue of owning pointers.
#pragma once

#include <atomic>
#include <deque>

#include "platform/sync.h"
#include "platform/thread.h"

namespace kelp {

// First in, first out. Any thread may call enqueue, dequeue, poll and clear; all users must have
// stopped before the queue is destroyed.
template <typename T>
class MessageQueue {
  public:
    MessageQueue() = default;
    ~MessageQueue() { clear(); }
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    // Takes ownership of `item`; ignores null. Never blocks for space.
    void enqueue(T* item) {
        if (item == nullptr) {
            return;
        }
        {
            MutexLock lock(mMutex);
            mQueue.push_back(item);
        }
        // Unlocked, so that the woken consumer does not wait for the lock.
        if (mWaitable.load(std::memory_order_relaxed)) {
            mCond.Signal();
        }
    }

    // Returns the front item, which the caller then owns, or null. On an empty queue, while
    // mWaitable is set, it waits for one wake-up only: it may return null (another consumer took
    // the item, the thread is asked to stop, or a spurious wake-up), and the caller decides whether
    // to call again.
    T* dequeue() {
        MutexLock lock(mMutex);
        if (mQueue.empty() && mWaitable.load(std::memory_order_relaxed)) {
            Thread::Wait(mCond, mMutex);
        }
        return TakeFront();
    }

    // Like dequeue, but never waits, regardless of mWaitable.
    T* poll() {
        MutexLock lock(mMutex);
        return TakeFront();
    }

    // Deletes every item.
    void clear() {
        std::deque<T*> items;
        {
            MutexLock lock(mMutex);
            items.swap(mQueue);
        }
        for (T* item : items) {
            delete item;
        }
    }

    // Sets whether dequeue waits. Called by the owner while no thread is inside dequeue.
    std::atomic<bool> mWaitable{true};

  private:
    T* TakeFront() KELP_REQUIRES(mMutex) {
        if (mQueue.empty()) {
            return nullptr;
        }
        T* const item = mQueue.front();
        mQueue.pop_front();
        return item;
    }

    Mutex mMutex;  // taken before Thread::mMutex (in dequeue), otherwise a leaf
    CondVar mCond;
    std::deque<T*> mQueue KELP_GUARDED_BY(mMutex);
};

}  // namespace kelp
