#include "localnode/daemon/mailbox_sender.h"

#include "localnode/runtime/shared_futex.h"

#include <atomic>
#include <cstring>
#include <new>

namespace tessaly::daemon {

namespace {

// What the kernel wakes when this thread ends, however it ends. An entry lies at a fixed distance from its futex; clients cannot
// write there. The C library keeps such a list for robust mutexes, of which this program has none.
struct futex_list {
    robust_list_head head;
    bool kept_by_kernel;

    futex_list() noexcept
        : head{.list = {&head.list}, .futex_offset = runtime::slots::OWN_PAGE_BYTES, .list_op_pending = nullptr},
          kept_by_kernel(syscall(SYS_set_robust_list, &head, sizeof head) == 0)
    {
    }
};

thread_local futex_list robust_futexes;

}  // namespace

void mailbox_sender::open(const runtime::slots& memory) noexcept
{
    static_assert(offsetof(node::shared_memory, mailbox) == 0 && offsetof(node::shared_mailbox, word) == 0);
    static_assert(node::MAILBOX_ANSWERED_FOR == FUTEX_WAITERS && node::MAILBOX_AT_REST == FUTEX_OWNER_DIED);
    robust_list& list = robust_futexes.head.list;
    if (memory.mailbox() == nullptr || !robust_futexes.kept_by_kernel)
        return;
    shared_ = memory.mailbox();
    listened_to_ = static_cast<u32>(syscall(SYS_gettid)) | node::MAILBOX_ANSWERED_FOR;
    at_rest_ = listened_to_ | node::MAILBOX_AT_REST;
    entry_ = new (memory.own_page()) robust_list{list.next};
    list.next = entry_;
    std::atomic_ref{shared_->word}.store(at_rest_);
}

mailbox_sender::~mailbox_sender()
{
    if (shared_ == nullptr)
        return;
    close();
    robust_list* before = &robust_futexes.head.list;
    while (before->next != entry_)
        before = before->next;
    before->next = entry_->next;
}

// Wakes the client before the word is given up: afterwards the kernel would not do it, should this process be killed in between.
void mailbox_sender::close() noexcept
{
    constexpr int PATIENCE = 100;  // with a client that keeps listening
    const std::atomic_ref word{shared_->word};
    for (int i = 0; i < PATIENCE; ++i) {
        wake();
        u32 seen = at_rest_;
        if (word.compare_exchange_strong(seen, 0))
            return;
    }
    word.exchange(0);
    runtime::wake_sleeper(shared_->word);
}

bool mailbox_sender::is_listened_to() const noexcept
{
    return std::atomic_ref{shared_->word}.load() == listened_to_;
}

// False when the client does not listen, or not any more.
bool mailbox_sender::wake() noexcept
{
    u32 word = listened_to_;
    if (!std::atomic_ref{shared_->word}.compare_exchange_strong(word, at_rest_))
        return false;
    runtime::wake_sleeper(shared_->word);
    return true;
}

bool mailbox_sender::try_to_put(std::span<const u8> packet) noexcept
{
    if (!is_listened_to() || packet.size() > sizeof shared_->letter ||
        std::atomic_ref{shared_->received}.load(std::memory_order_relaxed) != sent_)
        return false;
    std::memcpy(shared_->letter, packet.data(), packet.size());
    const std::atomic_ref letter_bytes{shared_->letter_bytes};
    letter_bytes.store(static_cast<u32>(packet.size()));
    if (wake())
        return true;
    letter_bytes.store(0);
    return false;
}

void mailbox_sender::count(u32 sent) noexcept
{
    sent_ = sent;
    std::atomic_ref{shared_->sent}.store(sent);
}

// A client that begins to listen in between would be woken only to find that it has to receive. Once the packet is counted, a
// client sees that by itself.
bool mailbox_sender::put(std::span<const u8> packet) noexcept
{
    if (shared_ == nullptr)
        return false;
    if (try_to_put(packet))
        return true;
    count(sent_ + 1);
    if (!is_listened_to())
        return false;
    count(sent_ - 1);
    if (try_to_put(packet))
        return true;
    count(sent_ + 1);
    return false;
}

void mailbox_sender::note_sent(bool sent) noexcept
{
    if (shared_ == nullptr)
        return;
    if (!sent)
        count(sent_ - 1);
    else
        wake();
}

}  // namespace tessaly::daemon
