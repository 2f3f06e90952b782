// Delivery: events in the order of their arrival, under the lock. An event leaves the queue before its routine is called, since
// an application's callback in there may let further events be delivered.
#include "localnode/runtime/events.h"

#include "localnode/runtime/fork.h"
#include "localnode/runtime/host.h"
#include "localnode/runtime/lock.h"
#include "localnode/runtime/paths.h"
#include "localnode/runtime/record_handles.h"

#include "runtime/node_runtime.h"
#include "verbs/block.h"
#include "wire/datagrams.h"
#include "wire/verb_message.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

namespace tessaly::runtime {

constinit block* first_event = nullptr;

namespace {

constinit block* last_event = nullptr;
constinit u32 last_sequence = 0;

// Calls the routine and frees the buffer afterwards, unless the library has freed it meanwhile. Between is what only messages
// need: with result 1, the delivery of their data.
template <typename Between>
void call(block* event, u32 path, node_receive_routine receive, Between between) noexcept
{
    delivery now;
    event->under_way = &now;
    rcv_info info{};
    info.event = event->event;
    info.rcv_ips = event->bytes != 0 ? event->data() : nullptr;
    const u16 result = receive(path, &info);
    between(result, info, now);
    if (!now.buffer_freed) {
        event->under_way = nullptr;
        free_block(event);
    }
}

void call(block* event, u32 path, node_receive_routine receive) noexcept
{
    call(event, path, receive, [](u16, rcv_info&, const delivery&) {});
}

void deliver_message(block* event, const path_user& to) noexcept
{
    const u8* message = event->data();
    const bool has_header = event->bytes >= sizeof(verb_message_header);
    const u32 buf_len = has_header ? load<u32>(message, offsetof(verb_message_header, buf_len)) : 0;
    const u32 msg_len = has_header ? load<u32>(message, offsetof(verb_message_header, msg_len)) : 0;
    if (buf_len < sizeof(verb_message_header) || msg_len < buf_len || event->bytes < msg_len) {
        break_path(event->path);
        return free_block(event);
    }
    // Taken now: the routine changes the lengths, ends verbs, and may close the path.
    const u32 path_number = event->path;
    const u8* data = message + buf_len;
    u32 room = msg_len - buf_len;
    if (room != 0 && to.kind == VERB_LIBRARY)
        room = std::min(room, receive_limit_of(load<u32>(message, offsetof(verb_message_header, pend_handle)), path_number));

    call(event, path_number, to.receive, [&](u16 result, rcv_info& info, const delivery& now) {
        if (result != NODE_RESULT_DELIVER || info.data_callback == nullptr)
            return;
        if (now.buffer_freed)
            return v0_assert("events", __LINE__, "a message is kept until its data is delivered");
        info.data_len = std::min(info.data_len, room);
        if (info.data_buf != 0)
            std::memcpy(reinterpret_cast<void*>(static_cast<std::uintptr_t>(info.data_buf)), data, info.data_len);
        info.data_callback(path_number, &info);
    });
}

// The path user that a datagram of this type goes to; null when nobody wants it.
const path_user* datagram_receiver(block* event) noexcept
{
    datagram_header header;
    if (event->bytes < sizeof header)
        return nullptr;
    std::memcpy(&header, event->data(), sizeof header);
    if (header.length < sizeof header || event->bytes < header.length)
        return nullptr;
    constexpr u16 FOR_TP_SERVERS[] = {TPS_MSG_START_APPL_REQ, TPS_MSG_TP_FILE_STATUS, TPS_MSG_UPDATE_TP_RSP,
                                      TPS_MSG_QUERY_DLOAD_RSP};
    if (header.type == DATAGRAM_APPL_READY)
        return first_path_user(VERB_LIBRARY);
    if (std::ranges::find(FOR_TP_SERVERS, header.type) != std::end(FOR_TP_SERVERS))
        return first_path_user(TP_SERVER);
    return nullptr;
}

std::optional<start_appl_req_datagram> start_request_in(block* event) noexcept
{
    start_appl_req_datagram request;
    if (event->bytes != sizeof request)
        return std::nullopt;
    std::memcpy(&request, event->data(), sizeof request);
    if (request.header.length != sizeof request || request.header.type != TPS_MSG_START_APPL_REQ)
        return std::nullopt;
    return request;
}

// A start request that nobody takes goes back, so that the node asks somebody else.
void deliver_datagram(block* event) noexcept
{
    const std::optional<start_appl_req_datagram> request = start_request_in(event);  // which the routine may free
    const path_user* to = datagram_receiver(event);
    bool taken = false;
    if (to != nullptr)
        call(event, 0, to->receive, [&](u16 result, rcv_info&, const delivery& now) {
            taken = result != NODE_RESULT_DONE || now.buffer_freed;
        });
    else
        free_block(event);
    if (!request || taken || fork_unreported)
        return;
    const std::span<const u8> block{reinterpret_cast<const u8*>(&*request), sizeof *request};
    host_in_use()->submit({.kind = node::frame_kind::datagram_returned, .block = block});
}

// Delivers an event, or drops it when nobody is there to receive it.
void deliver(block* event) noexcept
{
    const path* from = nullptr;
    const path_user* to = nullptr;
    switch (event->event) {
    case NODE_EVENT_DATAGRAM: return deliver_datagram(event);
    case NODE_EVENT_TERMINATED:
        to = find_path_user(event->path);
        break;
    default:
        from = find_path(event->path);
        to = from != nullptr ? from->user : nullptr;
        break;
    }
    if (to == nullptr)
        return free_block(event);

    // The routine may end its path user.
    const path_user receiver = *to;
    if (event->event == NODE_EVENT_IPS)
        return deliver_message(event, receiver);
    const u32 number = from != nullptr ? event->path : 0;
    if (event->event == NODE_EVENT_PATH_FAILURE)
        forget_path(number);
    call(event, number, receiver.receive);
}

}  // namespace

void queue_block(block* event) noexcept
{
    event->next = nullptr;
    event->sequence = ++last_sequence;
    if (first_event == nullptr)
        first_event = event;
    else
        last_event->next = event;
    last_event = event;
}

u8* queue_event(u16 event, u32 path, u32 bytes) noexcept
{
    block* made = allocate_block(bytes);
    if (made == nullptr)
        return nullptr;
    made->event = event;
    made->path = path;
    queue_block(made);
    return made->data();
}

void deliver_waiting(const bool& stop) noexcept
{
    pass_time_if_due();
    const u32 last = last_sequence;
    while (events_wait() && !stop && static_cast<i32>(first_event->sequence - last) <= 0) {
        block* event = first_event;
        first_event = event->next;
        deliver(event);
        report_fork();
    }
}

void drop_events_of(u32 path) noexcept
{
    block* kept_last = nullptr;
    for (block** link = &first_event; *link != nullptr;) {
        block* event = *link;
        if (event->path == path && event->event != NODE_EVENT_TERMINATED) {
            *link = event->next;
            free_block(event);
        } else {
            kept_last = event;
            link = &event->next;
        }
    }
    last_event = kept_last;
}

void drop_all_events() noexcept
{
    while (first_event != nullptr) {
        block* event = first_event;
        first_event = event->next;
        free_block(event);
    }
}

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" void vpm_process_pending_events(void)
{
    if (!process_lock.held()) {
        v0_assert("events", __LINE__, "events are delivered under the lock");
        return;
    }
    deliver_waiting(NEVER_STOP);
}
