// This process as a TP server: its verbs, each issued and waited for by one thread, and what comes unasked.
#pragma once

#include "tools/tessaly/conversation.h"
#include "tools/tessaly/launcher_settings.h"

#include <tessaly/tp_server.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

namespace tessaly::tool {

// What the launcher is told, and by whom.
struct news {
    enum kind {
        nothing,    // the time is over
        asked,      // the node wants a program for a conversation
        node_lost,  // the node ended, or the connection to it: this process is no server any more
        signalled,
    } what = nothing;
    appc_start_id id{};
    u32 definition = 0;  // with which the TP was defined
    int signal = 0;
};

// Any thread puts in, one takes out, oldest first.
class inbox {
public:
    void put(const news& item);
    news take(clock::time_point until);

private:
    std::mutex mutex_;
    std::condition_variable filled_;
    std::deque<news> items_;
};

// The process's own. It is never destroyed, since callbacks may come until the process ends.
inbox& the_inbox();

// What is known of a conversation for which a program is to be started; texts are printable.
struct attach_details {
    std::string tp_name;
    std::string lu;
    std::string partner;
    std::string user;  // that the partner names; empty: none, or not told
    std::vector<appc_u8> pip;
};

class tp_server {
public:
    // Becomes a server, whatever it was before. What comes for it goes to the inbox.
    outcome begin();
    void end();

    // registration: 0 for a new definition, whose number it becomes; else the one to replace.
    outcome define(const launched_tp& tp, u32 definition, u32& registration);
    outcome undefine(u32 registration);

    outcome query(const appc_start_id& id, attach_details& details);
    outcome started(const appc_start_id& id);
    outcome refused(const appc_start_id& id, u32 error_code);      // APPC_TPS_ERROR_...
    outcome ended_early(const appc_start_id& id, u32 error_code);  // after started()

private:
    template <typename Block>
    Block block(u16 opcode) const;
    outcome report(u16 opcode, const appc_start_id& id, u32 error_code);

    u32 handle_ = 0;
};

}  // namespace tessaly::tool
