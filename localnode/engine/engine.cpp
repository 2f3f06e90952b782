// The engine's door: one frame in, whatever it causes out.
#include "localnode/engine/engine.h"

#include "localnode/engine/attaches.h"
#include "localnode/engine/clients.h"
#include "localnode/engine/datagrams.h"
#include "localnode/engine/pacing.h"
#include "localnode/engine/report.h"
#include "localnode/engine/starts.h"
#include "localnode/engine/tp_definitions.h"
#include "localnode/engine/tps.h"
#include "localnode/engine/verbs.h"

#include <algorithm>

namespace tessaly::node {

class engine::state {
public:
    node all;
};

engine::engine() : engine(configuration{}) {}

engine::engine(const configuration& with) : state_(std::make_unique<state>())
{
    configure(with);
}

engine::~engine() = default;

void engine::accept(const frame& input, frame_sink& output)
{
    node& n = state_->all;
    n.output = &output;
    switch (input.kind) {
    case frame_kind::message: take_verb(n, input); break;
    case frame_kind::datagram: take_datagram(n, input); break;
    case frame_kind::path_opened: open_path(n, input.client, input.path); break;
    case frame_kind::path_closed:
        if (path_record* const path = find_path(n, input.client, input.path))
            close_path(n, *path);
        break;
    case frame_kind::client_gone: client_gone(n, input.client); break;
    case frame_kind::time_passed:
        n.now_ms = std::max(n.now_ms, input.now_ms);
        expire_attaches(n);
        free_patient_senders(n);
        break;
    case frame_kind::program_ended: program_ended(n, input.path); break;
    case frame_kind::tp_server_opened: open_tp_server(n, input.client, input.path, input.rights); break;
    case frame_kind::tp_server_closed: close_tp_server(n, input.client, input.path); break;
    case frame_kind::datagram_returned: take_returned(n, input); break;
    case frame_kind::path_failed:
    case frame_kind::terminated:
    case frame_kind::start_program: break;  // go out only
    }
    fail_lost_paths(n);
    if (n.queues_moved)
        move_queues(n);
    if (n.definitions_changed)
        tell_changes(n);
    n.output = nullptr;
}

void engine::configure(const configuration& with)
{
    lu_directory lus{with};
    std::vector<tp_name> programs;
    for (const std::string& program : with.programs)
        programs.push_back(ebcdic_name<tp_name>(program));
    node& n = state_->all;
    n.lus = std::move(lus);
    n.programs = std::move(programs);
    n.attach_limit_ms = with.attach_limit_ms;
    n.start_limit_ms = with.start_limit_ms;
    n.most_attaches = with.most_attaches;
    n.unread_bytes = std::min(with.unread_bytes, MOST_UNREAD_BYTES);
}

node_report engine::report() const
{
    return report_on(state_->all);
}

std::optional<u64> engine::deadline_ms() const
{
    std::optional<u64> earliest;
    for (const list_head<attach>* const list : {&state_->all.attaches, &state_->all.starting})
        if (const attach* const oldest = list->first(); oldest != nullptr && (!earliest || oldest->deadline_ms < *earliest))
            earliest = oldest->deadline_ms;
    if (const held_sender* const oldest = state_->all.held_senders.first();
        oldest != nullptr && (!earliest || oldest->deadline_ms < *earliest))
        earliest = oldest->deadline_ms;
    return earliest;
}

record_counts engine::counts() const
{
    return count_records(state_->all);
}

}  // namespace tessaly::node
