// A thread-safe queue of owning pointers.
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>

#include "platform/sync.h"
#include "platform/thread.h"

namespace kelp {

// Items come out in the order in which they went in. Any thread may call enqueue, dequeue and
// clear; before the queue is destroyed its users are stopped.
template <typename T>
class MessageQueue {
  public:
    MessageQueue() = default;
    ~MessageQueue() { clear(); }
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    // Takes ownership of `item`; null is ignored. Never blocks for space.
    void enqueue(T* item) {
        if (item == nullptr) {
            return;
        }
        {
            MutexLock lock(mMutex);
            mQueue.push_back(item);
            mSize = mQueue.size();
        }
        // Outside the lock, so that the consumer does not wake up only to wait for it.
        if (mWaitable.load(std::memory_order_relaxed)) {
            mCond.Signal();
        }
    }

    // The front item, now the caller's, or null. While mWaitable is set an empty queue is waited
    // on for one wake-up, never two: null then means that the wake-up brought nothing (another
    // consumer was faster, or the thread is asked to stop), and the caller decides what next.
    T* dequeue() {
        if (mSize == 0 && !mWaitable) {
            return nullptr;  // seen without the lock
        }
        MutexLock lock(mMutex);
        if (mQueue.empty() && mWaitable.load(std::memory_order_relaxed)) {
            Thread::Wait(mCond, mMutex);
        }
        return TakeFront();
    }

    // Like dequeue, but never waits, whatever mWaitable says.
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
            mSize = 0;
        }
        for (T* item : items) {
            delete item;
        }
    }

    // Whether dequeue waits. Switched by the owner while no thread is inside dequeue.
    std::atomic<bool> mWaitable{true};

  private:
    T* TakeFront() KELP_REQUIRES(mMutex) {
        if (mQueue.empty()) {
            return nullptr;
        }
        T* const item = mQueue.front();
        mQueue.pop_front();
        mSize = mQueue.size();
        return item;
    }

    Mutex mMutex;  // a leaf, but for the state of the thread that waits on mCond
    CondVar mCond;
    std::deque<T*> mQueue KELP_GUARDED_BY(mMutex);
    std::atomic<size_t> mSize{0};  // of mQueue; written under mMutex
};

}  // namespace kelp
