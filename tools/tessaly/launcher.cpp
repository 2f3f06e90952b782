#include "tools/tessaly/launcher.h"

#include "service/config_file.h"
#include "service/notify.h"
#include "service/unique_fd.h"
#include "tools/tessaly/commands.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <sstream>

namespace tessaly::tool {

namespace {

using service::level;
using service::log;
using service::unique_fd;

// The node takes verbs at once; one that is stopped must not keep the launcher from ending.
constexpr timespec END_LIMIT = {.tv_sec = 5, .tv_nsec = 0};

// Where stdin, stdout or stderr are closed, what is opened next would stand in their place.
void fill_standard_descriptors()
{
    int opened = 0;
    do
        opened = open("/dev/null", O_RDWR);
    while (opened >= 0 && opened <= STDERR_FILENO);
    close(opened);
}

sigset_t signals_taken()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&signals, each);
    return signals;
}

// For as long as the process lives.
void take_signals()
{
    std::thread([] {
        const sigset_t signals = signals_taken();
        for (int received = 0; sigwait(&signals, &received) == 0;) {
            the_inbox().put({.what = news::signalled, .signal = received});
            if (received != SIGTERM && received != SIGINT)
                continue;
            sigset_t again;
            sigemptyset(&again);
            sigaddset(&again, SIGTERM);
            sigaddset(&again, SIGINT);
            while (sigtimedwait(&again, nullptr, &END_LIMIT) < 0 && errno == EINTR) {}
            log(level::error, "what was to stop goes on; the process ends now");
            ::_exit(EXIT_VERB_FAILED);
        }
    }).detach();
}

void use_log(const service::log_settings& with)
{
    if (!service::log_to(with.file))
        throw service::config_error(with.file + ": " + service::error_text(errno) + "\n");
    service::log_up_to(with.most);
}

void log_lines(level of, const char* text)
{
    std::istringstream lines{text};
    for (std::string line; std::getline(lines, line);)
        log(of, line);
}

std::string why_not_defined(const outcome& result)
{
    if (result.primary == UNEXPECTED_SYSTEM_ERROR && result.secondary == EPERM)
        return "the node admits no TP server of user " + std::to_string(geteuid()) + ": see [tp_servers] in its settings.";
    return failed(result, NO_LIMIT).message;
}

std::string asker_of(const attach_details& details)
{
    return details.partner + (details.user.empty() ? "" : ", user " + details.user) + ", for " + details.tp_name +
           " on " + details.lu;
}

// Where a program finds what its partner sent along: a file in memory, so that nobody has to wait for it to be read.
unique_fd file_with(std::span<const appc_u8> content)
{
    unique_fd file{memfd_create("pip", MFD_CLOEXEC)};
    const bool whole =
        file && write(file.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size());
    return whole && lseek(file.get(), 0, SEEK_SET) == 0 ? std::move(file) : unique_fd{};
}

}  // namespace

launcher::launcher(std::string config) : config_(std::move(config)), settings_(read_launcher_settings(config_))
{
    use_log(settings_.log);
    if (!settings_.socket.empty())
        setenv("TESSALY_NODE", ("unix:" + settings_.socket).c_str(), 1);
    for (const launched_tp& tp : settings_.tps)
        definitions_.emplace(++last_number_, definition{tp});
}

void launcher::run()
{
    connect();
    service::notify_manager("READY=1");
    while (!stopping_) {
        const news item = the_inbox().take(attempt_at_);
        switch (item.what) {
        case news::nothing: connected_ ? define_missing() : connect(); break;
        case news::asked: start(item); break;
        case news::node_lost: lose_node(); break;
        case news::signalled: take_signal(item.signal); break;
        }
    }
    service::notify_manager("STOPPING=1");
    if (connected_)
        server_.end();
    log(level::info, "has stopped; ", children_.size(), " programs go on");
}

void launcher::connect()
{
    if (const outcome begun = server_.begin(); !begun.ok()) {
        if (!std::exchange(complained_, true))
            log(level::warning, "no node: ", failed(begun, NO_LIMIT).message, " Tries again every ",
                settings_.retry_seconds, " s.");
        attempt_at_ = after_a_while();
        return;
    }
    log(level::info, "is a TP server");
    connected_ = true;
    complained_ = false;
    ++service_;
    define_missing();
}

void launcher::lose_node()
{
    if (!std::exchange(connected_, false))
        return;
    log(level::warning, "the node is gone");
    server_.end();
    for (auto& [number, defined] : definitions_)
        defined = {.tp = defined.tp, .running = defined.running};
    attempt_at_ = clock::now();
}

// What another TP server has defined, or the node's settings do not allow, may be possible later.
void launcher::define_missing()
{
    attempt_at_ = clock::time_point::max();
    for (auto& [number, defined] : definitions_) {
        if (!defined.as_told)
            define(number, defined);
        if (!defined.as_told)
            attempt_at_ = after_a_while();
    }
}

void launcher::define(u32 number, definition& defined)
{
    const outcome result = server_.define(defined.tp, number, defined.registration);
    defined.as_told = result.ok();
    const std::string complaint = result.ok() ? "" : why_not_defined(result);
    if (result.ok())
        log(level::info, "TP ", defined.tp.program.tp_name, ": defined");
    else if (complaint != defined.complaint)
        log(level::error, "TP ", defined.tp.program.tp_name, ": not defined: ", complaint, " Tries again every ",
            settings_.retry_seconds, " s.");
    defined.complaint = complaint;
}

void launcher::take_signal(int signal)
{
    switch (signal) {
    case SIGCHLD: reap(); break;
    case SIGHUP: reload(); break;
    default: log(level::info, "stops: ", strsignal(signal)); stopping_ = true;
    }
}

// A file that cannot be used changes nothing.
void launcher::reload()
try {
    const auto now = clock::now().time_since_epoch();
    service::notify_manager("RELOADING=1\nMONOTONIC_USEC=" +
                            std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
    launcher_settings fresh = read_launcher_settings(config_);
    use_log(fresh.log);
    apply(std::move(fresh));
    log(level::info, "has read its settings again");
    service::notify_manager("READY=1");
} catch (const service::config_error& error) {
    log_lines(level::error, error.what());
    log(level::error, "the settings stay as they were");
    service::notify_manager("READY=1");
}

// Starts under way go on: a TP that stays keeps its number and its place at the node.
void launcher::apply(launcher_settings fresh)
{
    fresh.socket = settings_.socket;
    settings_ = std::move(fresh);
    std::erase_if(definitions_, [&](auto& each) {
        const auto stays =
            std::ranges::any_of(settings_.tps, [&](const launched_tp& tp) { return tp.is_same_tp(each.second.tp); });
        if (!stays && connected_ && each.second.registration != 0)
            server_.undefine(each.second.registration);
        return !stays;
    });
    for (const launched_tp& tp : settings_.tps) {
        const auto known =
            std::ranges::find_if(definitions_, [&](const auto& each) { return tp.is_same_tp(each.second.tp); });
        const u32 number = known != definitions_.end() ? known->first : ++last_number_;
        definition& defined = definitions_[number];
        defined.as_told = defined.as_told && defined.tp.type == tp.type;
        defined.tp = tp;
    }
    if (connected_)
        define_missing();
}

void launcher::start(const news& asked)
{
    const auto wanted = definitions_.find(asked.definition);
    if (wanted == definitions_.end())
        return refuse(asked.id, APPC_TPS_ERROR_NO_RETRY);
    attach_details details;
    if (const outcome result = server_.query(asked.id, details); !result.ok()) {
        log(level::warning, "TP ", wanted->second.tp.program.tp_name,
            ": not started: ", failed(result, NO_LIMIT).message);
        return refuse(asked.id, APPC_TPS_ERROR_RETRY);
    }
    if (!has_room(wanted->second)) {
        log(level::warning, "asked by ", asker_of(details), ": refused, since ", wanted->second.running,
            " of these and ", children_.size(), " programs in all run already");
        return refuse(asked.id, APPC_TPS_ERROR_RETRY);
    }
    launch(asked, wanted->second, details);
}

bool launcher::has_room(const definition& wanted) const
{
    return wanted.running < wanted.tp.most && children_.size() < settings_.most_programs;
}

void launcher::launch(const news& asked, definition& wanted, const attach_details& details)
{
    std::map<std::string, std::string> added = {{"APPC_ATTACH_ID", service::attach_id(asked.id.attach, asked.id.node)}};
    if (const char* const node = std::getenv("TESSALY_NODE"))
        added.emplace("TESSALY_NODE", node);
    const unique_fd pip = details.pip.empty() ? unique_fd{} : file_with(details.pip);
    if (!details.pip.empty() && !pip) {
        log(level::error, "asked by ", asker_of(details), ": no room for its PIP data: ", service::error_text(errno));
        return refuse(asked.id, APPC_TPS_ERROR_RETRY);
    }
    const service::started_program program =
        start_program(wanted.tp.program, service::base_environment::clean, added, pip.get());
    if (program.process < 0) {
        log(level::error, "asked by ", asker_of(details), ": cannot be started: ", program.problem);
        return refuse(asked.id, APPC_TPS_ERROR_NO_RETRY);
    }
    log(level::info, "asked by ", asker_of(details), ": started as process ", program.process);
    children_.emplace(program.process, child{asked.id, asked.definition, service_});
    ++wanted.running;
    const outcome result = server_.started(asked.id);
    const bool taken = result.primary == STATE_CHECK && result.secondary == SEC_ATTACH_GONE;  // by a program that was quick
    if (!result.ok() && !taken)
        log(level::warning, "process ", program.process, " came too late: ", failed(result, NO_LIMIT).message);
}

void launcher::refuse(const appc_start_id& id, u32 error_code)
{
    if (const outcome result = server_.refused(id, error_code); !result.ok())
        log(level::warning, "a refusal did not reach the node: ", failed(result, NO_LIMIT).message);
}

// A program that has ended takes no conversation any more. The node knows whether it has taken its own.
void launcher::reap()
{
    int status = 0;
    for (pid_t process = 0; (process = waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto ended = children_.find(process);
        if (ended == children_.end())
            continue;
        log(status == 0 ? level::info : level::warning, "process ", process,
            WIFSIGNALED(status) ? " was ended by signal " : " ended with exit code ",
            WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        const child of = ended->second;
        children_.erase(ended);
        if (const auto defined = definitions_.find(of.definition); defined != definitions_.end())
            --defined->second.running;
        if (connected_ && of.service == service_)
            server_.ended_early(of.id, APPC_TPS_ERROR_RETRY);
    }
}

ending launch_programs(const launcher_options& options)
try {
    if (options.check_config) {
        read_launcher_settings(options.config);
        std::printf("%s: no faults\n", options.config.c_str());
        return {};
    }
    fill_standard_descriptors();
    // Before the first thread, so that the signals come to theirs alone.
    const sigset_t signals = signals_taken();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    launcher own{options.config};
    if (!shares_a_node())
        return needs_a_shared_node();
    take_signals();
    own.run();
    return {};
} catch (const service::config_error& error) {
    std::string text = error.what();
    text.erase(text.find_last_not_of('\n') + 1);
    return {EXIT_USAGE, text};
}

}  // namespace tessaly::tool
