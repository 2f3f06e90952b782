#include "bench/stage.h"

#include "bench/one_thread.h"

namespace tessaly::bench {

namespace {

void ignore_post(void*, u8*, u32) {}

}  // namespace

stage::stage(u32 tps, u32 in_flight) : posted_(OVER_NODE ? 0 : in_flight), announced_(OVER_NODE ? in_flight : 0)
{
    for (u32 i = 0; i < tps; ++i)
        tps_.push_back(start_tp());
    if (OVER_NODE)
        partner_ = accept_conversation_of(tps_.back());
    else
        tps_.back().conv_id = 1;

    const program& user = tps_.back();
    get_state_ = verb_of<appc_get_state>(user, APPC_OP_GET_STATE);
    get_type_ = verb_of<appc_get_type>(user, APPC_OP_GET_TYPE);
    confirm_ = verb_of<appc_confirm>(user, APPC_OP_CONFIRM);
    send_ = sending(user, record_);
    receive_ = receiving(OVER_NODE ? partner_ : user, buffer_);
    receive_immediate_ = receiving(partner_, buffer_, APPC_OP_RECEIVE_IMMEDIATE);
    receive_confirm_ = receiving(partner_, buffer_);
    confirmed_ = verb_of<appc_confirmed>(partner_, APPC_OP_CONFIRMED);
    for (const program& each : tps_) {
        if (OVER_NODE)
            properties_of_each_.push_back(verb_of<appc_get_tp_properties>(each, APPC_OP_GET_TP_PROPERTIES));
        else
            confirm_each_.push_back(verb_of<appc_confirm>(each, APPC_OP_CONFIRM));
    }
    put_in_flight();
}

stage::~stage()
{
    end_in_flight();
    if (OVER_NODE)
        end_tp(partner_);
    for (const program& each : tps_)
        end_tp(each);
}

// Over the embedded node, verbs that wait for a conversation that nobody allocates.
void stage::put_in_flight()
{
    if (!posted_.empty())
        waiting_ = start_tp();
    for (appc_receive& block : posted_) {
        block = receiving(waiting_, buffer_, APPC_OP_RECEIVE_AND_POST);
        block.callback = ignore_post;
        issue(block, count_completion, corr_of(completed_));
    }
    for (appc_receive_allocate& block : announced_) {
        block = accepting("NOBODY");
        issue(block, count_completion, corr_of(completed_));
    }
}

void stage::end_in_flight()
{
    if (!posted_.empty())
        end_tp(waiting_);
    for (u32 i = 0; i < announced_.size(); ++i) {
        appc_cancel_conv cancel{};
        cancel.opcode = APPC_OP_CANCEL_CONV;
        cancel.conv_id = 1;  // any but 0: a waiting RECEIVE_ALLOCATE
        run(cancel);
    }
}

template <typename Block>
void stage::run_async(Block& block)
{
    const held_lock lock;
    completed_ = 0;
    issue(block, count_completion, corr_of(completed_));
    deliver_until(completed_, 1);
    expect_ok(block);
}

void stage::receive_immediate()
{
    APPC(&receive_immediate_);
    if (receive_immediate_.primary_rc != APPC_UNSUCCESSFUL) [[unlikely]]
        give_up("received something", receive_immediate_.opcode, receive_immediate_.primary_rc, 0);
}

void stage::confirmation()
{
    const held_lock lock;
    completed_ = 0;
    issue(confirm_, count_completion, corr_of(completed_));
    run(receive_confirm_);
    run(confirmed_);
    deliver_until(completed_, 1);
    expect_ok(confirm_);
}

void stage::next_tp()
{
    if constexpr (OVER_NODE)
        run(properties_of_each_[turn_]);
    else
        run(confirm_each_[turn_]);
    if (++turn_ == tps_.size())
        turn_ = 0;
}

template void stage::run_async(appc_confirm&);
template void stage::run_async(appc_get_state&);

}  // namespace tessaly::bench
