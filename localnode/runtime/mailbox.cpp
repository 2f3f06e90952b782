#include "localnode/runtime/mailbox.h"

#include "localnode/runtime/shared_futex.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace tessaly::runtime {

void mailbox::use(node::shared_mailbox* shared) noexcept
{
    constexpr u32 FLAGS = node::MAILBOX_ANSWERED_FOR | node::MAILBOX_AT_REST;
    at_rest_ = shared != nullptr ? std::atomic_ref{shared->word}.load() : 0;
    const bool open = (at_rest_ & FLAGS) == FLAGS && at_rest_ != FLAGS;  // that is the word of a node that has died
    shared_ = open ? shared : nullptr;
    listening_ = false;
}

bool mailbox::listens() const noexcept
{
    return std::atomic_ref{shared_->word}.load() == listened_to();
}

bool mailbox::listen(u32 received) noexcept
{
    if (shared_ == nullptr || listening_)
        return listening_;
    std::atomic_ref{shared_->received}.store(received, std::memory_order_relaxed);
    u32 word = at_rest_;
    if (!std::atomic_ref{shared_->word}.compare_exchange_strong(word, listened_to()))
        return false;
    listening_ = std::atomic_ref{shared_->sent}.load() == received || !take_back();
    return listening_;
}

// False when somebody else was first.
bool mailbox::take_back() noexcept
{
    u32 word = listened_to();
    return std::atomic_ref{shared_->word}.compare_exchange_strong(word, at_rest_);
}

std::span<const u8> mailbox::next() noexcept
{
    if (!look_.finds([this] { return !listens(); }))
        while (listens())
            sleep_while(shared_->word, listened_to());
    listening_ = false;
    return take_letter();
}

std::span<const u8> mailbox::stop() noexcept
{
    return std::exchange(listening_, false) && !take_back() ? take_letter() : std::span<const u8>{};
}

// Also of a node that has ended since.
std::span<const u8> mailbox::take_letter() noexcept
{
    const u32 bytes = std::atomic_ref{shared_->letter_bytes}.exchange(0);
    return {shared_->letter, std::min<std::size_t>(bytes, sizeof shared_->letter)};
}

void mailbox::close() noexcept
{
    if (shared_ == nullptr)
        return;
    std::atomic_ref{shared_->word}.exchange(0);
    wake_sleeper(shared_->word);
}

}  // namespace tessaly::runtime
