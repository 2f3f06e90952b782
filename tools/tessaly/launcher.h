// The loop of `tessaly launcher`: definitions at the node, programs for its requests.
#pragma once

#include "tools/tessaly/tp_server.h"

#include <sys/types.h>

#include <unordered_map>

namespace tessaly::tool {

// One thread; signals and what the node asks for come through the inbox.
class launcher {
public:
    explicit launcher(std::string config);  // throws service::config_error

    // Until a signal ends it.
    void run();

private:
    // A TP with the number by which the node asks for it, and the one by which the node knows it.
    struct definition {
        launched_tp tp;
        u32 registration = 0;   // 0: not defined at the node
        bool as_told = false;   // the definition at the node is that of tp
        std::string complaint;  // why it is not, as the log has it
        u32 running = 0;        // programs
    };
    struct child {
        appc_start_id id;
        u32 definition;
        u32 service;  // in which it was started
    };

    void connect();
    void lose_node();
    void define_missing();
    void define(u32 number, definition& defined);
    void reload();
    void apply(launcher_settings fresh);
    void take_signal(int signal);

    void start(const news& asked);
    bool has_room(const definition& wanted) const;
    void launch(const news& asked, definition& wanted, const attach_details& details);
    void refuse(const appc_start_id& id, u32 error_code);
    void reap();

    clock::time_point after_a_while() const { return clock::now() + std::chrono::seconds(settings_.retry_seconds); }

    const std::string config_;
    launcher_settings settings_;
    tp_server server_;
    bool connected_ = false;
    bool stopping_ = false;
    bool complained_ = false;  // that the node is not there
    u32 service_ = 0;          // counts the times that the node was reached
    clock::time_point attempt_at_{};  // of what the node has not taken yet
    u32 last_number_ = 0;
    std::unordered_map<u32, definition> definitions_;
    std::unordered_map<pid_t, child> children_;
};

}  // namespace tessaly::tool
