// The library's side of the contract, played by the test: a path user whose receive routine does what the test says.
#pragma once

#include "scripted_engine.h"

#include "common/runtime_guards.h"
#include "runtime/node_runtime.h"
#include "verbs/block.h"
#include "wire/datagrams.h"
#include "wire/verb_message.h"

#include <gtest/gtest.h>

#include <cstring>
#include <semaphore>
#include <string>
#include <string_view>
#include <tuple>

namespace tessaly {

using namespace node;

inline constexpr u32 NO_LIMIT = 0xFFFFFFFF;
inline constexpr u32 BLOCK_BYTES = sizeof(verb_message_header) + 56;

// A verb with a block of 56 bytes; its message says that data_bytes follow.
inline std::vector<u8> verb(u16 opcode, u32 pend = 0, u32 data_bytes = 0, u16 max_len = 0)
{
    std::vector<u8> message(BLOCK_BYTES);
    store<u32>(message.data(), offsetof(verb_message_header, buf_len), BLOCK_BYTES);
    store<u32>(message.data(), offsetof(verb_message_header, msg_len), BLOCK_BYTES + data_bytes);
    store<u32>(message.data(), offsetof(verb_message_header, pend_handle), pend);
    store<u16>(message.data(), sizeof(verb_message_header), opcode);
    store<u16>(message.data(), sizeof(verb_message_header) + offsetof(appc_receive, max_len), max_len);
    return message;
}

inline void node_sends(frame_sink& output, frame_kind kind, u32 path, std::vector<u8> bytes, std::string_view data = {})
{
    bytes.insert(bytes.end(), data.begin(), data.end());
    u8* room = output.add(1, kind, path, static_cast<u32>(bytes.size()));
    ASSERT_NE(room, nullptr);
    std::memcpy(room, bytes.data(), bytes.size());
}

inline u32 pend_of(const rcv_info& info) { return load<u32>(info.rcv_ips, offsetof(verb_message_header, pend_handle)); }

class RuntimeTest : public testing::Test {
protected:
    using event = std::tuple<u16, u32, u32>;  // kind, path, and pend handle of a message
    using event_list = std::vector<event>;

    RuntimeTest()
    {
        script = {};
        current = this;
        const process_lock lock;
        EXPECT_EQ(vpm_init_path_user(0, 0, receive, 0, &user), 0);
        // The node echoes each verb, without its data, and answers a datagram with an application-ready one.
        script.on_datagram = [](const frame&, frame_sink& output) {
            node_sends(output, frame_kind::datagram, 0, {4, 0, DATAGRAM_APPL_READY, 0});
        };
        script.on_message = [](const frame& input, frame_sink& output) {
            std::vector<u8> echo{input.block.begin(), input.block.end()};
            store(echo.data(), offsetof(verb_message_header, msg_len), static_cast<u32>(echo.size()));
            node_sends(output, frame_kind::message, input.path, echo);
        };
    }
    ~RuntimeTest() override
    {
        const process_lock lock;
        vpm_terminate_path_user(user);
        vpm_process_pending_events();
    }

    u32 open_path() const
    {
        const process_lock lock;
        return vpm_create_path(user, node::NODE_ADDRESS, 1, nullptr);
    }

    static u16 send(u32 path, std::vector<u8> message, std::string_view data = {})
    {
        const process_lock lock;
        return vpm_send_ips(path, message.data(), static_cast<u32>(message.size()), data.data(), static_cast<u32>(data.size()));
    }
    static u16 send(u32 path, u32 pend)
    {
        const process_lock lock;  // its memory too: the sanitizer's allocator may be busy in a thread that a fork leaves behind
        return send(path, verb(SEND_DATA, pend));
    }

    // As the library runs a synchronous verb; its message names the wait object that its answer wakes.
    static void run_verb(u32 path)
    {
        const process_lock lock;
        const u32 object = vpm_allocate_wait_object();
        vpm_process_pending_events();
        send(path, object);
        vpm_sleep(object, NO_LIMIT);
        vpm_release_wait_object(object);
    }

    static u16 receive(u32 path, rcv_info* info)
    {
        const u32 pend = info->event == NODE_EVENT_IPS ? pend_of(*info) : 0;
        current->events.push_back({info->event, path, pend});
        vpm_wakeup(pend);  // if it names a wait object
        return info->result = current->on_event ? current->on_event(path, *info) : u16{NODE_RESULT_DONE};
    }

    static inline RuntimeTest* current = nullptr;
    u32 user = 0;
    event_list events;
    std::counting_semaphore<> delivered{0};  // for threads that wait without the lock
    std::function<u16(u32, rcv_info&)> on_event;
};

}  // namespace tessaly
