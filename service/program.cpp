#include "service/program.h"

#include "service/log.h"
#include "service/unique_fd.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <optional>
#include <stdexcept>

extern char** environ;

namespace tessaly::service {

namespace {

using variables = std::map<std::string, std::string>;

struct identity {
    uid_t user;
    gid_t group;
    std::vector<gid_t> groups;
};

// What the child says when it gets no further: which step failed, and errno.
struct failure {
    const char* step;
    int error;
};

const passwd* find_user(const std::string& name)
{
    if (const passwd* const named = getpwnam(name.c_str()))
        return named;
    uid_t id = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
    return error == std::errc{} && end == name.data() + name.size() ? getpwuid(id) : nullptr;
}

std::vector<gid_t> groups_of(const passwd& user)
{
    int count = 64;
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    while (getgrouplist(user.pw_name, user.pw_gid, groups.data(), &count) < 0)
        groups.resize(static_cast<std::size_t>(count));
    groups.resize(static_cast<std::size_t>(count));
    return groups;
}

variables own_environment()
{
    variables own;
    for (char** each = environ; each != nullptr && *each != nullptr; ++each)
        if (const std::string text = *each; text.find('=', 1) != text.npos)
            own.emplace(text.substr(0, text.find('=', 1)), text.substr(text.find('=', 1) + 1));
    return own;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// As system calls, since the libc's functions would have all threads of the process change, of which the child has none.
bool become(const identity& as) noexcept
{
    return syscall(SYS_setgroups32, as.groups.size(), as.groups.data()) == 0 &&
           syscall(SYS_setresgid32, as.group, as.group, as.group) == 0 &&
           syscall(SYS_setresuid32, as.user, as.user, as.user) == 0;
}

struct prepared {
    std::vector<std::string> words;
    std::vector<std::string> environment;
    std::vector<char*> word_pointers;
    std::vector<char*> environment_pointers;
    std::optional<identity> as;
    int standard_input;
};

// Nothing here may take a lock or memory: another thread may have held one when the process was copied.
[[noreturn]] void run_child(const prepared& program, int report_to) noexcept
{
    const auto fail = [&](const char* step) {
        const failure why = {step, errno};
        [[maybe_unused]] const ssize_t told = write(report_to, &why, sizeof why);
        _exit(127);
    };
    for (int each = 1; each < NSIG; ++each)
        signal(each, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setsid();
    const int from = program.standard_input >= 0 ? program.standard_input : open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (from < 0 || dup2(from, STDIN_FILENO) < 0)
        fail("its standard input");
    if (syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0)
        fail("closing descriptors");
    if (program.as && !become(*program.as))
        fail("becoming its user");
    execve(program.word_pointers[0], program.word_pointers.data(), program.environment_pointers.data());
    fail(program.word_pointers[0]);
    __builtin_unreachable();
}

// Throws std::runtime_error with a text for the log.
prepared prepare(const program_settings& program, base_environment from, const variables& added, int standard_input)
{
    prepared made{.standard_input = standard_input};
    variables base = from == base_environment::inherited ? own_environment() : variables{};
    const passwd* const user = program.user.empty() ? getpwuid(geteuid()) : find_user(program.user);
    if (user == nullptr && !program.user.empty())
        throw std::runtime_error("there is no user " + program.user);
    if (!program.user.empty() && geteuid() != 0 && user->pw_uid != geteuid())
        throw std::runtime_error("only root starts programs as user " + program.user);
    if (!program.user.empty() && geteuid() == 0)
        made.as = {user->pw_uid, user->pw_gid, groups_of(*user)};
    if (from == base_environment::clean)
        base["PATH"] = "/usr/local/bin:/usr/bin:/bin";
    if (user != nullptr && (made.as || from == base_environment::clean)) {
        base["HOME"] = user->pw_dir;
        base["USER"] = base["LOGNAME"] = user->pw_name;
        base["SHELL"] = user->pw_shell;
    }
    for (const variables& more : {program.environment, added})
        for (const auto& [name, value] : more)
            base[name] = value;
    for (const auto& [name, value] : base)
        made.environment.push_back(name + "=" + value);
    made.words = program.command;
    made.word_pointers = pointers_to(made.words);
    made.environment_pointers = pointers_to(made.environment);
    return made;
}

started_program start(const prepared& program)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {.problem = error_text(errno)};
    const unique_fd in{ends[0]};
    unique_fd out{ends[1]};
    const pid_t process = fork();
    if (process == 0)
        run_child(program, out.get());
    if (process < 0)
        return {.problem = error_text(errno)};
    out.reset();
    failure why{};
    ssize_t got = 0;
    do
        got = read(in.get(), &why, sizeof why);
    while (got < 0 && errno == EINTR);
    if (got == 0)
        return {.process = process};  // the pipe closed when the program took over
    waitpid(process, nullptr, 0);
    return {.problem = got == sizeof why ? std::string{why.step} + ": " + error_text(why.error) : "it ended at once"};
}

}  // namespace

// 16 digits, each word with the byte first that is first in memory.
std::string attach_id(u32 attach, u32 node)
{
    char digits[17];
    std::snprintf(digits, sizeof digits, "%08x%08x", htonl(attach), htonl(node));
    return digits;
}

started_program start_program(const program_settings& program, base_environment from, const variables& added,
                              int standard_input)
try {
    return start(prepare(program, from, added, standard_input));
} catch (const std::exception& error) {
    return {.problem = error.what()};
}

}  // namespace tessaly::service
