// Processes that a benchmark starts, in 32 and 64 bits alike: none outlives its parent.
#pragma once

#include "bench/timing.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <string_view>

namespace tessaly::bench {

inline constexpr unsigned FLOW_RECORD_BYTES = 32 * 1024;

// Megabytes per second of a flow of such records; receive() takes in one.
template <typename Receive>
double megabytes_per_second(unsigned records, Receive receive)
{
    return FLOW_RECORD_BYTES * 1000.0 / ns_per_call(records, receive);
}

class child {
public:
    // Runs the body in a process of its own.
    template <typename Body>
    explicit child(Body body) : id_(fork())
    {
        if (id_ < 0)
            fail("fork");
        if (id_ != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(0);
    }
    child(const child&) = delete;
    child& operator=(const child&) = delete;
    ~child()
    {
        kill(id_, SIGKILL);
        while (waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {}
    }

    pid_t id() const noexcept { return id_; }

private:
    const pid_t id_;
};

// A directory that goes with the object, whatever a child does to its copy.
class scratch_directory {
public:
    scratch_directory()
    {
        if (mkdtemp(name_.data()) == nullptr)
            fail("mkdtemp");
    }
    scratch_directory(const scratch_directory&) = delete;
    scratch_directory& operator=(const scratch_directory&) = delete;
    ~scratch_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(name_, ignored);
    }
    std::string path_of(const char* file) const { return name_ + '/' + file; }

private:
    std::string name_ = std::filesystem::temp_directory_path().string() + "/tessaly-bench-XXXXXX";
};

// Where the two ends of an exchange reach what stands between them.
class two_doors {
public:
    std::string front_address() const { return "ipc://" + directory_.path_of("front"); }
    std::string back_address() const { return "ipc://" + directory_.path_of("back"); }

private:
    const scratch_directory directory_;
};

// What is asked for on a rival's command line: nanoseconds of an exchange, or MB/s of a flow. Result: the exit code.
inline int print_measured(int count, char** arguments, double (*exchange)(), double (*flow)())
{
    const std::string_view what = count == 2 ? arguments[1] : "";
    if (what != "exchange" && what != "flow") {
        std::fprintf(stderr, "usage: %s exchange|flow\n", arguments[0]);
        return 2;
    }
    std::printf("%.0f\n", what == "flow" ? flow() : exchange());
    return 0;
}

}  // namespace tessaly::bench
