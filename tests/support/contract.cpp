// The runtime contract, operation by operation, on top of the scripted node. What only checks the caller and notes down is here;
// what plays the node is in scripted_node.cpp.
#include "tests/support/scripted_node.h"

#include <gtest/gtest.h>
#include <pwd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

using namespace tessaly;
using tessaly::test::bytes;
using tessaly::test::log_record;
using tessaly::test::may_fail;
using tessaly::test::path_record;
using tessaly::test::the_node;

namespace {

// Numbers of different kinds never meet, so that a handle in the wrong place is noticed.
enum number_kind : u32 {
    PATH_USERS = 0x55000000,
    PATHS = 0x50000000,
    WAIT_OBJECTS = 0x57000000,
    TABLES = 0x54000000,
    HANDLES = 0x48000000,
};

bytes copy_of(const void* start, u32 count)
{
    const u8* first = static_cast<const u8*>(start);
    return first == nullptr ? bytes{} : bytes(first, first + count);
}

template <typename Map>
void drop(Map& held, u32 number, const char* what)
{
    EXPECT_EQ(held.erase(number), 1u) << what << " is released that is not held: 0x" << std::hex << number;
}

void write_log(char kind, u32 id, u16 point, const char* descriptor, va_list arguments)
{
    log_record log{kind, id, point, descriptor, {}, {}};
    for (const char* code = descriptor; *code != '\0';) {
        const size_t length = std::strcspn(code, " ");
        const std::string_view word(code, length);
        const u32 number = va_arg(arguments, u32);
        if (word == "x" || word == "lx") {
            log.numbers.push_back(number);
        } else {
            EXPECT_TRUE(word == "es" || word == "ca" || word == "ba") << "log descriptor: " << descriptor;
            log.strings.push_back(copy_of(va_arg(arguments, const void*), number));
        }
        code += code[length] == ' ' ? length + 1 : length;
    }
    the_node->logs.push_back(std::move(log));
}

}  // namespace

// The password entry of the process, as the test sets it.
struct passwd* getpwuid(uid_t)
{
    static passwd entry;
    if (the_node == nullptr || !the_node->user_name)
        return nullptr;
    entry.pw_name = the_node->user_name->data();
    return &entry;
}

extern "C" {

static u8 flags[16];
u8* ptrc = flags;
trc_api_record trc_api;
char BoxName[64];
const u8 nba_blank_name[8] = {};

u16 vpm_init_path_user(u32 kind, u32, node_receive_routine receive, u32 zero, u32* out)
{
    EXPECT_EQ(zero, 0u);
    if (const u16 status = the_node->enter("vpm_init_path_user", may_fail::vpm_init_path_user))
        return status;
    *out = the_node->new_number(PATH_USERS);
    the_node->users[*out] = {kind, receive};
    return 0;
}

void vpm_terminate_path_user(u32 path_user)
{
    the_node->enter("vpm_terminate_path_user");
    drop(the_node->users, path_user, "a path user");
}

u32 vsm_query_services(u32 type, u32 zero, u32 cursor[2])
{
    EXPECT_EQ(type, 1u);
    EXPECT_EQ(zero, 0u);
    if (the_node->enter("vsm_query_services", may_fail::vsm_query_services) || cursor[0] >= the_node->nodes.size())
        return 0;
    return the_node->nodes[cursor[0]++];
}

u32 vpm_create_path(u32 path_user, u32 node, u32 one, const void* caps)
{
    EXPECT_EQ(one, 1u);
    EXPECT_TRUE(the_node->users.contains(path_user)) << "a path without a path user";
    if (the_node->enter("vpm_create_path", may_fail::vpm_create_path))
        return 0;
    u16 length;
    std::memcpy(&length, caps, sizeof length);
    const u32 path = the_node->new_number(PATHS);
    the_node->paths[path] = {path_user, node, copy_of(caps, length), path_record::open, 0};
    return path;
}

void vpm_close_path(u32 path, u32 close_flags)
{
    the_node->enter("vpm_close_path");
    const auto found = the_node->paths.find(path);
    if (found == the_node->paths.end() || found->second.state != path_record::open) {
        ADD_FAILURE() << "a path is closed that is not open: 0x" << std::hex << path;
        return;
    }
    found->second.state = path_record::closed;
    found->second.close_flags = close_flags;
}

u16 vpm_send_ips(u32 path, void* message, u32 message_bytes, const void* data, u32 data_bytes)
{
    const u16 status = the_node->enter("vpm_send_ips", may_fail::vpm_send_ips);
    const auto found = the_node->paths.find(path);
    EXPECT_TRUE(found != the_node->paths.end() && found->second.state == path_record::open)
        << "a verb is sent on no open path";
    EXPECT_EQ(data == nullptr, data_bytes == 0) << "data address and length do not agree";
    if (status != 0) {
        the_node->send_has_failed(path);
        return status;
    }
    const bytes tail = copy_of(data, data_bytes);
    if (message == nullptr) {
        EXPECT_TRUE(!the_node->sent.empty() && the_node->sent.back().path == path) << "data that continues no message";
        auto& verb = the_node->sent.back();
        verb.data.insert(verb.data.end(), tail.begin(), tail.end());
        verb.parts.push_back(data_bytes);
        return 0;
    }
    const u32 address = static_cast<u32>(reinterpret_cast<uintptr_t>(message));
    EXPECT_EQ(address % alignof(u32), 0u);
    the_node->sent.push_back({path, address, copy_of(message, message_bytes), tail, {data_bytes}});
    EXPECT_EQ(the_node->sent.back().header().buf_len, message_bytes);
    the_node->message_is_complete(the_node->sent.back());
    return 0;
}

u16 vpm_send_datagram(u32 kind, u32 zero, void* datagram, u32 count)
{
    EXPECT_EQ(kind, 16u);
    EXPECT_EQ(zero, 0u);
    if (const u16 status = the_node->enter("vpm_send_datagram", may_fail::vpm_send_datagram))
        return status;
    the_node->datagrams.push_back(copy_of(datagram, count));
    EXPECT_EQ(static_cast<u32>(the_node->datagrams.back()[0]), count) << "a datagram's length";
    return 0;
}

u16 vsb_ip_get_addr(const char* host, void** out, u32 family)
{
    the_node->enter("vsb_ip_get_addr");
    EXPECT_STREQ(host, BoxName);
    EXPECT_EQ(family, 2u);
    if (!the_node->address)
        return 1;
    the_node->address_record = {0, *the_node->address};
    *out = the_node->address_record.data();
    return 0;
}

u16 vpm_lock(void)
{
    the_node->calls.push_back("vpm_lock");
    return static_cast<u16>(++the_node->lock_depth);
}

void vpm_unlock(u16 token)
{
    the_node->calls.push_back("vpm_unlock");
    EXPECT_EQ(token, the_node->lock_depth) << "the lock is given back out of turn";
    if (the_node->lock_depth != 0)
        --the_node->lock_depth;
}

void vpm_process_pending_events(void)
{
    the_node->enter("vpm_process_pending_events");
    the_node->deliver();
}

u32 vpm_allocate_wait_object(void)
{
    if (the_node->enter("vpm_allocate_wait_object", may_fail::vpm_allocate_wait_object))
        return 0;
    const u32 object = the_node->new_number(WAIT_OBJECTS);
    the_node->wait_objects[object] = 0;
    return object;
}

void vpm_release_wait_object(u32 wait_object)
{
    the_node->enter("vpm_release_wait_object");
    drop(the_node->wait_objects, wait_object, "a wait object");
}

void vpm_sleep(u32 wait_object, u32 timeout_ms)
{
    the_node->enter("vpm_sleep");
    EXPECT_EQ(timeout_ms, 0xFFFFFFFFu);
    the_node->sleep(wait_object);
}

void vpm_wakeup(u32 wait_object)
{
    the_node->enter("vpm_wakeup");
    const auto found = the_node->wait_objects.find(wait_object);
    if (found == the_node->wait_objects.end())
        ADD_FAILURE() << "a wait object is woken that is not held";
    else
        ++found->second;
}

void vtm_table_init(u32* table, u32 zero)
{
    EXPECT_EQ(zero, 0u);
    *table = 0;
    if (the_node->enter("vtm_table_init", may_fail::vtm_table_init))
        return;
    *table = the_node->new_number(TABLES);
    the_node->tables[*table];
}

void vtm_table_terminate(u32* table)
{
    the_node->enter("vtm_table_terminate");
    drop(the_node->tables, *table, "a table");
}

u32 vtm_get_free_entry(u32 table, void* pointer)
{
    EXPECT_TRUE(the_node->tables.contains(table));
    if (the_node->enter("vtm_get_free_entry", may_fail::vtm_get_free_entry))
        return 0;
    const u32 entry = the_node->new_number(0);
    the_node->tables[table][entry] = pointer;
    return entry;
}

void* vtm_get_pointer(u32 table, u32 handle)
{
    the_node->enter("vtm_get_pointer");
    const auto found = the_node->tables.find(table);
    EXPECT_TRUE(table == 0 || found != the_node->tables.end()) << "look-up in no table";
    return found == the_node->tables.end() || !found->second.contains(handle) ? nullptr : found->second[handle];
}

void vtm_release_entry(u32 table, u32 handle)
{
    the_node->enter("vtm_release_entry");
    drop(the_node->tables[table], handle, "a table entry");
}

u32 vtm_get_next_used(u32 table, u32 handle, void** out)
{
    the_node->enter("vtm_get_next_used");
    const auto found = the_node->tables.find(table);
    if (found == the_node->tables.end()) {
        EXPECT_EQ(table, 0u) << "a walk through no table";
        return 0;
    }
    const auto next = found->second.upper_bound(handle);
    if (next == found->second.end())
        return 0;
    *out = next->second;
    return next->first;
}

void* nba_mm_alloc(u32 count, u32 mem_class, const void* tag, u32 zero_1, u32 zero_2)
{
    EXPECT_TRUE(mem_class == 770 && tag == &nba_blank_name && zero_1 == 0 && zero_2 == 0);
    return the_node->enter("nba_mm_alloc", may_fail::nba_mm_alloc) ? nullptr : the_node->obtain(count);
}

void nba_mm_free(void* pointer, u32 zero)
{
    the_node->enter("nba_mm_free");
    EXPECT_EQ(zero, 0u);
    the_node->release(pointer);
}

void nba_mm_refresh(u32 two)
{
    the_node->enter("nba_mm_refresh");
    EXPECT_EQ(two, 2u);
}

u32 nba_create_handle(void* pointer)
{
    if (the_node->enter("nba_create_handle", may_fail::nba_create_handle))
        return 0;
    const u32 handle = the_node->new_number(HANDLES);
    the_node->handles[handle] = pointer;
    return handle;
}

void nba_destroy_handle(u32 handle)
{
    the_node->enter("nba_destroy_handle");
    drop(the_node->handles, handle, "a record handle");
}

void* nba_validate_handle(u32 handle)
{
    the_node->enter("nba_validate_handle");
    return the_node->record_of(handle);
}

#define DEFINE_LOG(operation, kind)                                \
    void operation(u32 id, u16 point, const char* descriptor, ...) \
    {                                                              \
        the_node->enter(#operation);                               \
        va_list arguments;                                         \
        va_start(arguments, descriptor);                           \
        write_log(kind, id, point, descriptor, arguments);         \
        va_end(arguments);                                         \
    }
DEFINE_LOG(nba_pd_print_problem, 'p')
DEFINE_LOG(nba_pd_print_exception, 'e')
DEFINE_LOG(nba_pd_print_audit, 'a')

u16 nba_check_ebcdic(u8, const u8* text, u16 count)
{
    static const bytes members = test::ebcdic("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789$#@");
    for (u16 i = 0; i < count; ++i)
        if (std::memchr(members.data(), text[i], members.size()) == nullptr)
            return 0;
    return 1;
}

void nba_ebcdic_to_local(u8* text, u32 count)
{
    for (u32 i = 0; i < count; ++i)
        for (char c = ' '; c <= '~'; ++c)
            if (std::strchr("!\"&'()*+,:;<=>?[\\]^`{|}~", c) == nullptr &&
                test::ebcdic(std::string(1, c).c_str())[0] == text[i]) {
                text[i] = static_cast<u8>(c);
                break;
            }
}

// No trace file is open.
void sepuapi_init(u8*) {}
void trc_lock_file(trc_api_record* trace)
{
    trace->trace_file = TRC_NO_FILE;
}
void trc_unlock_file(trc_api_record*)
{
    ADD_FAILURE() << "the trace file was not locked";
}
void com_trc_sep(u32, const char*) {}
void com_trc_line(u32, const char*, const char*) {}
void com_trc_dump(u32, const char*, const void*, u32) {}

void v0_assert(const char*, u32, const char* text)
{
    the_node->asserted(text);
}

}  // extern "C"
