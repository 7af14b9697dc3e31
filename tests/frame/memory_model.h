// SPDX-License-Identifier: BSD-3-Clause
// A model of the memory manager: what each request answers, which calls of the raw allocator it makes in which order,
// and what is held after it. Threads are told apart by the state that the caller keeps for each.
#pragma once
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "tests/frame/memory_view.h"

namespace memory_model
{
// A call of the raw allocator, kept by it for the model, which takes it off the list.
enum class raw { take, take_again, give_back };
struct raw_call {
    raw kind;
    size_t bytes; // asked for
    void *block;  // answered, or given back
    void *former; // of take_again
};
inline std::deque<raw_call> calls;

struct bank {
    char *base = nullptr;
    char *user = nullptr;
    size_t capacity = 0;
    bool in_use = false;
};

struct record {
    explicit record(void *block) : memory(block) {}
    void *memory;
    std::vector<bank> banks;
    int64_t bytes = 0;
    int32_t blocks = 0;
    bool dead = false;
};

struct plain_block {
    char *raw;
    size_t total;
    size_t alignment;
};

struct model_thread {
    int32_t number = 0, epoch = 0;
};

inline char *up_to(char *address, size_t alignment)
{
    return reinterpret_cast<char *>((reinterpret_cast<uintptr_t>(address) + alignment - 1) & ~(alignment - 1));
}

inline char *down_to(char *address, size_t alignment)
{
    return reinterpret_cast<char *>(reinterpret_cast<uintptr_t>(address) & ~(alignment - 1));
}

inline size_t alignment_meant(int32_t alignment)
{
    return alignment >= 64 && (alignment & (alignment - 1)) == 0 ? static_cast<size_t>(alignment) : 64;
}

class model
{
public:
    explicit model(bool cached_layer) : cached_layer_(cached_layer) {}

    char *plain_take(model_thread &self, size_t size, size_t alignment)
    {
        const size_t total = size + alignment + 24;
        if (size == 0 || total < size)
            return nullptr;
        char *const block = expect_take(total);
        if (block == nullptr)
            return nullptr;
        char *const user = down_to(block + alignment + 24, alignment);
        plain_[user] = {block, total, alignment};
        account(self, static_cast<int64_t>(total), 1);
        return user;
    }

    void plain_give_back(model_thread &self, char *user)
    {
        const plain_block block = plain_.at(user);
        plain_.erase(user);
        account(self, -static_cast<int64_t>(block.total), -1);
        expect_give_back(block.raw);
    }

    char *plain_take_again(model_thread &self, char *user, size_t size)
    {
        const plain_block old = plain_.at(user);
        const size_t room = old.total - static_cast<size_t>(user - old.raw);
        const size_t total = size + old.alignment + 24;
        if (size <= room)
            return user;
        if (total < size)
            return nullptr;
        const raw_call call = next(raw::take_again);
        EXPECT_EQ(call.bytes, total);
        EXPECT_EQ(call.former, old.raw);
        char *const block = static_cast<char *>(call.block);
        if (block == nullptr)
            return nullptr;
        plain_.erase(user);
        char *const moved = down_to(block + old.alignment + 24, old.alignment);
        plain_[moved] = {block, total, old.alignment};
        account(self, static_cast<int64_t>(total - old.total), 0);
        return moved;
    }

    char *cached_take(model_thread &self, size_t size, size_t alignment)
    {
        constexpr size_t largest = 134217728;
        if (size == 0 || !cached_layer_ || size > largest)
            return plain_take(self, size, alignment);
        record *const own = own_record(self);
        if (own == nullptr)
            return plain_take(self, size, alignment);
        const size_t need = size + alignment;
        bank *chosen = fitting_bank(*own, need);
        if (chosen == nullptr) {
            chosen = bank_to_renew(*own);
            if (chosen == nullptr)
                return plain_take(self, size, alignment);
            chosen->in_use = true;
            chosen->base = expect_take(need);
            if (chosen->base == nullptr)
                return nullptr;
            chosen->capacity = need;
            count(static_cast<int64_t>(need));
        }
        chosen->in_use = true;
        return chosen->user = up_to(chosen->base, alignment);
    }

    void cached_give_back(model_thread &self, char *user)
    {
        if (!cached_layer_)
            return plain_give_back(self, user);
        if (!has_slot(self))
            return; // abandoned
        record *const own = own_record(self);
        if (own != nullptr && clear_in(*own, user))
            return;
        for (auto &slot : slots_) {
            if (slot == nullptr || !clear_in(*slot, user))
                continue;
            if (slot->dead)
                free_banks(slot, true);
            return;
        }
        plain_give_back(self, user);
    }

    void free_buffers()
    {
        bool all_freed = true;
        for (auto &slot : slots_) {
            if (slot != nullptr && (slot->dead || !free_banks(slot, true)))
                all_freed = false;
        }
        if (!all_freed)
            return;
        for (const auto &vector : vectors_)
            expect_give_back(vector.second);
        vectors_.clear();
        slots_.clear();
        ++epoch_;
    }

    void thread_free_buffers(model_thread &self)
    {
        if (is_registered(self) && has_slot(self) && slot_of(self) != nullptr)
            free_banks(slot_of(self), false);
    }

    void thread_ends(const model_thread &self)
    {
        if (!is_registered(self) || slot_of(self) == nullptr || free_banks(slot_of(self), true))
            return;
        record &left = *slot_of(self);
        close_account(left);
        left.bytes = 0;
        left.blocks = 0;
        left.dead = true;
    }

    // Pages for generated code: from the account they are taken off, to the bytes in use they are added once more.
    void pages_taken(model_thread &self, int64_t bytes) { account(self, bytes, 1); }
    void pages_given_back(model_thread &self, int64_t bytes)
    {
        if (record *const own = own_record(self)) {
            own->bytes -= bytes;
            --own->blocks;
        }
        count(bytes);
    }

    int64_t peak(int32_t mode)
    {
        if (mode == 0 || mode == 1) {
            counting_ = mode == 1;
            peak_ = counting_ ? 0 : peak_;
            return 0;
        }
        if (!counting_ || (mode != -1 && mode != 2))
            return -1;
        const int64_t answer = peak_;
        if (mode == -1)
            peak_ = current_;
        return answer;
    }

    memory_view::totals held() const
    {
        memory_view::totals sum = closed_;
        for (const auto &slot : slots_) {
            if (slot == nullptr)
                continue;
            sum.bytes += slot->bytes;
            sum.blocks += slot->blocks;
            for (const bank &b : slot->banks) {
                sum.bytes += static_cast<int64_t>(b.capacity);
                sum.blocks += b.base != nullptr;
            }
        }
        return sum;
    }

    bool is_plain(char *user) const { return plain_.count(user) != 0; }
    const plain_block &plain(char *user) const { return plain_.at(user); }
    bool is_out(char *user) const
    {
        for (const auto &slot : slots_) {
            for (size_t i = 0; slot != nullptr && i < slot->banks.size(); ++i) {
                if (slot->banks[i].user == user && slot->banks[i].in_use)
                    return true;
            }
        }
        return is_plain(user);
    }

private:
    static raw_call next(raw kind)
    {
        raw_call call = {kind, 0, nullptr, nullptr};
        if (calls.empty() || calls.front().kind != kind) {
            ADD_FAILURE() << "the raw allocator was not called";
            return call;
        }
        call = calls.front();
        calls.pop_front();
        return call;
    }

    static char *expect_take(size_t bytes)
    {
        const raw_call call = next(raw::take);
        EXPECT_EQ(call.bytes, bytes);
        return static_cast<char *>(call.block);
    }

    static void expect_give_back(void *block) { EXPECT_EQ(next(raw::give_back).block, block); }

    bool is_registered(const model_thread &self) const { return self.number != 0 && self.epoch == epoch_; }

    // Registers the thread if need be; false without memory for the slots. Vector 0 has 1024 slots, the others as many
    // as are before them.
    bool has_slot(model_thread &self)
    {
        if (!is_registered(self)) {
            slots_.emplace_back();
            self = {static_cast<int32_t>(slots_.size()), epoch_};
        }
        int v = 0;
        while ((self.number - 1) >> (10 + v) != 0)
            ++v;
        if (vectors_.count(v) == 0) {
            const size_t slots = size_t{1} << (v == 0 ? 10 : v + 9);
            void *const vector = expect_take((slots * 64 + 8191) / 4096 * 4096);
            if (vector == nullptr)
                return false;
            vectors_[v] = vector;
        }
        return true;
    }

    std::unique_ptr<record> &slot_of(const model_thread &self) { return slots_[static_cast<size_t>(self.number - 1)]; }

    record *own_record(model_thread &self)
    {
        if (!has_slot(self))
            return nullptr;
        std::unique_ptr<record> &slot = slot_of(self);
        if (slot == nullptr) {
            if (void *const memory = expect_take(sizeof(tesh_memory::bank_record)))
                slot.reset(new record(memory));
        }
        return slot.get();
    }

    static bank *fitting_bank(record &own, size_t need)
    {
        bank *best = nullptr;
        for (bank &b : own.banks) {
            if (!b.in_use && b.capacity == need)
                return &b;
            if (!b.in_use && b.capacity > need && (best == nullptr || b.capacity < best->capacity))
                best = &b;
        }
        return best;
    }

    // A new bank; of five banks the first that is free, emptied; null if none is.
    bank *bank_to_renew(record &own)
    {
        constexpr size_t most = 5;
        if (own.banks.size() < most) {
            own.banks.emplace_back();
            return &own.banks.back();
        }
        for (bank &b : own.banks) {
            if (b.in_use)
                continue;
            if (b.base != nullptr)
                count(-empty(b));
            return &b;
        }
        return nullptr;
    }

    // The bytes that were in it.
    static int64_t empty(bank &b)
    {
        if (b.base == nullptr)
            return 0;
        const auto bytes = static_cast<int64_t>(b.capacity);
        expect_give_back(b.base);
        b = {};
        return bytes;
    }

    static bool clear_in(record &from, char *user)
    {
        for (bank &b : from.banks) {
            if (b.user != user)
                continue;
            b.in_use = false;
            return true;
        }
        return false;
    }

    // Whether no block stayed out; then a record that may end is given back.
    bool free_banks(std::unique_ptr<record> &slot, bool may_end)
    {
        bool stayed = false;
        int64_t bytes = 0;
        for (bank &b : slot->banks) {
            const bool is_out = b.base != nullptr && b.in_use;
            stayed = stayed || is_out;
            if (!is_out)
                bytes += empty(b);
        }
        count(-bytes);
        if (stayed)
            return false;
        slot->banks.clear();
        if (may_end) {
            close_account(*slot);
            expect_give_back(slot->memory);
            slot.reset();
        }
        return true;
    }

    void close_account(const record &from)
    {
        closed_.bytes += from.bytes;
        closed_.blocks += from.blocks;
    }

    void account(model_thread &self, int64_t bytes, int32_t blocks)
    {
        if (record *const own = own_record(self)) {
            own->bytes += bytes;
            own->blocks += blocks;
        }
        count(bytes);
    }

    void count(int64_t bytes)
    {
        if (!counting_)
            return;
        current_ += bytes;
        peak_ = current_ > peak_ ? current_ : peak_;
    }

    bool cached_layer_;
    std::vector<std::unique_ptr<record>> slots_; // by number - 1
    std::map<int, void *> vectors_;              // of slots, by index
    int32_t epoch_ = 0;
    std::map<char *, plain_block> plain_;
    memory_view::totals closed_{};
    bool counting_ = false;
    int64_t current_ = 0, peak_ = 0;
};
} // namespace memory_model
