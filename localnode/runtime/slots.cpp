#include "localnode/runtime/slots.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace tessaly::runtime {

namespace {

using node::SLOT_BYTES;
using node::SLOTS_EACH_WAY;

// Memory that its other user might shorten would be a trap: touching what is gone ends the process.
constexpr int SEALS = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

constexpr std::size_t WHOLE_BYTES = slots::OWN_PAGE_BYTES + sizeof(node::shared_memory);

constexpr u32 index_of(u8 slot) noexcept { return slot - 1u; }
constexpr u8 slot_at(u32 index) noexcept { return static_cast<u8>(index + 1); }

}  // namespace

slots::~slots()
{
    forget();
}

void slots::forget() noexcept
{
    if (shared_ != nullptr)
        munmap(own_page(), WHOLE_BYTES);
    shared_ = nullptr;
}

bool slots::map(int descriptor) noexcept
{
    constexpr int ACCESS = PROT_READ | PROT_WRITE;
    void* const whole = mmap(nullptr, WHOLE_BYTES, ACCESS, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (whole == MAP_FAILED)
        return false;
    void* const shared = static_cast<u8*>(whole) + OWN_PAGE_BYTES;
    if (mmap(shared, sizeof *shared_, ACCESS, MAP_SHARED | MAP_FIXED, descriptor, 0) == MAP_FAILED) {
        munmap(whole, WHOLE_BYTES);
        return false;
    }
    forget();
    shared_ = static_cast<node::shared_memory*>(shared);
    return true;
}

int slots::make() noexcept
{
    const int descriptor = memfd_create("tessaly", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (descriptor < 0)
        return -1;
    if (ftruncate(descriptor, sizeof *shared_) == 0 && fcntl(descriptor, F_ADD_SEALS, SEALS) == 0 && map(descriptor))
        return descriptor;
    close(descriptor);
    return -1;
}

bool slots::take_over(int descriptor) noexcept
{
    struct stat found {};
    const int seals = fcntl(descriptor, F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0 || fstat(descriptor, &found) != 0 || found.st_size != sizeof *shared_ ||
        !map(descriptor))
        return false;
    first_own_ = SLOTS_EACH_WAY;
    std::atomic_ref{shared_->in_use_by_client}.store(1);
    return true;
}

u8 slots::put(std::span<const u8> block, std::span<const u8> data) noexcept
{
    if (shared_ == nullptr || block.size() > SLOT_BYTES || data.size() > SLOT_BYTES - block.size() ||
        std::atomic_ref{shared_->in_use_by_client}.load() != 1)
        return 0;
    for (u32 index = first_own_; index < first_own_ + SLOTS_EACH_WAY; ++index) {
        const std::atomic_ref taken{shared_->taken[index]};
        if (taken.load(std::memory_order_acquire) != 0)
            continue;
        taken.store(1, std::memory_order_relaxed);
        u8* const to = shared_->slots[index];
        std::memcpy(to, block.data(), block.size());
        if (!data.empty())
            std::memcpy(to + block.size(), data.data(), data.size());
        return slot_at(index);
    }
    return 0;
}

const u8* slots::content(u8 slot, u32 block_bytes, u32 data_bytes) const noexcept
{
    const u32 first = SLOTS_EACH_WAY - first_own_;  // of the other end
    if (shared_ == nullptr || slot == 0 || index_of(slot) - first >= SLOTS_EACH_WAY || block_bytes > SLOT_BYTES ||
        data_bytes > SLOT_BYTES - block_bytes)
        return nullptr;
    return shared_->slots[index_of(slot)];
}

void slots::free(u8 slot) noexcept
{
    std::atomic_ref{shared_->taken[index_of(slot)]}.store(0, std::memory_order_release);
}

}  // namespace tessaly::runtime
