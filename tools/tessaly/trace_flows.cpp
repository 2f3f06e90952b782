// What went from one TP to another. Two sides become one conversation when a receive-allocate verb got what an ALLOCATE had asked
// for: the same TP name, LUs that do not contradict, in the order of the requests. From then on each direction is a queue: what a
// side sends is taken by what the other side receives, first in, first out.
#include "tools/tessaly/trace_story.h"

#include "verbs/catalogue.h"

#include <algorithm>
#include <deque>
#include <optional>

namespace tessaly::tool::trace {

namespace {

// One side of a conversation, as far as it is known where it leads.
struct side {
    std::size_t verb;  // that made it
    side* other = nullptr;
    bool has_turn = false;
    bool sync_confirm = false;
    struct sent {
        flow_kind kind;
        std::size_t verb;
        std::size_t bytes;  // of data, not yet received
    };
    std::deque<sent> outgoing;
};

struct moment {
    std::int64_t time_us;
    std::size_t verb;
    bool ends;
};

bool may_be_partners(const std::string& asked, const std::string& got)
{
    return asked.empty() || got.empty() || asked == got;
}

bool gets_an_end(const std::string& result)
{
    return result == "DEALLOC_NORMAL" || result.starts_with("DEALLOC_ABEND") || result.starts_with("CONV_FAILURE");
}

bool gets_an_error(const std::string& result)
{
    return result.starts_with("PROG_ERROR") || result.starts_with("SVC_ERROR");
}

class tracker {
public:
    explicit tracker(const story& of) : of_(of) {}

    std::vector<flow> follow()
    {
        std::vector<moment> moments;
        for (std::size_t i = 0; i < of_.verbs.size(); ++i) {
            const verb_run& verb = of_.verbs[i];
            if (verb.start_us != NEVER)
                moments.push_back({verb.start_us, i, false});
            if (verb.has_ended())
                moments.push_back({verb.end_us, i, true});
        }
        std::ranges::stable_sort(moments, {}, &moment::time_us);
        for (const moment& each : moments)
            each.ends ? ends(each.verb) : begins(each.verb);
        return std::move(flows_);
    }

private:
    side* side_of(const verb_run& verb)
    {
        const auto found = sides_.find({verb.process, verb.conversation});
        return verb.conversation != 0 && found != sides_.end() ? found->second : nullptr;
    }

    side& make_side(std::size_t place)
    {
        const verb_run& verb = of_.verbs[place];
        side& made = all_.emplace_back();
        made.verb = place;
        if (verb.conversation != 0)
            sides_[{verb.process, verb.conversation}] = &made;
        return made;
    }

    static void send(side* from, flow_kind kind, std::size_t place, std::size_t bytes = 0)
    {
        constexpr std::size_t MOST = 100'000;  // of a conversation whose other side is not in the trace
        if (from != nullptr && from->outgoing.size() < MOST)
            from->outgoing.push_back({kind, place, bytes});
    }

    // What is left of the conversation's sending side goes to this verb.
    void give_turn(side* from, std::size_t place)
    {
        if (from == nullptr || !from->has_turn)
            return;
        send(from, flow_kind::turn, place);
        from->has_turn = false;
    }

    void begins(std::size_t place)
    {
        const verb_run& verb = of_.verbs[place];
        if (verb.opcode == ALLOCATE || verb.opcode == SEND_CONVERSATION) {
            side& made = make_side(place);
            made.has_turn = true;
            made.sync_confirm = verb.sync_confirm;
            asking_.push_back(&made);
            if (verb.opcode == SEND_CONVERSATION) {
                send(&made, flow_kind::data, place, verb.data_bytes);
                send(&made, flow_kind::end, place);
            }
            return;
        }
        side* from = side_of(verb);
        if (from == nullptr || verb.result.ends_with("_CHECK"))
            return;
        const bool asks = from->sync_confirm;
        switch (verb.opcode) {
        case SEND_DATA:
            send(from, flow_kind::data, place, verb.data_bytes);
            if (verb.what == APPC_SEND_CONFIRM || (asks && verb.what == APPC_SEND_DEALLOC_SYNC_LEVEL))
                send(from, flow_kind::confirm, place);
            else if (verb.what == APPC_SEND_P_TO_R_FLUSH || verb.what == APPC_SEND_P_TO_R_SYNC_LEVEL)
                give_turn(from, place);
            else if (verb.what >= APPC_SEND_DEALLOC_FLUSH)
                send(from, flow_kind::end, place);
            break;
        case CONFIRM: send(from, flow_kind::confirm, place); break;
        case CONFIRMED: send(from, flow_kind::confirmed, place); break;
        case PREPARE_TO_RECEIVE:
        case RECEIVE_AND_WAIT:
        case RECEIVE_AND_POST: give_turn(from, place); break;
        case SEND_ERROR:
            if (!from->has_turn && from->other != nullptr)
                from->other->outgoing.clear();  // it is purged
            send(from, flow_kind::error, place);
            from->has_turn = true;
            break;
        case DEALLOCATE:
            send(from,
                 verb.what == APPC_DEALLOC_CONFIRM || (asks && verb.what == APPC_DEALLOC_SYNC_LEVEL)
                     ? flow_kind::confirm
                     : flow_kind::end,
                 place);
            break;
        default: break;
        }
    }

    // The oldest of what the partner has sent, if it is of these kinds; what is older is lost.
    void get(side* at, std::size_t place, std::initializer_list<flow_kind> kinds)
    {
        if (at == nullptr || at->other == nullptr)
            return;
        auto& queue = at->other->outgoing;
        const auto found = std::ranges::find_if(
            queue, [&](const side::sent& each) { return std::ranges::count(kinds, each.kind) != 0; });
        if (found == queue.end())
            return;
        flows_.push_back({found->kind, found->verb, place});
        queue.erase(queue.begin(), found + 1);
    }

    void get_data(side* at, std::size_t place)
    {
        const verb_run& verb = of_.verbs[place];
        if (at == nullptr || at->other == nullptr)
            return;
        auto& queue = at->other->outgoing;
        std::size_t left = verb.data_bytes;
        bool takes_empty = left == 0 && (verb.what & (APPC_WR_DATA | APPC_WR_DATA_COMPLETE)) != 0;
        while (!queue.empty() && queue.front().kind == flow_kind::data && (left != 0 || takes_empty)) {
            const std::size_t taken = std::min(left, queue.front().bytes);
            takes_empty = false;
            if (taken != 0 || left == 0)
                flows_.push_back({flow_kind::data, queue.front().verb, place});
            left -= taken;
            queue.front().bytes -= taken;
            if (queue.front().bytes == 0)
                queue.pop_front();
        }
    }

    void accepts(std::size_t place)
    {
        const verb_run& verb = of_.verbs[place];
        side& made = make_side(place);
        const auto fits = [&](const side* each) {
            const verb_run& asked = of_.verbs[each->verb];
            const bool failed = asked.is_error() && asked.end_us < verb.end_us;
            return !failed && asked.asks_tp == verb.asks_tp && may_be_partners(asked.asks_lu, verb.asks_lu) &&
                   may_be_partners(of_.tps[asked.tp].lu, verb.from_lu);
        };
        const auto found = std::ranges::find_if(asking_, fits);
        if (found == asking_.end())
            return;
        made.other = *found;
        made.other->other = &made;
        made.sync_confirm = made.other->sync_confirm;
        flows_.push_back({flow_kind::attach, made.other->verb, place});
        asking_.erase(found);
    }

    void ends(std::size_t place)
    {
        const verb_run& verb = of_.verbs[place];
        if (is_receive_allocate(verb.opcode) && verb.result == "OK")
            return accepts(place);
        side* at = side_of(verb);
        if (at == nullptr || verb.opcode == ALLOCATE || verb.opcode == 0)
            return;
        const verb_row* row = find_verb(verb.opcode);
        if (row != nullptr && row->received_into != 0 && verb.result == "OK") {
            get_data(at, place);
            if ((verb.what & (APPC_WR_CONFIRM | APPC_WR_CONFIRM_SEND | APPC_WR_CONFIRM_DEALLOCATE)) != 0)
                get(at, place, {flow_kind::confirm, flow_kind::turn, flow_kind::end});
            if ((verb.what & APPC_WR_SEND) != 0)
                get(at, place, {flow_kind::turn});
            if ((verb.what & (APPC_WR_SEND | APPC_WR_CONFIRM_SEND)) != 0)
                at->has_turn = true;
        } else if (gets_an_end(verb.result)) {
            get(at, place, {flow_kind::end, flow_kind::confirm});
        } else if (gets_an_error(verb.result)) {
            get(at, place, {flow_kind::error});
            at->has_turn = false;
        } else if (verb.result == "OK") {
            if (at->other != nullptr && !at->other->outgoing.empty() &&
                at->other->outgoing.front().kind == flow_kind::confirmed)
                get(at, place, {flow_kind::confirmed});
        }
    }

    const story& of_;
    std::deque<side> all_;  // places stay
    std::map<std::pair<u32, u32>, side*> sides_;
    std::deque<side*> asking_;  // allocated, and not yet taken by a receive-allocate
    std::vector<flow> flows_;
};

}  // namespace

std::vector<flow> find_flows(const story& of)
{
    return tracker(of).follow();
}

}  // namespace tessaly::tool::trace
