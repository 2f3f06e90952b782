#include "localnode/daemon/private_line.h"

#include "service/log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <csignal>
#include <exception>

namespace tessaly::daemon {

namespace {

constexpr int CALL = SIGURG;  // ignored by default, and nobody's here

bool make_blocking(int socket, bool blocking) noexcept
{
    return fcntl(socket, F_SETFL, blocking ? 0 : O_NONBLOCK) == 0;
}

}  // namespace

private_line::~private_line()
{
    if (!sentry_.joinable())
        return;
    eventfd_write(stop_.get(), 1);
    state_ = state::stopping;
    state_.notify_one();
    sentry_.join();
}

bool private_line::begin(int socket) noexcept
{
    if (!sentry_.joinable() && !(possible_ && start_sentry()))
        return false;
    if (!make_blocking(socket, true))
        return false;
    socket_ = socket;
    if (state_.exchange(state::taken) == state::idle)
        state_.notify_one();
    return true;
}

void private_line::end() noexcept
{
    state seen = state::taken;
    if (state_.compare_exchange_strong(seen, state::left))
        make_blocking(socket_, false);
    else
        state_.wait(state::recalling);
}

bool private_line::start_sentry() noexcept
try {
    possible_ = false;
    stop_ = service::unique_fd{eventfd(0, EFD_CLOEXEC)};
    struct sigaction called {};
    called.sa_handler = [](int) {};
    called.sa_flags = SA_RESTART;
    if (!stop_ || sigaction(CALL, &called, nullptr) != 0) {
        service::log(service::level::warning, "a client alone is served as others are: ", service::error_text(errno));
        return false;
    }
    loop_ = pthread_self();
    sigset_t all, own;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &own);  // for the sentry
    sigdelset(&own, CALL);
    const auto unblock = [&] { pthread_sigmask(SIG_SETMASK, &own, nullptr); };
    try {
        sentry_ = std::thread{[this] { keep_watch(); }};
    } catch (...) {
        unblock();
        throw;
    }
    unblock();
    return true;
} catch (const std::exception& error) {
    service::log(service::level::warning, "a client alone is served as others are: ", error.what());
    return false;
}

void private_line::keep_watch() noexcept
{
    for (;;) {
        state_.wait(state::idle);
        pollfd news[] = {{poller_, POLLIN, 0}, {stop_.get(), POLLIN, 0}};
        poll(news, std::size(news), -1);
        if (news[1].revents != 0)
            return;
        state seen = state::taken;
        if (state_.compare_exchange_strong(seen, state::recalling)) {
            make_blocking(socket_, false);
            pthread_kill(loop_, CALL);
            seen = state::recalling;
            state_.compare_exchange_strong(seen, state::idle);
            state_.notify_one();
        } else if (seen == state::left) {
            state_.compare_exchange_strong(seen, state::idle);  // unless the next line has begun
        }
    }
}

}  // namespace tessaly::daemon
