// What the measured verbs are issued on: TPs, verbs in flight, and a TP that has a conversation. All in one thread, over the
// null runtime or over the embedded node, as the program is linked.
#pragma once

#include "bench/verb.h"

#include <vector>

namespace tessaly::bench {

// Over the null runtime a conversation needs no partner, since every verb succeeds.
inline constexpr bool OVER_NODE = TESSALY_BENCH_OVER_NODE;

class stage {
public:
    // tps: at least 1; with the embedded node the partner of the conversation comes on top. in_flight: verbs that stay in
    // flight.
    stage(u32 tps, u32 in_flight);
    stage(const stage&) = delete;
    stage& operator=(const stage&) = delete;
    ~stage();

    // One call issues one verb, and the verb succeeds.
    void get_state() { run(get_state_); }
    void get_type() { run(get_type_); }
    void send_data() { run(send_); }
    void receive_and_wait() { run(receive_); }  // over the embedded node: one for each send_data before
    void receive_immediate();                   // over the embedded node: when there is nothing to receive
    void confirm() { run(confirm_); }           // null runtime only; over the embedded node it waits for the partner
    void confirm_async() { run_async(confirm_); }
    void get_state_async() { run_async(get_state_); }

    // CONFIRM, the partner's RECEIVE_AND_WAIT, and its CONFIRMED.
    void confirmation();

    // The same verb on each TP in turn: CONFIRM over the null runtime, GET_TP_PROPERTIES over the embedded node.
    void next_tp();

private:
    void put_in_flight();
    void end_in_flight();

    template <typename Block>
    void run_async(Block& block);

    u32 completed_ = 0;
    std::vector<program> tps_;  // the last has the conversation
    program partner_;
    program waiting_;  // null runtime: the TP of the verbs in flight
    std::vector<appc_receive> posted_;
    std::vector<appc_receive_allocate> announced_;

    u8 record_[RECORD_BYTES] = {};
    u8 buffer_[RECORD_BYTES] = {};
    appc_get_state get_state_{};
    appc_get_type get_type_{};
    appc_send_data send_{};
    appc_receive receive_{};
    appc_receive receive_immediate_{};
    appc_receive receive_confirm_{};
    appc_confirm confirm_{};
    appc_confirmed confirmed_{};
    std::vector<appc_confirm> confirm_each_;
    std::vector<appc_get_tp_properties> properties_of_each_;
    u32 turn_ = 0;
};

}  // namespace tessaly::bench
