// Two programs that exchange records as applications do: one sends a record together with the turn, the other sends one back.
#pragma once

#include "bench/verb.h"

#include <thread>

namespace tessaly::bench {

// Takes one conversation and answers until its partner ends it.
void answer_all();

// The partner of who answers.
class asking {
public:
    asking();
    asking(const asking&) = delete;
    asking& operator=(const asking&) = delete;
    ~asking();

    // One record there and one back: two verbs on each side.
    void exchange();

private:
    program self_;
    u8 record_[RECORD_BYTES] = {};
    u8 buffer_[RECORD_BYTES] = {};
    appc_send_data send_{};
    appc_receive receive_{};
};

// Both in one process, each in a thread of its own.
class conversing {
public:
    conversing() : answering_(answer_all) {}
    void exchange() { asking_.exchange(); }

private:
    std::jthread answering_;
    asking asking_;
};

}  // namespace tessaly::bench
