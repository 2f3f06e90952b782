// ping and echo: a record and the turn go over, and come back. A round trip is two verbs on each side.
#include "tools/tessaly/commands.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <random>

namespace tessaly::tool {

namespace {

// Round-trip times in microseconds. A long run keeps a fair sample of so many.
class timings {
public:
    void add(float microseconds)
    {
        ++count_;
        if (kept_.size() < SAMPLE)
            kept_.push_back(microseconds);
        else if (const auto at = std::uniform_int_distribution<std::uint64_t>(0, count_ - 1)(random_); at < SAMPLE)
            kept_[static_cast<std::size_t>(at)] = microseconds;
        least_ = count_ == 1 ? microseconds : std::min(least_, microseconds);
        most_ = std::max(most_, microseconds);
    }

    std::uint64_t count() const { return count_; }

    std::string summary()
    {
        std::ranges::sort(kept_);
        return text_of("round trip min/median/p99/max = %.1f/%.1f/%.1f/%.1f us", least_, quantile(0.5), quantile(0.99),
                       most_);
    }

private:
    static constexpr std::size_t SAMPLE = 1'000'000;

    // The smallest that so many of them do not exceed.
    float quantile(double part) const
    {
        const auto rank = static_cast<std::size_t>(std::ceil(part * static_cast<double>(kept_.size())));
        return kept_[std::max<std::size_t>(rank, 1) - 1];
    }

    std::vector<float> kept_;
    std::minstd_rand random_;
    std::uint64_t count_ = 0;
    float least_ = 0;
    float most_ = 0;
};

// Receives one record and the turn; the record may come in several parts. Result: bytes in the record by `bytes`.
outcome receive_with_turn(conversation& conv, std::span<appc_u8> record, std::size_t& bytes)
{
    bytes = 0;
    for (received got; !got.has(APPC_WR_SEND);) {
        if (const outcome result = conv.receive(record.subspan(bytes), got); !result.ok())
            return result;
        bytes += got.bytes;
        if (bytes == record.size() && !got.has(APPC_WR_SEND))
            bytes = 0;  // more than any ping sends: keep to the last part
    }
    return {};
}

struct round_trips {
    timings times;
    std::uint64_t begun = 0;
    float last = 0;  // microseconds; below 0: what came back was not what was sent
};

outcome one_round_trip(conversation& conv, std::span<appc_u8> sent, std::span<appc_u8> came, round_trips& trips)
{
    const std::uint64_t number = ++trips.begun;
    std::memcpy(sent.data(), &number, sizeof number);
    std::size_t bytes = 0;
    const auto start = clock::now();
    outcome result = conv.send(sent, APPC_SEND_P_TO_R_FLUSH);
    if (result.ok())
        result = receive_with_turn(conv, came, bytes);
    const std::chrono::duration<float, std::micro> time = clock::now() - start;
    if (!result.ok())
        return result;
    const bool same = std::ranges::equal(sent, came.first(bytes));
    trips.last = same ? time.count() : -1;
    if (same)
        trips.times.add(trips.last);
    return result;
}

void print_round_trip(const ping_options& options, const round_trips& trips, std::FILE* out)
{
    const auto number = static_cast<unsigned long long>(trips.begun);
    if (trips.last < 0)
        std::fprintf(out, "seq=%llu came back changed\n", number);
    else
        std::fprintf(out, "%zu bytes from %s on %s: seq=%llu time=%.1f us\n", options.bytes, options.with.tp.c_str(),
                     options.with.lu.c_str(), number, static_cast<double>(trips.last));
}

outcome run_round_trips(conversation& conv, stopper& stop, const ping_options& options, std::FILE* out,
                        round_trips& trips)
{
    std::vector<appc_u8> sent(options.bytes);
    for (std::size_t at = 0; at < sent.size(); ++at)
        sent[at] = static_cast<appc_u8>(at);
    std::vector<appc_u8> came(LONGEST_RECORD);
    auto due = clock::now();
    while (stop.cause() == stop_cause::none) {
        if (const outcome result = one_round_trip(conv, sent, came, trips); !result.ok())
            return result;
        if (!options.quiet)
            print_round_trip(options, trips, out);
        if (trips.begun == options.count)
            break;
        due += options.interval;
        if (options.interval > clock::duration::zero() && !stop.pause(due - clock::now()))
            break;
    }
    return conv.deallocate(APPC_DEALLOC_FLUSH);
}

void print_summary(const ping_options& options, round_trips& trips, std::FILE* out)
{
    const std::uint64_t good = trips.times.count();
    const double loss =
        trips.begun == 0 ? 0 : 100.0 * static_cast<double>(trips.begun - good) / static_cast<double>(trips.begun);
    std::fprintf(out, "--- %s on %s ---\n%llu sent, %llu came back, %.3g%% loss\n", options.with.tp.c_str(),
                 options.with.lu.c_str(), static_cast<unsigned long long>(trips.begun),
                 static_cast<unsigned long long>(good), loss);
    if (good != 0)
        std::fprintf(out, "%s\n", trips.times.summary().c_str());
    std::fflush(out);
}

// Echoes until the partner ends the conversation: DEALLOC_NORMAL is the good end.
outcome serve(conversation& conv)
{
    std::array<appc_u8, LONGEST_RECORD> record;
    while (true) {
        std::size_t bytes = 0;
        outcome result = receive_with_turn(conv, record, bytes);
        if (result.ok())
            result = conv.send(std::span(record).first(bytes), APPC_SEND_P_TO_R_FLUSH);
        if (!result.ok())
            return result;
    }
}

ending serve_conversations(stopper& stop, const echo_options& options, bool talks)
{
    for (std::uint64_t served = 0; options.count == 0 || served < options.count; ++served) {
        conversation conv(stop, options.limit);
        outcome result = conv.accept(options.tp);
        if (result.ok()) {
            if (talks)
                say("tessaly echo: conversation with " + conv.partner_lu());
            result = serve(conv);
        }
        if (result.stopped == stop_cause::time_out)
            return failed(result, options.limit);
        if (result.stopped != stop_cause::none)
            return {};  // told to end, which is how it ends
        if (result.primary == DEALLOC_NORMAL)
            continue;
        const ending problem = failed(result, options.limit);
        const bool partners_fault =
            std::string_view(result.verb) != "RECEIVE_ALLOCATE" && problem.code == EXIT_VERB_FAILED;
        if (!partners_fault)
            return problem;
        say("tessaly echo: " + problem.message);
    }
    return {};
}

// The other end of a ping over the embedded node; ends with it.
class own_echo {
public:
    own_echo(stopper& stop, const std::string& tp)
        : stop_(stop), thread_([&stop, tp] { serve_conversations(stop, {.tp = tp, .count = 1}, false); })
    {}
    ~own_echo()
    {
        stop_.stop(stop_cause::finished);
        thread_.join();
    }
    own_echo(const own_echo&) = delete;
    own_echo& operator=(const own_echo&) = delete;

private:
    stopper& stop_;
    std::thread thread_;
};

}  // namespace

ending ping(stopper& stop, const ping_options& options, std::FILE* out)
{
    std::optional<own_echo> other_end;
    if (!shares_a_node()) {
        say("tessaly ping: TESSALY_NODE is not set: the node is inside this process, and so is the echo end, in a "
            "thread of its own");
        other_end.emplace(stop, options.with.tp);
    }
    conversation conv(stop, options.limit);
    outcome result = conv.allocate(options.local_lu, "PING", options.with, APPC_SYNC_NONE);
    if (!result.ok())
        return failed(result, options.limit);

    std::fprintf(out, "PING %s on %s: %zu bytes each way\n", options.with.tp.c_str(), options.with.lu.c_str(),
                 options.bytes);
    round_trips trips;
    result = run_round_trips(conv, stop, options, out, trips);
    print_summary(options, trips, out);
    const bool interrupted = result.stopped == stop_cause::signal && trips.times.count() != 0;
    if (!result.ok() && !interrupted)
        return failed(result, options.limit);
    if (trips.times.count() < trips.begun && !interrupted)
        return {EXIT_VERB_FAILED, "records came back changed; is the other end tessaly echo?"};
    return {};
}

ending echo(stopper& stop, const echo_options& options)
{
    say("tessaly echo: waiting for conversations with " + options.tp);
    return serve_conversations(stop, options, true);
}

}  // namespace tessaly::tool
