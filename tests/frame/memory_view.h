// SPDX-License-Identifier: BSD-3-Clause
// What the tests of the memory manager look at: the calling thread's record in the book, and the book's counts; and
// threads to look from.
#pragma once
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "frame/service/memory.h"

namespace memory_view
{
inline tesh_memory::thread_slot *slot_of(int64_t number)
{
    using namespace tesh_memory;
    const int64_t index = number - 1;
    if (index < 1024)
        return mm_book.vectors[0] != nullptr ? mm_book.vectors[0] + index : nullptr;
    int v = 1;
    while (index >= (int64_t{1} << (v + 10)))
        ++v;
    return mm_book.vectors[v] != nullptr ? mm_book.vectors[v] + (index - (int64_t{1} << (v + 9))) : nullptr;
}

// The calling thread's record, or null.
inline tesh_memory::bank_record *own_record()
{
    const tesh_memory::thread_info self = tesh_memory::mm_thread_info();
    if (self.number == 0 || self.epoch != tesh_memory::mm_book.epoch)
        return nullptr;
    tesh_memory::thread_slot *const slot = slot_of(self.number);
    return slot != nullptr ? slot->record : nullptr;
}

struct totals {
    int64_t bytes;
    int32_t blocks;
};
inline totals held()
{
    totals now{};
    now.bytes = tesh_serv_mem_stat(&now.blocks);
    return now;
}

// Runs body on a thread that is new to the library, and waits for its end.
inline void on_new_thread(const std::function<void()> &body)
{
    std::thread(body).join();
}

// Runs one body after another on a thread that stays alive in between.
class worker
{
public:
    worker()
        : thread_([this] {
              std::unique_lock<std::mutex> hold(mutex_);
              for (;;) {
                  changed_.wait(hold, [this] { return ended_ || body_; });
                  if (!body_)
                      return;
                  body_();
                  body_ = nullptr;
                  changed_.notify_all();
              }
          })
    {
    }
    ~worker() { end(); }
    void run(const std::function<void()> &body)
    {
        std::unique_lock<std::mutex> hold(mutex_);
        body_ = body;
        changed_.notify_all();
        changed_.wait(hold, [this] { return !body_; });
    }
    void end()
    {
        if (!thread_.joinable())
            return;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            ended_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> body_;
    bool ended_ = false;
    std::thread thread_;
};
} // namespace memory_view
