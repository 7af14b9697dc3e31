// SPDX-License-Identifier: BSD-3-Clause
// The memory manager against a model of it. Random requests come from several threads in turn; the raw allocator keeps
// a list of its calls and refuses some. After each request the answer, the list of calls in its order, the sums over
// all threads and the peak must be those of the model.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/frame/memory_model.h"
#include "tests/support/child.h"
#include "tests/support/random.h"
#include "tests/support/test_paths.h"

namespace
{
using namespace memory_model;
using memory_view::worker;
using tesh_test::run_forked;

// ---- the raw allocator ----
tesh_test::random *draw;
int64_t refused_percent;
int64_t raw_blocks_out; // [count]

bool refuses(size_t bytes)
{
    constexpr size_t more_than_any_test_needs = size_t{1} << 30;
    return bytes > more_than_any_test_needs || draw->below(100) < refused_percent;
}

void *take(size_t bytes)
{
    void *const block = refuses(bytes) ? nullptr : std::malloc(bytes);
    raw_blocks_out += block != nullptr;
    calls.push_back({raw::take, bytes, block, nullptr});
    return block;
}

void give_back(void *block)
{
    raw_blocks_out -= block != nullptr;
    calls.push_back({raw::give_back, 0, block, nullptr});
    std::free(block);
}

// Moves every time, so that the contents and the header must follow.
void *take_again(void *former, size_t bytes)
{
    void *const block = refuses(bytes) ? nullptr : std::malloc(bytes);
    if (block != nullptr) {
        const size_t old_bytes = malloc_usable_size(former);
        std::memcpy(block, former, old_bytes < bytes ? old_bytes : bytes);
        std::free(former);
    }
    calls.push_back({raw::take_again, bytes, block, former});
    return block;
}

// ---- the play ----
struct player {
    worker thread;
    model_thread self;
};

class play
{
public:
    play(bool cached_layer, int64_t most_refused) : model_(cached_layer), most_refused_(most_refused) {}

    // One random request by a random thread, and whether all is as in the model.
    void step()
    {
        if (players_.size() < 2)
            players_.emplace_back(new player);
        player &by = *players_[pick(players_)];
        refused_percent = draw->below(4) == 0 ? draw->below(most_refused_ + 1) : 0;
        // Few blocks out at a time let epochs end.
        const int64_t what = draw->below(100) + (blocks_.size() > 14 ? 30 : 0);
        if (what < 12)
            take_plain(by);
        else if (what < 30)
            take_cached(by, any_size(), any_alignment());
        else if (what < 36)
            take_again(by);
        else if (what >= 82)
            rare_request(by, what);
        else if (!blocks_.empty())
            give_back(by, pick(blocks_));
        refused_percent = 0;
        compare();
    }

    // Gives everything back; then no raw block is out. The library's own end comes here, while the raw allocator still
    // has its list.
    void finish()
    {
        players_.emplace_back(new player);
        while (!blocks_.empty() && !testing::Test::HasFailure())
            give_back(*players_.back(), blocks_.size() - 1);
        while (!pages_.empty())
            give_back_pages(*players_.back());
        while (!players_.empty())
            end(0);
        tesh_serv_free_buffers();
        model_.free_buffers();
        compare();
        EXPECT_EQ(raw_blocks_out, 0);
        tesh_serv_finalize();
    }

    // Ends so many threads that each took a block and gave it back, but for the first.
    void end_threads(int64_t count)
    {
        for (int64_t i = 0; i < count; ++i) {
            players_.emplace_back(new player);
            player &by = *players_.back();
            take_cached(by, 1000, 64);
            if (i > 0)
                give_back(by, blocks_.size() - 1);
            end(players_.size() - 1);
        }
    }

private:
    void compare()
    {
        EXPECT_TRUE(calls.empty()) << "the raw allocator was called without need";
        const memory_view::totals now = memory_view::held(), meant = model_.held();
        EXPECT_EQ(now.bytes, meant.bytes);
        EXPECT_EQ(now.blocks, meant.blocks);
        EXPECT_EQ(tesh_serv_peak_mem_usage(2), model_.peak(2));
    }

    static constexpr char mark = 0x5a; // what blocks are filled with

    struct pages {
        void *address;
        size_t size;
    };

    template <class list> static size_t pick(const list &from)
    {
        return static_cast<size_t>(draw->below(static_cast<int64_t>(from.size())));
    }

    // Few sizes, so that banks of equal capacity meet.
    static size_t any_size()
    {
        constexpr size_t sizes[] = {0, 1, 63, 64, 65, 1000, 4096, 50000, 134217728, 134217729};
        if (draw->below(6) == 0)
            return static_cast<size_t>(draw->below(300));
        return sizes[draw->below(draw->below(20) != 0 ? 8 : 10)];
    }

    static int32_t any_alignment()
    {
        constexpr int32_t alignments[] = {0, 8, 48, 64, 96, 128, 4096, 65536, -64, INT32_MIN};
        return alignments[draw->below(10)];
    }

    void take_plain(player &by)
    {
        const size_t size = any_size();
        const int32_t alignment = any_alignment();
        void *got = nullptr;
        by.thread.run([&] { got = tesh_serv_malloc(size, alignment); });
        char *const meant = model_.plain_take(by.self, size, alignment_meant(alignment));
        ASSERT_EQ(got, meant) << "plain " << size << ", " << alignment;
        if (meant != nullptr)
            keep(meant, size);
    }

    void take_cached(player &by, size_t size, int32_t alignment)
    {
        void *got = nullptr;
        by.thread.run([&] { got = tesh_serv_allocate(size, alignment); });
        char *const meant = model_.cached_take(by.self, size, alignment_meant(alignment));
        ASSERT_EQ(got, meant) << "cached " << size << ", " << alignment;
        if (meant != nullptr)
            keep(meant, size);
    }

    void take_again(player &by)
    {
        const size_t i = blocks_.empty() ? 0 : pick(blocks_);
        if (blocks_.empty() || !model_.is_plain(blocks_[i]))
            return;
        const plain_block old = model_.plain(blocks_[i]);
        const size_t old_size = old.total - old.alignment - 24;
        const size_t room = old.total - static_cast<size_t>(blocks_[i] - old.raw);
        const size_t sizes[] = {room - 1, room, room + 1, 2 * room, SIZE_MAX - old.alignment - 20, SIZE_MAX};
        const size_t size = sizes[draw->below(6)];
        void *got = nullptr;
        by.thread.run([&] { got = tesh_serv_realloc(blocks_[i], size); });
        char *const meant = model_.plain_take_again(by.self, blocks_[i], size);
        ASSERT_EQ(got, meant) << "again " << size << " of " << room;
        if (meant == nullptr)
            return;
        EXPECT_EQ(meant[0], mark);
        EXPECT_EQ(meant[old_size - 1], mark) << "contents did not move with the block";
        blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(i));
        keep(meant, size);
    }

    // tesh_serv_deallocate takes a plain block, too.
    void give_back(player &by, size_t i)
    {
        char *const user = blocks_[i];
        if (model_.is_plain(user) && draw->below(2) == 0) {
            by.thread.run([&] { tesh_serv_free(user); });
            model_.plain_give_back(by.self, user);
        } else {
            by.thread.run([&] { tesh_serv_deallocate(user); });
            model_.cached_give_back(by.self, user);
        }
        if (!model_.is_out(user))
            blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(i));
    }

    void rare_request(player &by, int64_t what)
    {
        switch (what % 8) {
        case 0:
            by.thread.run([] { tesh_serv_free_buffers(); });
            return model_.free_buffers();
        case 1:
            by.thread.run([] { tesh_serv_thread_free_buffers(); });
            return model_.thread_free_buffers(by.self);
        case 2:
        case 3:
            return ask_peak(by);
        case 4:
            return take_pages(by);
        case 5:
            return give_back_pages(by);
        case 6:
            if (players_.size() < 4)
                players_.emplace_back(new player);
            return;
        default:
            return end(pick(players_));
        }
    }

    void ask_peak(player &by)
    {
        const auto mode = static_cast<int32_t>(draw->below(6)) - 2;
        int64_t got = 0;
        by.thread.run([&] { got = tesh_serv_peak_mem_usage(mode); });
        EXPECT_EQ(got, model_.peak(mode)) << "mode " << mode;
    }

    static int64_t whole_pages(size_t size) { return static_cast<int64_t>((size + 4095) / 4096 * 4096); }

    void take_pages(player &by)
    {
        const size_t size = 1 + static_cast<size_t>(draw->below(9000));
        void *got = nullptr;
        by.thread.run([&] { got = tesh_serv_jit_alloc(size); });
        ASSERT_NE(got, nullptr);
        model_.pages_taken(by.self, whole_pages(size));
        pages_.push_back({got, size});
    }

    void give_back_pages(player &by)
    {
        if (pages_.empty())
            return;
        const pages last = pages_.back();
        pages_.pop_back();
        by.thread.run([&] { tesh_serv_jit_free(last.address, last.size); });
        model_.pages_given_back(by.self, whole_pages(last.size));
    }

    void end(size_t i)
    {
        players_[i]->thread.end();
        model_.thread_ends(players_[i]->self);
        players_.erase(players_.begin() + static_cast<std::ptrdiff_t>(i));
    }

    // Every byte of it may be written, and its header is as it should be.
    void keep(char *user, size_t size)
    {
        blocks_.push_back(user);
        std::memset(user, mark, size < 100000 ? size : 100000);
        user[size - 1] = mark;
        if (!model_.is_plain(user))
            return;
        const plain_block &block = model_.plain(user);
        EXPECT_EQ(std::memcmp(user - 24, &block.raw, 8), 0);
        EXPECT_EQ(std::memcmp(user - 16, &block.total, 8), 0);
        EXPECT_EQ(std::memcmp(user - 8, &block.alignment, 4), 0);
    }

    model model_;
    int64_t most_refused_;
    std::vector<std::unique_ptr<player>> players_;
    std::vector<char *> blocks_; // handed out
    std::vector<pages> pages_;
};

// In a child, whose memory manager no one has used.
void expect_as_in_the_model(bool cached_layer, int64_t most_refused, int64_t threads_before = 0)
{
    const int64_t steps = tesh_test::in_long_set() ? 200000 : tesh_test::in_medium_set() ? 30000 : 3000;
    const auto result = run_forked(
        [&] {
            i_malloc = take;
            i_free = give_back;
            i_realloc = take_again;
            tesh_test::random numbers(static_cast<uint64_t>(most_refused));
            draw = &numbers;
            play game(cached_layer, most_refused);
            game.end_threads(threads_before);
            for (int64_t i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
                SCOPED_TRACE("step " + std::to_string(i));
                game.step();
            }
            game.finish();
            return testing::Test::HasFailure() ? 1 : 0;
        },
        {{"TESH_DISABLE_FAST_MM", cached_layer ? "" : "1"}});
    EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
}

TEST(memory_model, holds_while_memory_lasts)
{
    expect_as_in_the_model(true, 0);
}

TEST(memory_model, holds_while_few_requests_are_refused)
{
    expect_as_in_the_model(true, 10);
}

TEST(memory_model, holds_while_most_requests_are_refused)
{
    expect_as_in_the_model(true, 90);
}

TEST(memory_model, holds_beyond_1024_threads)
{
    expect_as_in_the_model(true, 10, 1030);
}

TEST(memory_model, holds_without_the_cached_layer)
{
    expect_as_in_the_model(false, 30);
}
} // namespace
