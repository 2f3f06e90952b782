#include "ledger.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace tessaly::stress {

namespace {

constexpr u8 PATTERN = 0xC7;     // what entries hold after completion
constexpr size_t RESTING = 2000;  // completed entries that wait for a late write before they are used again

}  // namespace

entry& ledger::open(u16 opcode, u32 slot)
{
    const std::lock_guard lock(mutex_);
    if (unused_.empty())
        unused_.push_back(&entries_.emplace_back());
    entry& verb = *unused_.back();
    unused_.pop_back();
    verb = {};
    verb.number = ++now_.issued;
    verb.slot = slot;
    verb.opcode = opcode;
    block_as<block_header>(verb.block).opcode = opcode;
    moved_.notify_all();
    return verb;
}

void ledger::returns(entry& verb, bool accepted)
{
    const std::lock_guard lock(mutex_);
    if (accepted) {
        ++now_.accepted;
    } else {
        now_.twice += verb.completed;
        fill(verb);
    }
    verb.returned = true;
    if (!accepted || verb.completed)
        retire(verb);
}

void ledger::finishes(entry& verb)
{
    const std::lock_guard lock(mutex_);
    ++now_.accepted;
    ++now_.completed;
    fill(verb);
    retire(verb);
}

void ledger::completes(entry& verb, u32 number)
{
    const std::lock_guard lock(mutex_);
    if (verb.number != number || verb.completed) {
        std::fprintf(stderr, "verb %u (0x%x) completes twice\n", number, verb.opcode);
        ++now_.twice;
        return;
    }
    ++now_.completed;
    verb.completed = true;
    fill(verb);
    if (verb.returned)
        retire(verb);
}

void ledger::forgets()
{
    const std::lock_guard lock(mutex_);
    ++now_.forgotten;
}

bool ledger::await_issued(u32 count, int ms)
{
    std::unique_lock lock(mutex_);
    return moved_.wait_for(lock, std::chrono::milliseconds(ms), [&] { return now_.issued >= count; });
}

bool ledger::await_all(int seconds)
{
    std::unique_lock lock(mutex_);
    return moved_.wait_for(lock, std::chrono::seconds(seconds), [&] { return now_.accepted == now_.completed; });
}

u32 ledger::issued()
{
    const std::lock_guard lock(mutex_);
    return now_.issued;
}

totals ledger::close()
{
    const std::lock_guard lock(mutex_);
    std::ranges::for_each(retired_, [this](const entry* verb) { check(*verb); });
    return now_;
}

// The program may use its block and its buffer for something else now.
void ledger::fill(entry& verb)
{
    const auto& result = block_as<block_header>(verb.block);
    now_.ok += result.primary_rc == OK;
    now_.abended += result.primary_rc == COMMS_SUBSYSTEM_ABENDED;
    now_.cancelled += result.primary_rc == CANCELLED;
    std::memset(verb.block, PATTERN, sizeof verb.block);
    std::memset(verb.buffer, PATTERN, sizeof verb.buffer);
    moved_.notify_all();
}

void ledger::retire(entry& verb)
{
    retired_.push_back(&verb);
    if (retired_.size() <= RESTING)
        return;
    check(*retired_.front());
    unused_.push_back(retired_.front());
    retired_.pop_front();
}

void ledger::check(const entry& verb)
{
    const auto is_pattern = [](u8 byte) { return byte == PATTERN; };
    if (std::ranges::all_of(verb.block, is_pattern) && std::ranges::all_of(verb.buffer, is_pattern))
        return;
    std::fprintf(stderr, "verb %u (0x%x): its block or buffer was written after its completion\n", verb.number, verb.opcode);
    ++now_.late_writes;
}

}  // namespace tessaly::stress
