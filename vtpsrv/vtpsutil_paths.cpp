#include "vtpsrv/vtpsutil_paths.h"

#include "common/runtime_guards.h"
#include "verbs/block.h"
#include "vtpsrv/vtpsmain_records.h"
#include "vtpsrv/vtpsutil_completion.h"

namespace tessaly {

namespace {

constexpr u16 CAPS_KIND = 0x0015;
constexpr u32 CAPS_KIND_AT = 4;

void forget(tps_path* record) noexcept
{
    unlink(record->link);
    nba_mm_free(record, 0);
}

// Marked before any of them completes: what callbacks issue meanwhile is another matter, even on a path of the same number.
void mark_lost_queries(u32 path) noexcept
{
    u32 handle = 0;
    while (const tp_server* server = next_server(handle))
        for (verb_info* verb = server->verb_list.first(); verb != nullptr; verb = server->verb_list.after(*verb))
            if (verb->pip_path == path)
                verb->pip_path_lost = 1;
}

template <typename Choice>
tps_path* find_path(Choice chosen) noexcept
{
    tps_path* record = tps_main_cb->path_list.first();
    while (record != nullptr && !chosen(*record))
        record = tps_main_cb->path_list.after(*record);
    return record;
}

}  // namespace

const u16 tps_appc_caps[4] = {sizeof tps_appc_caps, 1, CAPS_KIND, 0xF002};

u32 tps_create_path(u32 path_user, u32 target, u32 one, const void* caps) noexcept
{
    if (load<u16>(caps, CAPS_KIND_AT) != CAPS_KIND)
        return 0;
    if (const tps_path* kept = find_path([=](const tps_path& each) { return each.target == target && each.path != 0; }))
        return kept->path;
    const u32 path = vpm_create_path(path_user, target, one, caps);
    if (path == 0)
        return 0;
    if (auto* record = allocate_record<tps_path>()) {  // else it serves this query alone
        record->target = target;
        record->path = path;
        record->path_user = path_user;
        tps_main_cb->path_list.append(*record);
    }
    return path;
}

void tps_path_failure(u32 path) noexcept
{
    if (tps_main_cb == nullptr || path == 0)
        return;
    if (tps_path* record = find_path([=](const tps_path& each) { return each.path == path; }))
        forget(record);
    mark_lost_queries(path);
    complete_lost_queries();
}

void forget_paths_of(u32 path_user) noexcept
{
    while (tps_path* record = find_path([=](const tps_path& each) { return each.path_user == path_user; })) {
        mark_lost_queries(record->path);
        forget(record);
    }
}

void forget_all_paths() noexcept
{
    while (tps_path* record = tps_main_cb->path_list.first())
        forget(record);
}

}  // namespace tessaly
