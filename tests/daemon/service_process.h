// A program that runs as a service, in a process of its own: it tells when it is ready, and its log is read as it comes.
#pragma once

#include "service/unique_fd.h"

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace tessaly::daemon {

using service::unique_fd;

struct pipe_ends {
    unique_fd out, in;
};
pipe_ends make_pipe();

bool is_readable(int fd);       // waits for it at most a minute
std::string read_some(int fd);  // empty at the end
std::string read_all(int fd);

// A child with these words, the first of which is its path, that prints into `output`; as that user and group if not 0.
pid_t run_program(const std::vector<std::string>& words, int output, uid_t as = 0);

struct ending {
    int exit_code;  // -1: ended by a signal
    std::string printed;
};
ending run_to_the_end(const std::vector<std::string>& words, uid_t as = 0);

class service_process {
public:
    // Returns when it has said that it is ready, as it says it to a service manager, whose socket is in the directory meanwhile.
    service_process(const std::vector<std::string>& words, const std::string& directory, uid_t as = 0);
    service_process(const service_process&) = delete;
    service_process& operator=(const service_process&) = delete;
    ~service_process();  // with SIGTERM, if it still runs, to which it must end with 0

    void signal(int number) const;
    int stop(int signal);  // Result: how it ended, as waitpid tells

    // Reads the log up to a line with that text in it. False when none comes.
    bool logs(std::string_view text);
    std::string rest_of_log();  // until nobody is left who could write more

private:
    unique_fd log_;
    std::string unread_;
    pid_t process_ = 0;
};

}  // namespace tessaly::daemon
