// Two programs, each in a thread of its own, that exchange records through the embedded node as applications do: one sends a
// record together with the turn, the other sends one back.
#pragma once

#include "bench/verb.h"

#include <thread>

namespace tessaly::bench {

class conversing {
public:
    conversing();
    conversing(const conversing&) = delete;
    conversing& operator=(const conversing&) = delete;
    ~conversing();

    // One record there and one back: two verbs in each of the threads.
    void exchange();

private:
    static void answer_all();

    std::thread answering_;
    program caller_;
    u8 record_[RECORD_BYTES] = {};
    u8 buffer_[RECORD_BYTES] = {};
    appc_send_data send_{};
    appc_receive receive_{};
};

}  // namespace tessaly::bench
