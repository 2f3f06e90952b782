// The runtime as it ships, with the engine inside: one real verb, in a process and in its fork's child.
#include "common/runtime_guards.h"
#include "runtime/node_runtime.h"
#include "verbs/block.h"
#include "wire/verb_message.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace tessaly {

namespace {

constexpr u32 NO_LIMIT = 0xFFFFFFFF;
constexpr u32 TP_HANDLE = 11;

struct answer {
    u32 path;
    u32 tp;
    u32 pend;
    u16 opcode;
    u16 primary_rc;
    bool operator==(const answer&) const = default;
};

std::vector<answer> answers;
u32 forks = 0;
u32 caller = 0;  // the wait object of the thread that sleeps

u16 receive(u32 path, rcv_info* info)
{
    if (info->event == NODE_EVENT_FORKED)
        ++forks;
    if (info->event == NODE_EVENT_IPS) {
        const auto& header = *static_cast<verb_message_header*>(info->rcv_ips);
        const block_header& block = header_of(static_cast<u8*>(info->rcv_ips) + sizeof header);
        answers.push_back({path, header.dest_corr, header.pend_handle, block.opcode, block.primary_rc});
    }
    vpm_wakeup(caller);  // a failed path must not leave it asleep
    return info->result = NODE_RESULT_DONE;
}

// Registers, opens a path and starts a TP on it; the path, closed again.
u32 start_a_tp()
{
    const process_lock lock;
    answers.clear();
    u32 user = 0;
    EXPECT_EQ(vpm_init_path_user(0, 0, receive, 0, &user), 0);
    u32 cursor[2] = {};
    const u32 path = vpm_create_path(user, vsm_query_services(1, 0, cursor), 1, nullptr);
    caller = vpm_allocate_wait_object();

    verb_message message{};
    message.header.kind = VERB_MESSAGE_KIND;
    message.header.code = VERB_MESSAGE_CODE;
    message.header.src_corr = TP_HANDLE;
    message.header.pend_handle = nba_create_handle(&message);
    message.header.buf_len = message.header.msg_len = sizeof message.header + sizeof(appc_tp_started);
    auto& block = block_as<appc_tp_started>(message.block);
    block.opcode = TP_STARTED;
    block.format = 1;
    std::memset(block.lu_alias, ' ', sizeof block.lu_alias);
    EXPECT_EQ(vpm_send_ips(path, &message, message.header.buf_len, nullptr, 0), 0);
    EXPECT_TRUE(answers.empty());
    vpm_sleep(caller, NO_LIMIT);
    EXPECT_EQ(answers, (std::vector{answer{path, TP_HANDLE, message.header.pend_handle, TP_STARTED, OK}}));

    nba_destroy_handle(message.header.pend_handle);
    vpm_release_wait_object(caller);
    vpm_terminate_path_user(user);
    return path;
}

TEST(EmbeddedNode, starts_a_tp_here_and_in_a_forks_child)
{
    EXPECT_NE(start_a_tp(), 0u);
    u32 kept = 0;
    const u16 token = vpm_lock();
    ASSERT_EQ(vpm_init_path_user(0, 0, receive, 0, &kept), 0);
    vpm_unlock(token);

    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        EXPECT_NE(start_a_tp(), 0u);
        EXPECT_EQ(forks, 1u);
        fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int how = -1;
    waitpid(child, &how, 0);
    EXPECT_EQ(how, 0);
    EXPECT_EQ(forks, 0u);
    EXPECT_NE(start_a_tp(), 0u);
    const process_lock lock;
    vpm_terminate_path_user(kept);
}

}  // namespace

}  // namespace tessaly
