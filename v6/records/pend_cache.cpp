#include "v6/records/pend_cache.h"

#include "common/invariant.h"
#include "common/runtime_guards.h"
#include "common/runtime_log.h"
#include "v6/records/modules.h"

#include <bit>
#include <iterator>

namespace tessaly {

pend_cache vav_pend_cache;

namespace {

u32 lowest_free_slot() noexcept
{
    for (u32 word = 0; word < std::size(vav_pend_cache.free_slots); ++word)
        if (vav_pend_cache.free_slots[word] != 0)
            return word * 32 + static_cast<u32>(std::countr_zero(vav_pend_cache.free_slots[word]));
    return VAV_CACHE_SIZE;
}

void set_slot_free(u32 slot, bool is_free) noexcept
{
    const u32 bit = 1u << (slot % 32);
    u32& word = vav_pend_cache.free_slots[slot / 32];
    word = is_free ? word | bit : word & ~bit;
}

// An idle record of the slot, or a new one; null when there is no memory.
pndcb* record_for(u32 slot) noexcept
{
    if (pndcb* idle = vav_pend_cache.pend_ptr[slot])
        return idle;
    pndcb* fresh = allocate_record<pndcb>();
    if (fresh != nullptr)
        fresh->cache_index = NOT_CACHED;
    return fresh;
}

}  // namespace

pndcb* vav_alloc_pend(appc_completion callback) noexcept
{
    if (!invariant(vav_pend_cache.pend_ptr[VAV_CACHE_SIZE] == nullptr, VAV, "vav_pend_cache.pend_ptr[VAV_CACHE_SIZE] == NULL"))
        vav_pend_cache.pend_ptr[VAV_CACHE_SIZE] = nullptr;

    const u32 slot = lowest_free_slot();
    pndcb* pend = record_for(slot);
    if (pend == nullptr)
        return nullptr;

    const u32 handle = nba_create_handle(pend);
    if (handle == 0) {
        if (pend->cache_index == NOT_CACHED)
            nba_mm_free(pend, 0);
        return nullptr;
    }
    const bool cached = slot < VAV_CACHE_SIZE;
    *pend = {.handle = handle, .cache_index = cached ? static_cast<u16>(slot) : NOT_CACHED, .callback = callback};
    init_link(*pend);
    if (cached) {
        vav_pend_cache.pend_ptr[slot] = pend;
        set_slot_free(slot, false);
    }

    if (callback == vav_sync_callback) {
        pend->wait_obj = vpm_allocate_wait_object();
        if (pend->wait_obj == 0) {
            log_exception(LOG_SHORTAGE, 206, "");
            vav_free_pend(pend);
            return nullptr;
        }
    }
    return pend;
}

void vav_free_pend(pndcb* pend) noexcept
{
    if (is_linked(pend->link))
        unlink(pend->link);
    nba_destroy_handle(pend->handle);
    if (pend->wait_obj != 0) {
        vpm_release_wait_object(pend->wait_obj);
        pend->wait_obj = 0;
    }
    if (pend->cache_index == NOT_CACHED) {
        nba_mm_free(pend, 0);
        return;
    }
    if (invariant(pend == vav_pend_cache.pend_ptr[pend->cache_index], VAV,
                  "pndverb == vav_pend_cache.pend_ptr[pndverb->cache_index]"))
        set_slot_free(pend->cache_index, true);
}

void clear_pend_cache() noexcept
{
    vav_pend_cache = {};
    for (u32 slot = 0; slot < VAV_CACHE_SIZE; ++slot)
        set_slot_free(slot, true);
}

void release_pend_cache() noexcept
{
    for (u32 slot = 0; slot < VAV_CACHE_SIZE; ++slot) {
        pndcb*& pend = vav_pend_cache.pend_ptr[slot];
        if (pend == nullptr)
            continue;
        const bool in_use = (vav_pend_cache.free_slots[slot / 32] >> (slot % 32) & 1) == 0;
        if (in_use) {
            nba_destroy_handle(pend->handle);
            if (pend->wait_obj != 0)
                vpm_release_wait_object(pend->wait_obj);
        }
        nba_mm_free(pend, 0);
        pend = nullptr;
        set_slot_free(slot, true);
    }
}

}  // namespace tessaly
