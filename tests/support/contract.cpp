// The runtime contract, operation by operation, on top of the scripted node. What only checks the caller and notes down is
// here; what plays the node is in scripted_node.cpp.
#include "tests/support/scripted_node.h"

#include <gtest/gtest.h>
#include <pwd.h>

#include <cstdarg>
#include <sstream>

using namespace tessaly;
using namespace tessaly::test;

namespace {

using op = may_fail;

// Numbers of different kinds never meet, so that a handle in the wrong place is noticed.
enum kind : u32 { HANDLE = 0x48000000, PATH = 0x50000000, TABLE = 0x54000000, USER = 0x55000000, WAIT = 0x57000000 };

template <typename Map>
u32 make(const char* operation, may_fail which, Map& held, kind base, typename Map::mapped_type what)
{
    if (the_node->refuses(operation, which))
        return 0;
    const u32 number = base + ++the_node->numbers;
    held.emplace(number, std::move(what));
    return number;
}

template <typename Map>
void drop(const char* operation, Map& held, u32 number)
{
    the_node->enter(operation);
    EXPECT_EQ(held.erase(number), 1u) << operation << " of what is not held: 0x" << std::hex << number;
}

std::map<u32, void*>& entries_of(u32 table)
{
    static std::map<u32, void*> none;
    EXPECT_TRUE(table == 0 || the_node->tables.contains(table)) << "no table: 0x" << std::hex << table;
    return table == 0 ? none : the_node->tables[table];
}

template <typename Map>
void* found_in(const char* operation, const Map& held, u32 number)
{
    the_node->enter(operation);
    return held.contains(number) ? held.at(number) : nullptr;
}

void write_log(char kind, u32 id, u16 point, const char* descriptor, va_list arguments)
{
    the_node->enter("a log");
    log_record log{kind, id, point, descriptor};
    std::istringstream codes(descriptor);
    for (std::string code; codes >> code;) {
        const u32 number = va_arg(arguments, u32);
        if (code == "x" || code == "lx")
            log.numbers.push_back(number);
        else
            log.strings.push_back(as_bytes(va_arg(arguments, const void*), number));
    }
    the_node->logs.push_back(std::move(log));
}

void trace(u32 file, const char* label, trace_call call)
{
    EXPECT_TRUE(file == the_node->trace_file && label == std::string("APPC "));
    the_node->trace.push_back(std::move(call));
}

}  // namespace

// The password entry of the process, as the test sets it.
struct passwd* getpwuid(uid_t)
{
    static passwd entry;
    entry.pw_name = the_node->user_name ? the_node->user_name->data() : nullptr;
    return the_node->user_name ? &entry : nullptr;
}

uid_t geteuid() noexcept
{
    return the_node->effective_user;
}

extern "C" {

static u8 flags[16];
u8* ptrc = flags;
trc_api_record trc_api;
char BoxName[64];
const u8 nba_blank_name[8] = {};

// What takes a line or two.
// clang-format off
u16 vpm_lock(void)                            { return static_cast<u16>(++the_node->lock_depth); }
void vpm_unlock(u16 token)                    { EXPECT_EQ(token, the_node->lock_depth); the_node->lock_depth = token - 1u; }
void vpm_process_pending_events(void)         { the_node->enter(__func__); the_node->deliver(); }
u32 vpm_allocate_wait_object(void) { return make(__func__, op::vpm_allocate_wait_object, the_node->wait_objects, WAIT, 0); }
void vpm_release_wait_object(u32 object)      { drop(__func__, the_node->wait_objects, object); }
void vpm_sleep(u32 object, u32 timeout_ms)    { the_node->enter(__func__, timeout_ms == 0xFFFFFFFF); the_node->sleep(object); }
void vtm_table_init(u32* table, u32)          { *table = make(__func__, op::vtm_table_init, the_node->tables, TABLE, {}); }
void vtm_table_terminate(u32* table)          { drop(__func__, the_node->tables, *table); }
void vtm_release_entry(u32 table, u32 handle) { drop(__func__, entries_of(table), handle); }
void* vtm_get_pointer(u32 table, u32 handle)  { return found_in(__func__, entries_of(table), handle); }
u32 nba_create_handle(void* pointer) { return make(__func__, op::nba_create_handle, the_node->handles, HANDLE, pointer); }
void nba_destroy_handle(u32 handle)           { drop(__func__, the_node->handles, handle); }
void* nba_validate_handle(u32 handle)         { return found_in(__func__, the_node->handles, handle); }
void nba_mm_free(void* pointer, u32 zero)     { the_node->enter(__func__, zero == 0); the_node->release(pointer); }
void nba_mm_refresh(u32 two)                  { the_node->enter(__func__, two == 2); }
void v0_assert(const char* module, u32 line, const char* text) { the_node->asserted({module, line, text}); }
void com_trc_sep(u32 file, const char* label) { trace(file, label, {"sep"}); }
void com_trc_line(u32 file, const char* label, const char* text) { trace(file, label, {text}); }
void trc_unlock_file(trc_api_record*)         { the_node->trace.push_back({"unlock"}); }
// clang-format on

// The library converts no names by itself.
void nba_ebcdic_to_local(u8*, u32)
{
    ADD_FAILURE() << "nba_ebcdic_to_local";
}

u16 nba_check_ebcdic(u8 char_class, const u8* span, u16 count)
{
    EXPECT_EQ(char_class, 8);
    static const bytes of_class_8 = ebcdic("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789$#@");
    return std::all_of(span, span + count, [](u8 byte) { return std::ranges::count(of_class_8, byte) != 0; });
}

void com_trc_dump(u32 file, const char* label, const void* start, u32 count)
{
    trace(file, label, {"dump", start, the_node->reads_dumps && start != nullptr ? as_bytes(start, count) : bytes{}});
}

void sepuapi_init(u8* flags_bytes)
{
    EXPECT_EQ(flags_bytes, ptrc);
    the_node->trace.push_back({"init"});
    ptrc[1] |= the_node->flags_of_trace;
}

void trc_lock_file(trc_api_record* record)
{
    EXPECT_EQ(record, &trc_api);
    the_node->trace.push_back({"lock"});
    record->trace_file = the_node->trace_file;
}

// The lowest free number, so that handles come back as soon as they may.
u32 vtm_get_free_entry(u32 table, void* what)
{
    if (the_node->refuses(__func__, op::vtm_get_free_entry))
        return 0;
    u32 handle = 1;
    while (!entries_of(table).emplace(handle, what).second)
        ++handle;
    return handle;
}

u16 vpm_init_path_user(u32 kind, u32 user_flags, node_receive_routine receive, u32 zero, u32* out)
{
    const bool arguments_are_right = (kind == 0 || kind == 0x20) && user_flags == (kind != 0) && zero == 0;
    if (const u16 status = the_node->refuses(__func__, op::vpm_init_path_user, arguments_are_right))
        return status;
    *out = USER + ++the_node->numbers;
    the_node->users[*out] = {receive, kind};
    return 0;
}

void vpm_terminate_path_user(u32 path_user)
{
    EXPECT_GE(the_node->lock_depth, the_node->users[path_user].kind == 0 ? 1u : 2u) << "not locked once more";
    drop(__func__, the_node->users, path_user);
    for (auto& [number, path] : the_node->paths)
        path.open = path.open && path.user != path_user;
}

u32 vsm_query_services(u32 type, u32 zero, u32 cursor[2])
{
    const bool refused = the_node->refuses(__func__, op::vsm_query_services, type == 1 && zero == 0);
    return refused || cursor[0] >= the_node->nodes.size() ? 0 : the_node->nodes[cursor[0]++];
}

u32 vpm_create_path(u32 path_user, u32 node, u32 one, const void* caps)
{
    EXPECT_TRUE(one == 1 && the_node->users.contains(path_user));
    const bytes told = as_bytes(caps, load<u16>(caps, 0));
    return make(__func__, op::vpm_create_path, the_node->paths, PATH, {path_user, node, told, true});
}

void vpm_close_path(u32 path, u32 close_flags)
{
    the_node->enter(__func__, close_flags == 0xC000);
    EXPECT_TRUE(std::exchange(the_node->paths[path].open, false)) << "a path is closed that is not open";
}

u16 vpm_send_ips(u32 path, void* message, u32 message_bytes, const void* data, u32 data_bytes)
{
    const auto address = reinterpret_cast<uintptr_t>(message);
    const bool arguments_are_right = (data == nullptr) == (data_bytes == 0) && address % alignof(u32) == 0;
    const u16 status = the_node->refuses(__func__, op::vpm_send_ips, arguments_are_right);
    EXPECT_TRUE(the_node->paths[path].open) << "a verb is sent on no open path";
    auto& sent = the_node->sent;
    const bool continues = !sent.empty() && sent.back().path == path && !sent.back().is_complete();
    EXPECT_EQ(continues, message == nullptr) << "data that continues no message, or a message within another";
    if (status != 0) {
        the_node->queue.push_back({NODE_EVENT_PATH_FAILURE, path, {}});
        if (continues)
            sent.pop_back();
        return status;
    }
    if (message == nullptr) {
        sent.back().data = joined({sent.back().data, as_bytes(data, data_bytes)});
        sent.back().parts.push_back(data_bytes);
    } else {
        sent.push_back({path, address, as_bytes(message, message_bytes), as_bytes(data, data_bytes), {data_bytes}});
        EXPECT_EQ(sent.back().header().buf_len, the_node->users.at(the_node->paths[path].user).kind == 0 ? message_bytes : 0);
    }
    if (sent.back().is_complete())
        the_node->answers_to(sent.back());
    return 0;
}

u16 vpm_send_datagram(u32 kind, u32 zero, void* datagram, u32 count)
{
    const bool arguments_are_right = kind == 16 && zero == 0 && load<u16>(datagram, 0) == count;
    const u16 status = the_node->refuses(__func__, op::vpm_send_datagram, arguments_are_right);
    if (status == 0)
        the_node->datagrams.push_back(as_bytes(datagram, count));
    return status;
}

u16 vsb_ip_get_addr(const char* host, void** out, u32 family)
{
    static u32 record[2];
    the_node->enter(__func__, host == BoxName && family == 2);
    record[1] = the_node->address.value_or(0);
    if (the_node->address)
        *out = record;
    return the_node->address ? 0 : 1;
}

void vpm_wakeup(u32 wait_object)
{
    the_node->enter(__func__, the_node->wait_objects.contains(wait_object));
    ++the_node->wait_objects[wait_object];
}

u32 vtm_get_next_used(u32 table, u32 handle, void** out)
{
    the_node->enter(__func__);
    const auto& entries = entries_of(table);
    const auto next = entries.upper_bound(handle);
    if (next == entries.end())
        return 0;
    *out = next->second;
    return next->first;
}

void* nba_mm_alloc(u32 count, u32 mem_class, const void* tag, u32 zero_1, u32 zero_2)
{
    const bool arguments_are_right = mem_class == 770 && tag == &nba_blank_name && zero_1 == 0 && zero_2 == 0;
    return the_node->refuses(__func__, op::nba_mm_alloc, arguments_are_right) ? nullptr : the_node->obtain(count);
}

#define DEFINE_LOG(operation, kind)                                \
    void operation(u32 id, u16 point, const char* descriptor, ...) \
    {                                                              \
        va_list arguments;                                         \
        va_start(arguments, descriptor);                           \
        write_log(kind, id, point, descriptor, arguments);         \
        va_end(arguments);                                         \
    }
DEFINE_LOG(nba_pd_print_problem, 'p')
DEFINE_LOG(nba_pd_print_exception, 'e')
DEFINE_LOG(nba_pd_print_audit, 'a')

}  // extern "C"
