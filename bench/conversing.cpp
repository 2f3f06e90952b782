#include "bench/conversing.h"

namespace tessaly::bench {

namespace {

appc_receive receiving_with_turn(const program& by, void* buffer)
{
    appc_receive block = receiving(by, buffer);
    block.rtn_status = 1;
    return block;
}

void expect_record_and_turn(const appc_receive& block)
{
    expect_ok(block);
    if (block.dlen != RECORD_BYTES || block.what_rcvd != (APPC_WR_DATA_COMPLETE | APPC_WR_SEND)) [[unlikely]]
        give_up("did not bring a record and the turn", block.opcode, block.primary_rc, block.secondary_rc);
}

}  // namespace

void answer_all()
{
    auto accept = accepting("ANSWERER");
    run(accept);
    const program self = accepted(accept);
    u8 record[RECORD_BYTES];
    appc_receive receive = receiving_with_turn(self, record);
    appc_send_data send = sending(self, record, APPC_SEND_P_TO_R_FLUSH);
    for (APPC(&receive); receive.primary_rc != APPC_DEALLOC_NORMAL; APPC(&receive)) {
        expect_record_and_turn(receive);
        run(send);
    }
    end_tp(self);
}

asking::asking() : self_(start_tp())
{
    allocate(self_, "ANSWERER");
    send_ = sending(self_, record_, APPC_SEND_P_TO_R_FLUSH);
    receive_ = receiving_with_turn(self_, buffer_);
}

asking::~asking()
{
    auto end = verb_of<appc_deallocate>(self_, APPC_OP_DEALLOCATE);
    end.dealloc_type = APPC_DEALLOC_FLUSH;
    run(end);
    end_tp(self_);
}

void asking::exchange()
{
    run(send_);
    APPC(&receive_);
    expect_record_and_turn(receive_);
}

}  // namespace tessaly::bench
