// The ledger of the stress test: an entry for each verb, from its issue until long after its completion.
#pragma once

#include "verbs/block.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

namespace tessaly::stress {

struct entry {
    alignas(8) u8 block[208];  // first, so that a block's address is its entry's
    u8 buffer[64];
    u32 number;  // of the verb; another one when the entry is used again
    u32 slot;    // of the TP that the verb is about
    u16 opcode;
    bool returned;   // its entry point did
    bool completed;

    template <typename Block>
    Block& as()
    {
        static_assert(sizeof(Block) <= sizeof block);
        return *reinterpret_cast<Block*>(block);
    }
};

struct totals {
    u32 issued, accepted, completed, twice, late_writes, ok, abended, cancelled, forgotten;
};

// All of it may be called in any thread, under the process lock or not; nothing in here calls the library.
class ledger {
public:
    entry& open(u16 opcode, u32 slot);
    void returns(entry& verb, bool accepted);       // an asynchronous verb's entry point
    void finishes(entry& verb);                     // a synchronous verb
    void completes(entry& verb, u32 number);        // in its callback, before which nothing has touched the entry
    void forgets();                                 // an implied forget has come
    bool await_issued(u32 count, int ms);           // false: not within that time
    bool await_all(int seconds);                    // until every accepted verb has completed
    u32 issued();
    totals close();                                 // checks every entry that was not used again

private:
    void fill(entry& verb);
    void retire(entry& verb);
    void check(const entry& verb);

    std::mutex mutex_;
    std::condition_variable moved_;
    std::deque<entry> entries_;
    std::deque<entry*> retired_;
    std::vector<entry*> unused_;
    totals now_{};
};

}  // namespace tessaly::stress
