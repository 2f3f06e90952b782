#include "tests/support/scripted_node.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

namespace tessaly::test {

scripted_node* the_node = nullptr;

// ---- The script.

void scripted_node::refuse(std::optional<may_fail> which, u32 nth, bool from_then_on, u16 status)
{
    refusals.push_back({which, nth, from_then_on, status});
    refusals_seen = 0;
}

bytes scripted_node::answer_to(const sent_verb& verb, const reply& how)
{
    constexpr u32 NEW_CONVERSATION = 7;
    verb_message_header header = verb.header();
    const u32 tp_handle = header.src_corr;
    bytes block = converted(verb.block(), layout::caller);
    const size_t length = block.size();
    block.resize(256);  // fill may see it as any public struct
    store(block.data(), 4, how.primary);
    store(block.data(), 8, how.secondary);
    if (how.primary == OK && verb.opcode() == TP_STARTED)
        std::ranges::copy(id_of(tp_handle), block.begin() + 20);
    if (how.primary == OK && verb.opcode() == RECEIVE_ALLOCATE)
        std::ranges::copy(joined({id_of(tp_handle), words({NEW_CONVERSATION})}), block.begin() + 76);
    if (how.primary == OK && verb.opcode() == ALLOCATE)
        store(block.data(), 20, NEW_CONVERSATION);
    if (how.fill)
        how.fill(block.data());
    block.resize(length);
    block = converted(block, layout::node);
    header.dest_corr = tp_handle;
    header.src_corr = corr_of(tp_handle);
    header.buf_len = static_cast<u32>(sizeof header + block.size());
    header.msg_len = static_cast<u32>(header.buf_len + how.data.size());
    return joined({as_bytes(&header, sizeof header), block, how.data});
}

void scripted_node::answers_to(const sent_verb& verb)
{
    script& now = scripts[verb.opcode()];
    if (!now.once.empty()) {
        queue.push_back({NODE_EVENT_IPS, verb.path, answer_to(verb, now.once.front())});
        now.once.pop_front();
    } else if (now.always) {
        queue.push_back({NODE_EVENT_IPS, verb.path, answer_to(verb, *now.always)});
    }
}

// ---- What was seen.

const sent_verb& scripted_node::last(u16 opcode) const
{
    static const sent_verb nothing{0, 0, bytes(sizeof(verb_message)), {}, {}};
    const auto found = std::find_if(sent.rbegin(), sent.rend(), [&](auto& verb) { return verb.opcode() == opcode; });
    EXPECT_NE(found, sent.rend()) << "no verb 0x" << std::hex << opcode << " was sent";
    return found == sent.rend() ? nothing : *found;
}

log_record scripted_node::logged(u16 point) const
{
    const auto found = std::ranges::find(logs, point, &log_record::point);
    return found == logs.end() ? log_record{} : *found;
}

holdings scripted_node::held() const
{
    holdings held{memory.size(), handles.size(), wait_objects.size(), tables.size(), 0, 0, 0};
    const auto is_held = [](const path_user& user) { return user.kind == 0 || !user.outlived_the_node; };
    for (const auto& [number, user] : users)
        held.path_users += is_held(user);
    for (const auto& [number, table] : tables)
        held.entries += table.size();
    for (const auto& [number, path] : paths)
        held.paths += path.open && users.contains(path.user) && is_held(users.at(path.user));
    return held;
}

i32 scripted_node::traced_as_pending() const
{
    std::map<const void*, i32> pending;
    bool request = false;
    for (const trace_call& call : trace) {
        if (call.what.ends_with(" request") || call.what.find(" response, ") != std::string::npos) {
            request = call.what.ends_with(" request");
        } else if (call.what.starts_with("---- Verb")) {
            EXPECT_GE(pending[(&call + 1)->start] += request ? 1 : -1, 0) << (&call - 1)->what << ", without a request";
        }
    }
    return static_cast<i32>(std::ranges::count_if(pending, [](const auto& each) { return each.second != 0; }));
}

void scripted_node::check_at_end() const
{
    EXPECT_EQ(lock_depth, 0u) << "the lock is still held";
    EXPECT_EQ(held(), holdings{}) << "the library has stopped and still holds something";
    for (const std::string& text : expected_assertions)
        ADD_FAILURE() << "not reported: " << text;
    for (const sent_verb& verb : sent)
        EXPECT_TRUE(verb.is_complete()) << "opcode " << verb.opcode();
}

// ---- The ledger.

void scripted_node::enter(const char* operation, bool arguments_are_right)
{
    calls.push_back(operation);
    EXPECT_TRUE(arguments_are_right) << operation;
    EXPECT_NE(lock_depth, 0u) << operation << " is called without the lock";
    errno = EIO;
}

u16 scripted_node::refuses(const char* operation, may_fail which, bool arguments_are_right)
{
    enter(operation, arguments_are_right);
    u16 status = 0;
    for (refusal& plan : refusals)
        if (plan.which.value_or(which) == which && ++plan.seen >= plan.nth && (plan.seen == plan.nth || plan.from_then_on))
            status = plan.status;
    refusals_seen += status != 0;
    if (status != 0)
        errno = SHORTAGE;
    return status;
}

void* scripted_node::obtain(u32 size)
{
    void* pointer = std::malloc(size);
    std::memset(pointer, 0xA5, size);  // nobody may rely on zeros
    memory[pointer] = {size, ++numbers};
    return pointer;
}

void scripted_node::release(void* pointer)
{
    const auto found = memory.find(pointer);
    ASSERT_NE(found, memory.end()) << "memory is freed that is not held: " << pointer;
    std::memset(pointer, 0xDD, found->second.first);
    memory.erase(found);
    std::free(pointer);
}

void scripted_node::asserted(const broken_invariant& what)
{
    broken.push_back(what);
    if (std::ranges::count(tolerated_assertions, what.text) != 0)
        return;
    const auto expected = std::ranges::find(expected_assertions, what.text);
    ASSERT_NE(expected, expected_assertions.end()) << "unexpected assertion: " << what.text;
    expected_assertions.erase(expected);
}

// ---- Delivery.

void scripted_node::deliver()
{
    while (!queue.empty())
        deliver_one();
}

void scripted_node::happens(event what)
{
    queue.push_back(std::move(what));
    deliver();
}

scripted_node::event scripted_node::abend_of(u32 path, u32 tp_handle)
{
    verb_message message{};
    message.header.dest_corr = tp_handle;
    message.header.buf_len = message.header.msg_len = sizeof message.header + sizeof(block_header);
    store(message.block, 0, u16{ABEND_INDICATION});
    return {NODE_EVENT_IPS, path, as_bytes(&message, message.header.buf_len)};
}

void scripted_node::interrupts_with(event what)
{
    queue.push_front(std::move(what));
    deliver_one();
}

void scripted_node::deliver_one()
{
    const event what = std::move(queue.front());
    queue.pop_front();
    const auto watching = what.content.empty() ? nullptr : std::exchange(beside, nullptr);  // not while it acts itself
    if (watching)
        watching(what, false);
    deliver_event(what);
    if (watching) {
        watching(what, true);
        beside = watching;
    }
}

// Datagrams go to one path user of the kind that they concern, messages and path failures to the path's own, the rest to each.
std::map<u32, path_user> scripted_node::receivers_of(const event& what)
{
    std::map<u32, path_user> receivers = users;
    if (what.path != 0)
        std::erase_if(receivers, [&](auto& user) { return user.first != paths.at(what.path).user; });
    if (what.kind == NODE_EVENT_DATAGRAM) {
        const bool ours = load<u16>(what.content.data(), 2) == DATAGRAM_APPL_READY;
        std::erase_if(receivers, [&](auto& user) { return (user.second.kind == 0) != ours; });
        if (!receivers.empty())
            receivers.erase(std::next(receivers.begin()), receivers.end());
    }
    return receivers;
}

void scripted_node::deliver_event(const event& what)
{
    const std::map<u32, path_user> receivers = receivers_of(what);
    if (what.path != 0) {
        path_record& path = paths.at(what.path);
        if (!path.open)
            return;
        path.open = what.kind != NODE_EVENT_PATH_FAILURE;
    }
    if (what.kind == NODE_EVENT_TERMINATED)
        for (auto& [number, user] : users)
            user.outlived_the_node = true;
    const bool is_fork = what.kind == NODE_EVENT_FORKED;
    if (is_fork) {  // users and paths are the parent's from now on
        ++forks;
        trace.clear();  // of which the requests under way have no response
        users.clear();
        for (auto& [number, path] : paths)
            path.open = false;
    }
    for (const auto& [number, receiver] : receivers)
        if (is_fork || users.contains(number))
            hand_over(receiver, what);
}

u16 scripted_node::call(node_receive_routine routine, u32 path, rcv_info& info)
{
    info.result = 0x0BAD;
    const u32 depth = ++lock_depth;
    const u16 result = routine(path, &info);
    EXPECT_EQ(lock_depth, depth) << "a receive routine changed the lock";
    EXPECT_EQ(result, info.result) << "the result is not in the receive record";
    --lock_depth;
    return result;
}

void scripted_node::hand_over(const path_user& receiver, const event& what)
{
    rcv_info info{what.kind, 0, nullptr, 0, 0, nullptr};
    void* buffer = nullptr;
    u32 serial = 0;
    if (!what.content.empty()) {
        buffer = info.rcv_ips = obtain(static_cast<u32>(what.content.size()));
        std::ranges::copy(what.content, static_cast<u8*>(buffer));
        serial = memory[buffer].second;
    }
    u16 result = call(receiver.receive, what.path, info);
    if (result == NODE_RESULT_DELIVER) {
        const u32 behind = load<u32>(what.content.data(), offsetof(verb_message_header, buf_len));
        const u32 pend_handle = load<u32>(what.content.data(), offsetof(verb_message_header, pend_handle));
        const auto receive_verb = std::ranges::find(sent, pend_handle, [](auto& verb) { return verb.header().pend_handle; });
        const bool known = receive_verb != sent.end();
        const u16 room = known ? load<u16>(receive_verb->message.data(), sizeof(verb_message_header) + 30) : u16{0};
        const size_t count = std::min<size_t>({info.data_len, what.content.size() - behind, room});
        info.data_len = static_cast<u32>(count);
        std::copy_n(what.content.begin() + behind, count, reinterpret_cast<u8*>(info.data_buf));
        if (const auto step = std::exchange(before_data, nullptr))
            step();
        result = call(info.data_callback, what.path, info);
    }
    const auto left = memory.find(buffer);
    const bool freed = buffer != nullptr && (left == memory.end() || left->second.second != serial);
    last_result = result;
    const bool reported = freed && (receiver.kind == 0 || what.kind == NODE_EVENT_DATAGRAM);  // not for PIP data
    EXPECT_EQ(result, reported ? NODE_RESULT_FREED : NODE_RESULT_DONE) << "event " << what.kind;
    if (buffer != nullptr && !freed)
        release(buffer);
}

void scripted_node::sleep(u32 wait_object)
{
    const u32 depth = std::exchange(lock_depth, 0);
    const u32 forks_before = forks;
    while (wait_objects.contains(wait_object) && wait_objects[wait_object] == 0) {
        if (!queue.empty()) {
            deliver_one();
        } else if (!steps.empty()) {
            const std::function<void()> step = std::move(steps.front());
            steps.pop_front();
            step();
            EXPECT_EQ(lock_depth, 0u) << "the lock was kept";
        } else {
            ADD_FAILURE() << "a caller sleeps and nothing will wake it";
            std::abort();
        }
    }
    lock_depth = depth;
    if (forks != forks_before && !wait_objects.contains(wait_object))
        return;
    EXPECT_TRUE(wait_objects.contains(wait_object)) << "a caller sleeps on a wait object that is not held";
    --wait_objects[wait_object];
}

}  // namespace tessaly::test
