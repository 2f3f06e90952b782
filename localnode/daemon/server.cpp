#include "localnode/daemon/server.h"

#include "localnode/daemon/config.h"
#include "service/notify.h"
#include "localnode/runtime/clock.h"

#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace tessaly::daemon {

namespace {

constexpr int RETRY_MS = 500;
constexpr u32 PACKETS_ALONE = 64;  // what changing over costs is little beside them

void watch(int poller, int fd, void* as)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = as;
    if (epoll_ctl(poller, EPOLL_CTL_ADD, fd, &event) != 0)
        throw std::runtime_error(error_text(errno));
}

}  // namespace

sigset_t signals_taken() noexcept
{
    sigset_t taken;
    sigemptyset(&taken);
    for (const int each : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&taken, each);
    return taken;
}

server::server(settings& with, std::string config, listener& clients)
    : settings_(with), config_(std::move(config)), listener_(clients), poller_(epoll_create1(EPOLL_CLOEXEC)),
      programs_(with.socket), switchboard_(poller_.get(), with, programs_),
      line_(poller_.get())
{
    const sigset_t taken = signals_taken();
    signals_ = unique_fd{signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK)};
    watch(poller_.get(), signals_.get(), &signals_);
    watch(poller_.get(), listener_.fd(), &listener_);
}

void server::run()
{
    while (!stopping_) {
        const int count = wait_for_news(timeout_ms());
        switchboard_.pass_time(count == 0 ? runtime::precise_now_ms() : runtime::cheap_now_ms());
        for (int i = 0; i < count; ++i)
            handle(events_[i]);
        if (!runtime::several_processors)
            if (connection* const client = alone(count))
                switchboard_.serve_alone(*client, line_);
        switchboard_.drop_gone();
        if (!admits_)
            admit_clients();
    }
    say_goodbye();
}

int server::timeout_ms() const noexcept
{
    const int at_most = admits_ ? -1 : RETRY_MS;
    const std::optional<u64> deadline = switchboard_.deadline_ms();
    if (!deadline)
        return at_most;
    const u64 now = runtime::precise_now_ms();
    const u64 left = *deadline > now ? std::min<u64>(*deadline - now, 3'600'000) : 0;
    return at_most < 0 ? static_cast<int>(left) : std::min(at_most, static_cast<int>(left));
}

// The client whose packets have been the only news for a while. Null: there is none, or the poller's timeout is needed.
connection* server::alone(int count) noexcept
{
    void* const now = count == 1 ? events_[0].data.ptr : nullptr;
    const u32 packets = switchboard_.packets();
    if (std::exchange(last_, now) != now)
        packets_before_ = packets;
    if (packets - packets_before_ < PACKETS_ALONE || now == nullptr || now == &signals_ || now == &listener_ || !admits_)
        return nullptr;
    last_ = nullptr;
    connection* const client = static_cast<connection*>(now);
    return switchboard_.may_be_alone(*client) ? client : nullptr;
}

int server::wait_for_news(int timeout)
{
    int count = 0;
    const auto poll = [&](int at_most) {
        count = epoll_wait(poller_.get(), events_, std::size(events_), at_most);
        return count > 0;
    };
    if (timeout == 0 || !look_.finds([&] { return poll(0); }))
        poll(timeout);
    return std::max(count, 0);
}

void server::handle(const epoll_event& event)
{
    if (event.data.ptr == &signals_) {
        take_signals();
    } else if (event.data.ptr == &listener_) {
        admit_clients();
    } else {
        connection& client = *static_cast<connection*>(event.data.ptr);
        if ((event.events & EPOLLOUT) != 0)
            switchboard_.send_waiting(client);
        if ((event.events & ~EPOLLOUT) != 0)
            switchboard_.take_packets(client);
    }
}

// Without a descriptor for the next client the listening socket is left alone for a while, or the loop would spin.
void server::admit_clients()
{
    constexpr u32 MOST_A_ROUND = 16;
    for (u32 i = 0; i < MOST_A_ROUND; ++i) {
        unique_fd client = listener_.next();
        if (client) {
            switchboard_.admit(std::move(client));
            continue;
        }
        const bool exhausted = errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS;
        if (exhausted && admits_) {
            log(level::error, "no further clients for now: ", error_text(errno));
            epoll_ctl(poller_.get(), EPOLL_CTL_DEL, listener_.fd(), nullptr);
        }
        if (!exhausted && !admits_)
            watch(poller_.get(), listener_.fd(), &listener_);
        admits_ = !exhausted;
        return;
    }
}

void server::take_signals()
{
    signalfd_siginfo got{};
    while (read(signals_.get(), &got, sizeof got) == static_cast<ssize_t>(sizeof got)) {
        if (got.ssi_signo == SIGTERM || got.ssi_signo == SIGINT) {
            log(level::info, "stops: ", strsignal(static_cast<int>(got.ssi_signo)));
            stopping_ = true;
        } else if (got.ssi_signo == SIGHUP) {
            reload();
        } else {
            switchboard_.reap_programs();
        }
    }
}

// What has begun goes on under the old settings; a file that cannot be used changes nothing.
void server::reload()
try {
    notify_manager("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(runtime::precise_now_ms() * 1000));
    settings fresh = config_.empty() ? settings_ : read_config(config_);
    fresh.socket = settings_.socket;
    fresh.access.mode = settings_.access.mode;
    fresh.access.group = settings_.access.group;
    if (!log_to(fresh.log.file))
        throw config_error(fresh.log.file + ": " + error_text(errno) + "\n");
    log_up_to(fresh.log.most);
    settings_ = std::move(fresh);
    switchboard_.configure();
    log(level::info, "has read its settings again");
    notify_manager("READY=1");
} catch (const config_error& error) {
    std::istringstream lines{error.what()};
    for (std::string line; std::getline(lines, line);)
        log(level::error, line);
    log(level::error, "the settings stay as they were");
    notify_manager("READY=1");
}

void server::say_goodbye()
{
    notify_manager("STOPPING=1");
    switchboard_.terminate();
    switchboard_.drop_gone();
    const u64 until = runtime::precise_now_ms() + settings_.times.stop_seconds * 1000;
    for (u64 now = 0; switchboard_.clients() != 0 && (now = runtime::precise_now_ms()) < until;) {
        const int count = epoll_wait(poller_.get(), events_, std::size(events_), static_cast<int>(until - now));
        for (int i = 0; i < count; ++i)
            if (events_[i].data.ptr != &signals_ && events_[i].data.ptr != &listener_)
                handle(events_[i]);
        switchboard_.drop_gone();
    }
}

}  // namespace tessaly::daemon
