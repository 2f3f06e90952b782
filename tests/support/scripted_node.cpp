#include "tests/support/scripted_node.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <utility>

namespace tessaly::test {

scripted_node* the_node = nullptr;

verb_message_header sent_verb::header() const
{
    verb_message_header header;
    std::memcpy(&header, message.data(), sizeof header);
    return header;
}

std::ostream& operator<<(std::ostream& out, const holdings& held)
{
    return out << held.memory << " memory blocks, " << held.handles << " handles, " << held.wait_objects
               << " wait objects, " << held.entries << " table entries, " << held.tables << " tables, " << held.paths
               << " paths, " << held.path_users << " path users";
}

scripted_node::scripted_node()
{
    for (const u16 opcode : {TP_STARTED, SET_TP_PROPERTIES, TP_ENDED})
        answers(opcode);
}

scripted_node::~scripted_node()
{
    for (const auto& [pointer, block] : memory)
        std::free(pointer);
}

// ---- The script.

void scripted_node::answers(u16 opcode, reply how)
{
    standing_.insert_or_assign(opcode, std::move(how));
}

void scripted_node::answers_once(u16 opcode, reply how)
{
    once_[opcode].push_back(std::move(how));
}

void scripted_node::refuse(std::optional<may_fail> which, u32 nth, bool from_then_on, u16 status)
{
    refusals_.push_back({which, nth, from_then_on, status, 0});
}

std::array<u8, 8> scripted_node::id_of(u32 tp_handle)
{
    std::array<u8, 8> id{'N', 'O', 'D', 'E'};
    std::memcpy(id.data() + 4, &tp_handle, sizeof tp_handle);
    return id;
}

bytes scripted_node::answer_to(const sent_verb& verb, const reply& how) const
{
    constexpr u32 ROOM = 256;  // for the public struct of any verb
    constexpr u32 NEW_CONVERSATION = 7;

    verb_message_header header = verb.header();
    const u32 tp_handle = header.src_corr;
    bytes block = in_caller_layout(verb.block());
    const size_t length = block.size();
    block.resize(ROOM);
    std::memcpy(block.data() + 4, &how.primary, sizeof how.primary);
    std::memcpy(block.data() + 8, &how.secondary, sizeof how.secondary);

    const auto id = id_of(tp_handle);
    if (how.primary == OK && verb.opcode() == TP_STARTED) {
        std::copy(id.begin(), id.end(), block.begin() + 20);
    } else if (how.primary == OK && verb.opcode() == RECEIVE_ALLOCATE) {
        std::copy(id.begin(), id.end(), block.begin() + 76);
        std::memcpy(block.data() + 84, &NEW_CONVERSATION, sizeof NEW_CONVERSATION);
    } else if (how.primary == OK && verb.opcode() == ALLOCATE) {
        std::memcpy(block.data() + 20, &NEW_CONVERSATION, sizeof NEW_CONVERSATION);
    }
    if (how.fill)
        how.fill(block.data());
    block.resize(length);
    block = in_node_layout(block);

    header.dest_corr = tp_handle;
    header.src_corr = corr_of(tp_handle);
    header.buf_len = static_cast<u32>(sizeof header + block.size());
    header.msg_len = static_cast<u32>(header.buf_len + how.data.size());

    bytes message(header.msg_len);
    std::memcpy(message.data(), &header, sizeof header);
    std::copy(block.begin(), block.end(), message.begin() + sizeof header);
    std::copy(how.data.begin(), how.data.end(), message.begin() + header.buf_len);
    return message;
}

void scripted_node::message_is_complete(const sent_verb& verb)
{
    const u16 opcode = verb.opcode();
    if (auto once = once_.find(opcode); once != once_.end() && !once->second.empty()) {
        queue_.push_back({NODE_EVENT_IPS, verb.path, answer_to(verb, once->second.front())});
        once->second.pop_front();
    } else if (auto standing = standing_.find(opcode); standing != standing_.end()) {
        queue_.push_back({NODE_EVENT_IPS, verb.path, answer_to(verb, standing->second)});
    }
}

// ---- What was seen.

const sent_verb& scripted_node::last(u16 opcode) const
{
    const auto found =
        std::find_if(sent.rbegin(), sent.rend(), [&](const sent_verb& s) { return s.opcode() == opcode; });
    if (found != sent.rend())
        return *found;
    ADD_FAILURE() << "no verb 0x" << std::hex << opcode << " was sent";
    static const sent_verb nothing{0, 0, bytes(sizeof(verb_message)), {}, {}};
    return nothing;
}

u32 scripted_node::count(u16 opcode) const
{
    return static_cast<u32>(std::count_if(sent.begin(), sent.end(), [&](auto& s) { return s.opcode() == opcode; }));
}

const log_record* scripted_node::logged(u16 point) const
{
    const auto found =
        std::find_if(logs.begin(), logs.end(), [&](const log_record& log) { return log.point == point; });
    return found == logs.end() ? nullptr : &*found;
}

void* scripted_node::record_of(u32 handle) const
{
    const auto found = handles.find(handle);
    return found == handles.end() ? nullptr : found->second;
}

holdings scripted_node::held() const
{
    u32 entries = 0;
    for (const auto& [number, table] : tables)
        entries += static_cast<u32>(table.size());
    const auto open =
        std::count_if(paths.begin(), paths.end(), [](auto& p) { return p.second.state == path_record::open; });
    return {static_cast<u32>(memory.size()),       static_cast<u32>(handles.size()),
            static_cast<u32>(wait_objects.size()), entries,
            static_cast<u32>(tables.size()),       static_cast<u32>(open),
            static_cast<u32>(users.size())};
}

void scripted_node::check_at_end() const
{
    EXPECT_EQ(lock_depth, 0u) << "the lock is still held";
    EXPECT_EQ(held(), holdings{}) << "the library has stopped and still holds something";
    for (const std::string& text : expected_assertions_)
        ADD_FAILURE() << "not reported: " << text;
    for (const sent_verb& verb : sent)
        EXPECT_EQ(verb.header().msg_len, verb.message.size() + verb.data.size()) << "opcode " << verb.opcode();
}

// ---- The ledger.

u16 scripted_node::enter(const char* operation, std::optional<may_fail> which)
{
    calls.push_back(operation);
    EXPECT_NE(lock_depth, 0u) << operation << " is called without the lock";
    if (!which)
        return 0;
    for (refusal& plan : refusals_) {
        if (plan.which && *plan.which != *which)
            continue;
        ++plan.seen;
        if (plan.seen == plan.nth || (plan.from_then_on && plan.seen > plan.nth)) {
            ++refused_;
            return plan.status;
        }
    }
    return 0;
}

void* scripted_node::obtain(u32 size)
{
    void* pointer = std::malloc(size);
    std::memset(pointer, 0xA5, size);  // nobody may rely on zeros
    memory[pointer] = {size, ++numbers_};
    return pointer;
}

void scripted_node::release(void* pointer)
{
    const auto found = memory.find(pointer);
    if (found == memory.end()) {
        ADD_FAILURE() << "memory is freed that is not held: " << pointer;
        return;
    }
    std::memset(pointer, 0xDD, found->second.size);
    memory.erase(found);
    std::free(pointer);
}

void scripted_node::asserted(const std::string& text)
{
    const auto expected = std::find(expected_assertions_.begin(), expected_assertions_.end(), text);
    if (expected == expected_assertions_.end())
        ADD_FAILURE() << "unexpected assertion: " << text;
    else
        expected_assertions_.erase(expected);
}

// ---- Delivery.

void scripted_node::deliver()
{
    while (!queue_.empty())
        deliver_one();
}

void scripted_node::happens(event what)
{
    queue_.push_back(std::move(what));
    deliver();
}

void scripted_node::deliver_one()
{
    const event what = std::move(queue_.front());
    queue_.pop_front();
    if (what.kind == NODE_EVENT_IPS)
        deliver_message(what);
    else
        deliver_to_users(what);
}

u16 scripted_node::call(node_receive_routine routine, u32 path, rcv_info& info)
{
    constexpr u16 NO_RESULT = 0x0BAD;
    info.result = NO_RESULT;
    const u32 depth = ++lock_depth;
    const u16 result = routine(path, &info);
    EXPECT_EQ(lock_depth, depth) << "a receive routine changed the lock";
    EXPECT_EQ(result, info.result) << "the result is not in the receive record";
    --lock_depth;
    return result;
}

void scripted_node::deliver_message(const event& what)
{
    const auto path = paths.find(what.path);
    if (path == paths.end() || path->second.state != path_record::open || !users.contains(path->second.user))
        return;

    void* buffer = obtain(static_cast<u32>(what.content.size()));
    std::copy(what.content.begin(), what.content.end(), static_cast<u8*>(buffer));
    const u32 serial = memory[buffer].serial;
    rcv_info info{NODE_EVENT_IPS, 0, buffer, 0, 0, nullptr};
    u16 result = call(users[path->second.user].receive, what.path, info);
    if (result == NODE_RESULT_DELIVER) {
        copy_data(info, what.content);
        if (const auto step = std::exchange(before_data, nullptr))
            step();
        result = call(info.data_callback, what.path, info);
    }
    const auto left = memory.find(buffer);
    const bool freed = left == memory.end() || left->second.serial != serial;
    EXPECT_TRUE(freed || result == NODE_RESULT_DONE) << "result " << result << " without freeing the message";
    if (!freed)
        release(buffer);
}

void scripted_node::copy_data(const rcv_info& info, const bytes& message) const
{
    verb_message_header header;
    std::memcpy(&header, message.data(), sizeof header);
    const u32 came = static_cast<u32>(message.size()) - header.buf_len;
    const u32 count = std::min({info.data_len, came, room_of(header.pend_handle)});
    if (count != 0)
        std::memcpy(reinterpret_cast<void*>(info.data_buf), message.data() + header.buf_len, count);
}

u32 scripted_node::room_of(u32 pend_handle) const
{
    const auto receive = std::find_if(sent.rbegin(), sent.rend(),
                                      [&](const sent_verb& verb) { return verb.header().pend_handle == pend_handle; });
    return receive == sent.rend() ? 0 : receive->message[112 + 30] | static_cast<u32>(receive->message[112 + 31]) << 8;
}

void scripted_node::deliver_to_users(const event& what)
{
    std::vector<node_receive_routine> receivers;
    for (const auto& [number, user] : users) {
        const bool lost = what.kind == NODE_EVENT_PATH_FAILURE;
        if (what.kind == NODE_EVENT_DATAGRAM ? user.kind == 0 : !lost || paths.at(what.path).user == number)
            receivers.push_back(user.receive);
    }
    if (what.kind == NODE_EVENT_PATH_FAILURE) {
        if (paths.at(what.path).state != path_record::open)
            return;
        paths.at(what.path).state = path_record::failed;
    } else if (what.kind == NODE_EVENT_FORKED) {  // the parent's from now on
        users.clear();
        for (auto& [number, path] : paths)
            path.state = path_record::failed;
    }
    for (const node_receive_routine receive : receivers) {
        rcv_info info{what.kind, 0, nullptr, 0, 0, nullptr};
        u32 serial = 0;
        if (what.kind == NODE_EVENT_DATAGRAM) {
            info.rcv_ips = obtain(static_cast<u32>(what.content.size()));
            std::copy(what.content.begin(), what.content.end(), static_cast<u8*>(info.rcv_ips));
            serial = memory[info.rcv_ips].serial;
        }
        void* const datagram = info.rcv_ips;
        call(receive, what.path, info);
        if (const auto left = memory.find(datagram); left != memory.end() && left->second.serial == serial) {
            EXPECT_EQ(info.result, NODE_RESULT_DONE) << "the datagram is not freed";
            release(datagram);
        }
    }
}

void scripted_node::sleep(u32 wait_object)
{
    const u32 depth = lock_depth;
    lock_depth = 0;
    bool tried_termination = false;
    while (wait_objects.contains(wait_object) && wait_objects[wait_object] == 0) {
        if (!queue_.empty()) {
            deliver_one();
        } else if (!steps_.empty()) {
            const std::function<void()> step = std::move(steps_.front());
            steps_.pop_front();
            step();
            EXPECT_EQ(lock_depth, 0u) << "the lock was kept";
        } else {
            ADD_FAILURE() << "a caller sleeps and nothing will wake it";
            if (tried_termination)
                std::abort();
            tried_termination = true;
            queue_.push_back({NODE_EVENT_TERMINATED, 0, {}});  // a way out: it completes every verb
        }
    }
    if (!wait_objects.contains(wait_object))
        ADD_FAILURE() << "a caller sleeps on a wait object that is not held";
    else
        --wait_objects[wait_object];
    lock_depth = depth;
}

}  // namespace tessaly::test
