#include "service/config_file.h"

#include "service/log.h"
#include "service/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace tessaly::service {

namespace {

constexpr off_t LONGEST = 16 * 1024 * 1024;

std::string printed(const std::string& file, const config_problem& problem)
{
    std::string line = problem.line;
    std::ranges::replace(line, '\t', ' ');
    const u32 room =
        static_cast<u32>(line.size()) + 1 > problem.column ? static_cast<u32>(line.size()) + 1 - problem.column : 1;
    return file + ":" + std::to_string(problem.number) + ":" + std::to_string(problem.column) + ": " + problem.text +
           "\n    " + line + "\n    " + std::string(problem.column - 1, ' ') + "^" +
           std::string(std::max(std::min(problem.width, room), 1u) - 1, '~') + "\n";
}

// Who may write it is asked of the very file that is read. A pipe is found out without waiting for its writer.
std::string content_of(const std::string& file, writers by)
{
    const auto refuse = [&](const std::string& why) { throw config_error(file + ": " + why + "\n"); };
    const unique_fd opened{open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat found {};
    if (!opened || fstat(opened.get(), &found) != 0)
        refuse(error_text(errno));
    if (!S_ISREG(found.st_mode))
        refuse("is no file");
    if (found.st_size > LONGEST)
        refuse("is too long for a settings file");
    if (by == writers::owner && found.st_uid != 0 && found.st_uid != geteuid())
        refuse("belongs to another user, who could have any program started: give it to root");
    if (by == writers::owner && (found.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        refuse("others than its owner can write it, and could have any program started: chmod go-w");
    std::string text;
    char part[16 * 1024];
    for (ssize_t got = 0; (got = read(opened.get(), part, sizeof part)) != 0 && text.size() <= std::size_t{LONGEST};) {
        if (got < 0)
            refuse(error_text(errno));
        text.append(part, static_cast<std::size_t>(got));
    }
    return text;
}

}  // namespace

void read_config_file(const std::string& file, const std::function<void(config_section&)>& read_all, writers by)
{
    std::istringstream in(content_of(file, by));
    std::vector<config_problem> problems;
    try {
        const toml::value root = toml::parse(in, file);
        problems = read_root(root, read_all);
    } catch (const toml::exception& error) {
        problems = {problem_of(error)};
    } catch (const std::exception& error) {
        throw config_error(file + ": " + error.what() + "\n");
    }
    std::string texts;
    for (const config_problem& problem : problems)
        texts += printed(file, problem);
    if (!texts.empty())
        throw config_error(texts);
}

}  // namespace tessaly::service
