// A launcher in a process of its own beside a node in another, and clients that call the TPs of its settings.
#pragma once

#include "tests/daemon/daemon.h"
#include "tests/e2e/talking.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace tessaly::launcher {

using daemon::service_process;
using talking::codes;
using talking::ok;
using talking::program;

inline constexpr codes TRY_AGAIN{APPC_ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY};
inline constexpr codes NOT_THERE{APPC_ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_NO_RETRY};
inline constexpr uid_t SOMEBODY = 77'001;
inline constexpr char PATIENT[] = "[times]\nattach_seconds = 3600\nstart_seconds = 3600\n";  // nothing ends for lack of time
inline constexpr char OPEN_TO_ALL[] = "[access]\nmode = \"0666\"\n";

// A TP of the settings, and what else its table has. Its program's words: what to do, what to add to what it sends back.
inline std::string tp(const std::string& name, const std::string& words = R"("echo", "!")", const std::string& more = "")
{
    return "[[tp]]\ntp_name = \"" + name + "\"\ncommand = [\"" TESSALY_LAUNCHED_PROGRAM "\", " + words + "]\n" + more + "\n";
}

// What a client gets back from a TP, or the codes with which its conversation ends.
struct answer {
    codes outcome;
    std::string data;
    bool operator==(const answer&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const answer& shown)
{
    return out << shown.outcome << ' ' << shown.data;
}

class client {
public:
    explicit client(const char* lu = "HERE") : own_(program::start(lu, "CALLER")) {}
    client(const client&) = delete;
    client& operator=(const client&) = delete;
    ~client() { own_.end(); }

    void call(const char* name) { own_.allocate("THERE", name); }
    void call_with(const char* name, auto fill)
    {
        auto allocating = own_.allocating("THERE", name);
        fill(allocating);
        EXPECT_EQ(own_.try_to_allocate(std::move(allocating)), ok);
    }
    // The program may have refused already.
    answer ask(const std::string& question = "hello") const
    {
        if (const codes refused = own_.send(question); refused != ok)
            return {refused, ""};
        const talking::received got = own_.receive_with_turn();
        return {got.outcome, got.data};
    }
    appc_receive receiving(std::string& into) const { return own_.receiving(into); }

private:
    program own_;
};

inline answer call(const char* name, const char* lu = "HERE")
{
    client caller{lu};
    caller.call(name);
    return caller.ask();
}

class LauncherTest : public daemon::DaemonTest {
protected:
    LauncherTest() { std::filesystem::permissions(directory, std::filesystem::perms(0755)); }

    std::string write_settings(const std::string& text, const char* name = "launcher.toml") const
    {
        const std::string file = directory + "/" + name;
        std::ofstream(file) << text;
        std::filesystem::permissions(file, std::filesystem::perms(0644));
        return file;
    }

    // Returns when it is ready: where a node is, its TPs are defined.
    service_process launch(const std::string& text, uid_t as = 0, const char* name = "launcher.toml") const
    {
        return service_process{{TESSALY_PROGRAM, "launcher", "--config", write_settings(text, name)}, directory, as};
    }

    // Whether this test may run things as somebody else, who can reach them.
    static bool can_be(uid_t user)
    {
        return geteuid() == 0 && daemon::run_to_the_end({TESSALY_PROGRAM, "--version"}, user).exit_code == 0;
    }
};

}  // namespace tessaly::launcher
