#include "v6/vav/lifecycle.h"

#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/pend_cache.h"
#include "v6/vav/alias_map.h"
#include "v6/vav3264/convert.h"
#include "v6/vavsub/path_callback.h"

namespace tessaly {

u16 vav_init() noexcept
{
    constexpr u16 no_tp_table = 12;
    if (const u16 status = vpm_init_path_user(0, 0, vav_path_callback, 0, &main_cb.path_user); status != 0) {
        log_problem(LOG_NO_PATH_USER, 202, "x", u32{status});
        return status;
    }
    vtm_table_init(&main_cb.tp_table, 0);
    if (main_cb.tp_table == 0) {
        log_exception(LOG_SHORTAGE, 203, "");
        return no_tp_table;
    }
    clear_pend_cache();
    vav_init_ptr_offsets();
    vav_init_lu_alias_map();
    main_cb.state = RUNNING;
    return 0;
}

void vav_terminate() noexcept
{
    if (main_cb.path_user != 0) {
        vpm_terminate_path_user(main_cb.path_user);
        main_cb.path_user = 0;
    }
    if (main_cb.tp_table != 0) {
        vtm_table_terminate(&main_cb.tp_table);
        main_cb.tp_table = 0;
    }
    release_pend_cache();
    main_cb.state = NOT_STARTED;
    ++main_cb.stops;
}

void stop_after_last_tp() noexcept
{
    void* entry = nullptr;
    if (main_cb.state == NODE_TERMINATED && vtm_get_next_used(main_cb.tp_table, 0, &entry) == 0)
        vav_terminate();
}

}  // namespace tessaly
