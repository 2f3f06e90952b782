// The null runtime: the runtime contract at the least cost that it can have, so that what is measured over it is the verb
// library. It is a libtessaly-runtime.so.7 like any other. For programs of one thread only.
//
// Every verb is answered with success as soon as it is sent. The answer is kept until vpm_sleep or
// vpm_process_pending_events delivers it. RECEIVE_AND_WAIT brings as much data as there is room for; RECEIVE_AND_POST is
// never answered, so that verbs can be kept in flight. Nothing is allocated after the start, but for what the library itself
// asks for.
#include "bench/null_handles.h"
#include "runtime/node_runtime.h"
#include "wire/verb_message.h"

#include <tessaly/appc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tessaly;
using namespace tessaly::bench;

namespace {

constexpr u32 NODE_ADDRESS = 0x01010101;
constexpr u32 NODE_CORRELATOR = 1;
constexpr u16 QUEUE_FULL = 12;
constexpr u32 MOST_ANSWERS = 512;
constexpr u32 MOST_WAIT_OBJECTS = 512;

// The library frees no message, so an answer stays in its place while it is delivered; the queue is full one place early, so
// that what a callback sends meanwhile does not overwrite it.
struct answer {
    u32 path;
    verb_message message;
};

answer answers[MOST_ANSWERS];
u32 answers_sent = 0;
u32 answers_delivered = 0;

node_receive_routine receive_routine = nullptr;
u8 received_data[64 * 1024];

handle_space<32 * 1024> tp_entries;
handle_space<32 * 1024> records;
bool table_is_made = false;

bool woken[MOST_WAIT_OBJECTS];
u32 idle_wait_objects[MOST_WAIT_OBJECTS];
u32 idle_count = 0;
u32 wait_objects_made = 0;

u32 lock_depth = 0;
u8 flags[16];

u16 keep_answer(u32 path, const void* message, u32 bytes) noexcept
{
    const u8* issued = static_cast<const verb_message*>(message)->block;
    if (reinterpret_cast<const appc_header*>(issued)->opcode == APPC_OP_RECEIVE_AND_POST)
        return 0;
    if (answers_sent - answers_delivered == MOST_ANSWERS - 1 || bytes > sizeof(verb_message))
        return QUEUE_FULL;

    answer& kept = answers[answers_sent++ % MOST_ANSWERS];
    kept.path = path;
    std::memcpy(&kept.message, message, bytes);
    verb_message_header& header = kept.message.header;
    header.dest_corr = header.src_corr;
    header.src_corr = NODE_CORRELATOR;

    // What is set here lies before the first pointer, so that it has the same place in the node's layout.
    auto& block = *reinterpret_cast<appc_receive*>(kept.message.block);
    if (block.opcode == APPC_OP_RECEIVE_AND_WAIT) {
        block.what_rcvd = APPC_WR_DATA_COMPLETE;
        block.dlen = block.max_len;
        header.msg_len += block.dlen;
    }
    return 0;
}

bool deliver_next() noexcept
{
    if (answers_delivered == answers_sent)
        return false;
    answer& next = answers[answers_delivered++ % MOST_ANSWERS];
    rcv_info info{NODE_EVENT_IPS, 0, &next.message, 0, 0, nullptr};
    const u32 path = next.path;
    const u16 result = receive_routine(path, &info);
    if (result == NODE_RESULT_DELIVER) {
        const u32 bytes = std::min<u32>(info.data_len, sizeof received_data);
        std::memcpy(reinterpret_cast<void*>(static_cast<std::uintptr_t>(info.data_buf)), received_data, bytes);
        info.data_callback(path, &info);
    }
    return true;
}

[[noreturn]] void give_up(const char* what) noexcept
{
    std::fprintf(stderr, "null runtime: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" {

u8* ptrc = flags;
trc_api_record trc_api = {};
char BoxName[64] = "bench";
const u8 nba_blank_name[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};

// ---- Paths and messages

u16 vpm_init_path_user(u32, u32, node_receive_routine receive, u32, u32* out)
{
    receive_routine = receive;
    *out = 1;
    return 0;
}

void vpm_terminate_path_user(u32) {}

u32 vsm_query_services(u32, u32, u32 cursor[2])
{
    return cursor[0]++ == 0 ? NODE_ADDRESS : 0;
}

u32 vpm_create_path(u32, u32, u32, const void*)
{
    static u32 paths = 0;
    return ++paths;
}

void vpm_close_path(u32, u32) {}

u16 vpm_send_ips(u32 path, void* message, u32 message_bytes, const void*, u32)
{
    return message != nullptr ? keep_answer(path, message, message_bytes) : u16{0};
}

u16 vpm_send_datagram(u32, u32, void*, u32)
{
    return 0;
}

u16 vsb_ip_get_addr(const char*, void**, u32)
{
    return 1;
}

// ---- Lock, wait objects, events

u16 vpm_lock(void)
{
    return static_cast<u16>(++lock_depth);
}

void vpm_unlock(u16)
{
    --lock_depth;
}

void vpm_process_pending_events(void)
{
    for (u32 waiting = answers_sent - answers_delivered; waiting != 0 && deliver_next(); --waiting) {}
}

u32 vpm_allocate_wait_object(void)
{
    if (idle_count != 0)
        return idle_wait_objects[--idle_count];
    return wait_objects_made + 1 < MOST_WAIT_OBJECTS ? ++wait_objects_made : 0;
}

void vpm_release_wait_object(u32 wait_object)
{
    woken[wait_object] = false;
    idle_wait_objects[idle_count++] = wait_object;
}

void vpm_sleep(u32 wait_object, u32)
{
    while (!woken[wait_object])
        if (!deliver_next())
            give_up("a caller sleeps and nothing will wake it");
    woken[wait_object] = false;
}

void vpm_wakeup(u32 wait_object)
{
    woken[wait_object] = true;
}

// ---- Handle tables; the library has one

void vtm_table_init(u32* table, u32)
{
    *table = table_is_made ? 0 : 1;
    table_is_made = true;
}

void vtm_table_terminate(u32* table)
{
    *table = 0;
    table_is_made = false;
}

u32 vtm_get_free_entry(u32, void* pointer)
{
    return tp_entries.create(pointer);
}

void* vtm_get_pointer(u32 table, u32 handle)
{
    return table != 0 ? tp_entries.pointer_of(handle) : nullptr;
}

void vtm_release_entry(u32, u32 handle)
{
    tp_entries.release(handle);
}

u32 vtm_get_next_used(u32 table, u32 handle, void** out)
{
    return table != 0 ? tp_entries.next_used(handle, out) : 0;
}

// ---- Memory and record handles

void* nba_mm_alloc(u32 bytes, u32, const void*, u32, u32)
{
    return std::malloc(bytes);
}

void nba_mm_free(void* pointer, u32)
{
    std::free(pointer);
}

void nba_mm_refresh(u32) {}

u32 nba_create_handle(void* pointer)
{
    return records.create(pointer);
}

void nba_destroy_handle(u32 handle)
{
    records.release(handle);
}

void* nba_validate_handle(u32 handle)
{
    return records.pointer_of(handle);
}

// ---- Logs, code conversion, trace, assertions

void nba_pd_print_problem(u32, u16, const char*, ...) {}
void nba_pd_print_exception(u32, u16, const char*, ...) {}
void nba_pd_print_audit(u32, u16, const char*, ...) {}

u16 nba_check_ebcdic(u8, const u8*, u16)
{
    return 1;
}

void nba_ebcdic_to_local(u8*, u32) {}

void sepuapi_init(u8*) {}

void trc_lock_file(trc_api_record* trace)
{
    trace->trace_file = TRC_NO_FILE;
}

void trc_unlock_file(trc_api_record*) {}
void com_trc_sep(u32, const char*) {}
void com_trc_line(u32, const char*, const char*) {}
void com_trc_dump(u32, const char*, const void*, u32) {}

void v0_assert(const char*, u32, const char* text)
{
    give_up(text);
}

}  // extern "C"
