// The asynchronous interface from C++: one thread asks a question and goes on while its verbs are under way, another answers.
// The asker's verbs are issued with APPC_Async; their callback completes a promise, so that each verb becomes a future.
// Prints question and answer; exit status 1 when a verb fails.

#include "names.h"

#include <tessaly/appc.h>

#include <cstdio>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

// A block filled with what every verb has.
template <typename Block>
Block block(appc_u16 opcode)
{
    Block vcb{};
    vcb.opcode = opcode;
    return vcb;
}

struct conversation {
    std::string tp_id;
    appc_u32 conv_id;

    template <typename Block>
    Block verb(appc_u16 opcode) const
    {
        Block vcb = block<Block>(opcode);
        vcb.opext = APPC_MAPPED_CONVERSATION;
        tp_id.copy(reinterpret_cast<char*>(vcb.tp_id), sizeof vcb.tp_id);
        vcb.conv_id = conv_id;
        return vcb;
    }
};

std::string bytes_of(const appc_u8 (&tp_id)[8])
{
    return {reinterpret_cast<const char*>(tp_id), sizeof tp_id};
}

// Throws unless the verb succeeded.
template <typename Block>
void check(const char* name, const Block& vcb)
{
    if (vcb.primary_rc != APPC_OK)
        throw std::runtime_error(std::string(name) + " failed with primary_rc " + std::to_string(vcb.primary_rc));
}

template <typename Block>
void run(const char* name, Block& vcb)
{
    APPC(&vcb);
    check(name, vcb);
}

// Issues a verb without waiting. The promise lives until the callback, which runs on another thread; the block is the caller's
// and must outlive the future's completion.
template <typename Block>
std::future<void> run_async(Block& vcb)
{
    auto* done = new std::promise<void>;
    std::future<void> completion = done->get_future();
    const auto callback = [](void*, appc_u8*, appc_u32, appc_u32 corr) {
        auto* promise = reinterpret_cast<std::promise<void>*>(corr);
        promise->set_value();
        delete promise;
    };
    if (APPC_Async(&vcb, callback, reinterpret_cast<appc_u32>(done)) == APPC_COMPLETE)
        callback(&vcb, nullptr, 0, reinterpret_cast<appc_u32>(done));  // finished at once: no callback follows
    return completion;
}

void end_tp(const std::string& tp_id)
{
    auto ended = block<appc_tp_ended>(APPC_OP_TP_ENDED);
    tp_id.copy(reinterpret_cast<char*>(ended.tp_id), sizeof ended.tp_id);
    run("TP_ENDED", ended);
}

std::string ask(const std::string& question)
{
    auto started = block<appc_tp_started>(APPC_OP_TP_STARTED);
    set_alias(started.lu_alias, "HERE");
    set_ebcdic(started.tp_name, sizeof started.tp_name, "ASKER");
    run("TP_STARTED", started);
    const std::string tp_id = bytes_of(started.tp_id);

    auto allocate = block<appc_allocate_format_0>(APPC_OP_ALLOCATE);
    allocate.opext = APPC_MAPPED_CONVERSATION;
    tp_id.copy(reinterpret_cast<char*>(allocate.tp_id), sizeof allocate.tp_id);
    allocate.conv_type = APPC_MAPPED;
    set_alias(allocate.plu_alias, "THERE");
    set_ebcdic(allocate.mode_name, sizeof allocate.mode_name, "INTER");
    set_ebcdic(allocate.tp_name, sizeof allocate.tp_name, "ORACLE");
    run("ALLOCATE", allocate);
    const conversation talk{tp_id, allocate.conv_id};

    auto send = talk.verb<appc_send_data>(APPC_OP_SEND_DATA);
    send.dptr = question.data();
    send.dlen = static_cast<appc_u16>(question.size());
    std::future<void> sent = run_async(send);
    sent.get();
    check("SEND_DATA", send);

    // In send state RECEIVE_AND_WAIT gives the turn to the partner, then waits for its answer.
    char answer[80];
    auto receive = talk.verb<appc_receive_and_wait>(APPC_OP_RECEIVE_AND_WAIT);
    receive.dptr = answer;
    receive.max_len = sizeof answer;
    std::future<void> received = run_async(receive);
    std::puts("ASKER: waiting for the answer, free to do other things");
    received.get();
    check("RECEIVE_AND_WAIT", receive);
    end_tp(tp_id);
    return {answer, receive.dlen};
}

void answer_one_question()
{
    auto accept = block<appc_receive_allocate>(APPC_OP_RECEIVE_ALLOCATE);
    set_ebcdic(accept.tp_name, sizeof accept.tp_name, "ORACLE");
    run("RECEIVE_ALLOCATE", accept);
    const conversation talk{bytes_of(accept.tp_id), accept.conv_id};

    std::string question;
    char part[80];
    auto receive = talk.verb<appc_receive_and_wait>(APPC_OP_RECEIVE_AND_WAIT);
    while ((receive.what_rcvd & APPC_WR_SEND) == 0) {  // until the turn comes
        receive = talk.verb<appc_receive_and_wait>(APPC_OP_RECEIVE_AND_WAIT);
        receive.dptr = part;
        receive.max_len = sizeof part;
        run("RECEIVE_AND_WAIT", receive);
        question.append(part, receive.dlen);
    }
    const std::string answer = "42 is the answer to: " + question;

    auto send = talk.verb<appc_send_data>(APPC_OP_SEND_DATA);
    send.type = APPC_SEND_DEALLOC_FLUSH;  // the answer, and the end of the conversation
    send.dptr = answer.data();
    send.dlen = static_cast<appc_u16>(answer.size());
    run("SEND_DATA", send);
    end_tp(talk.tp_id);
}

}  // namespace

int main()
{
    try {
        std::future<void> oracle = std::async(std::launch::async, answer_one_question);
        std::printf("ASKER received: %s\n", ask("what is 6 times 7?").c_str());
        oracle.get();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
