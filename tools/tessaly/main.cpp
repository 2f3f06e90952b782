// The command line of the tool: what is asked for, checked for its form; then the subcommand.
#include "tools/tessaly/commands.h"
#include "tools/tessaly/names.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <sstream>

namespace tessaly::tool {

namespace {

constexpr char ABOUT[] = R"(Example: tessaly explain 0x0300 0x31604B08

Converses over LU 6.2, asks a node for its status, shows what a verb trace tells, and explains return codes.)";

constexpr char EXIT_CODES[] =
    R"(Exit codes: 0 done, 1 a verb failed or the partner refused, 2 wrong usage or an unusable file,
3 no node can be reached, 4 time-out. Data goes to stdout, everything else to stderr.
TESSALY_NODE=unix:PATH names the node to use; unset, the one inside the process.)";

// The help of a subcommand opens with an example, the list of subcommands has the line behind it.
class example_first : public CLI::Formatter {
public:
    std::string make_description(const CLI::App* app) const override { return Formatter::make_description(app) + "\n"; }

    std::string make_subcommand(const CLI::App* command) const override
    {
        const std::string& text = command->get_description();
        std::stringstream line;
        CLI::detail::format_help(line, command->get_name(), text.substr(text.rfind('\n') + 1), get_column_width());
        return line.str();
    }
};

const CLI::Validator lu_alias(
    [](std::string& text) { return is_name(text, 8) ? "" : "must be 1 to 8 letters, digits or $ # @ . /"; }, "LU");
const CLI::Validator tp_name(
    [](std::string& text) { return is_name(text, 64) ? "" : "must be 1 to 64 letters, digits or $ # @ . /"; },
    "TP");

const CLI::Validator a_count = CLI::Range(1, 1'000'000'000).description("");

// A number of seconds as an option, at most a day.
void add_seconds(CLI::App& command, const char* name, const char* help, double least, clock::duration& into)
{
    constexpr double DAY = 86'400;
    const auto take = [&into](double seconds) {
        into = std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
    };
    const CLI::Validator range = CLI::Range(least, DAY).description("");
    command.add_option_function<double>(name, take, help)->type_name("SECONDS")->check(range);
}

void add_timeout(CLI::App& command, const char* help, clock::duration& limit)
{
    add_seconds(command, "--timeout", help, 0.001, limit);
}

// The conversing subcommands run under a stopper that signals stop.
using conversing = std::function<ending(stopper&)>;

class command_line {
public:
    command_line() : app_(ABOUT, "tessaly")
    {
        app_.require_subcommand(1);
        app_.formatter(std::make_shared<example_first>());
        app_.footer(EXIT_CODES);
        app_.set_version_flag("--version", "tessaly " TESSALY_VERSION);
        add_ping();
        add_echo();
        add_send();
        add_receive();
        add_status();
        add_explain();
        add_launcher();
        add_trace();
        add_version();
    }

    int run(int argc, char** argv)
    {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::Success& asked) {
            return app_.exit(asked);  // --help and --version, on stdout
        } catch (const CLI::ParseError& wrong) {
            const auto chosen = app_.get_subcommands();
            const std::string command = chosen.empty() ? "tessaly" : "tessaly " + chosen.front()->get_name();
            const bool names_none = chosen.empty() && argc > 1 && *argv[1] != '-';
            const std::string what = names_none ? "no such subcommand: " + printable(argv[1]) : printable(wrong.what());
            say(command + ": " + what + "\nTry: " + command + " --help");
            return EXIT_USAGE;
        }
        const ending end = run_command_();
        if (!end.message.empty())
            say("tessaly " + app_.get_subcommands().front()->get_name() + ": " + end.message);
        return end.code;
    }

private:
    CLI::App& add(const char* name, const char* summary, const std::string& example)
    {
        CLI::App& command = *app_.add_subcommand(name, summary);
        command.description("Example: " + example + "\n\n" + summary);
        command.footer(EXIT_CODES);
        return command;
    }

    void run_as(CLI::App& command, bool needs_partner, conversing run)
    {
        command.callback([this, needs_partner, run = std::move(run)] {
            run_command_ = [needs_partner, run]() -> ending {
                if (needs_partner && !shares_a_node())
                    return needs_a_shared_node();
                block_watched_signals();
                stopper stop;
                const signal_watch signals(stop);
                return run(stop);
            };
        });
    }

    void add_partner(CLI::App& command, partner& with, std::string& local_lu)
    {
        command.add_option("LU", with.lu, "the partner's LU alias")->required()->check(lu_alias)->type_name("");
        command.add_option("--from", local_lu, "the local LU alias (the node's default LU)")->check(lu_alias);
    }

    void add_ping()
    {
        CLI::App& command = add("ping", "Time round trips of one record each way over one conversation.",
                                "tessaly ping -c 5 ARCHIVE ECHO");
        add_partner(command, ping_.with, ping_.local_lu);
        ping_.with.tp = DEFAULT_ECHO;
        command.add_option("TP", ping_.with.tp, "the TP of the other end, tessaly echo (ECHO)")
            ->check(tp_name)
            ->type_name("");
        command.add_option("-c,--count", ping_.count, "stop after so many (until stopped)")
            ->type_name("N")
            ->check(a_count);
        add_seconds(command, "-i,--interval", "between two, 0: none (1)", 0, ping_.interval);
        command.add_option("-s,--size", ping_.bytes, "bytes of the record (56)")
            ->type_name("BYTES")
            ->check(CLI::Range(PING_LEAST, std::size_t{32'767}).description(""));
        command.add_flag("-q,--quiet", ping_.quiet, "print the summary alone");
        add_timeout(command, "the longest wait for an answer (10)", ping_.limit);
        run_as(command, false, [this](stopper& stop) { return ping(stop, ping_, stdout); });
    }

    void add_echo()
    {
        CLI::App& command =
            add("echo", "Be the other end of ping: send back what comes, until stopped.", "tessaly echo ECHO");
        command.add_option("TP", echo_.tp, "the TP to be (ECHO)")->check(tp_name)->type_name("");
        command.add_option("-c,--count", echo_.count, "stop after so many conversations")
            ->type_name("N")
            ->check(a_count);
        add_timeout(command, "the longest wait for a conversation or a record (none)", echo_.limit);
        run_as(command, true, [this](stopper& stop) { return echo(stop, echo_); });
    }

    void add_send()
    {
        CLI::App& command = add("send", "Send a file and wait until the other end has confirmed all of it.",
                                "tessaly send report.txt ARCHIVE RECVFILE");
        command.add_option("FILE", send_.file, "what to send")->required()->type_name("");
        add_partner(command, send_.with, send_.local_lu);
        command.add_option("TP", send_.with.tp, "the TP of the other end, tessaly receive")
            ->required()
            ->check(tp_name)
            ->type_name("");
        add_timeout(command, "the longest wait of a verb (60)", send_.limit);
        run_as(command, true, [this](stopper& stop) { return send_file(stop, send_); });
    }

    void add_receive()
    {
        CLI::App& command =
            add("receive", "Receive one file; it has its name only when it is whole and its checksum agrees.",
                "tessaly receive RECVFILE --output report.txt");
        command.add_option("TP", receive_.tp, "the TP to be")->required()->check(tp_name)->type_name("");
        command
            .add_option("-o,--output", receive_.output, "the file's name, replaced if it exists (the sender's, if new)")
            ->type_name("FILE");
        add_timeout(command, "the longest wait for the sender (none)", receive_.limit);
        run_as(command, true, [this](stopper& stop) { return receive_file(stop, receive_); });
    }

    void add_status()
    {
        CLI::App& command =
            add("status", "Show the clients, LUs, TPs and conversations of a running node.", "tessaly status");
        command.add_option("--socket", status_.socket, "the node's socket (as TESSALY_NODE says, else the default)")
            ->type_name("PATH");
        command.add_flag("--json", status_.json, "print the document as it comes");
        add_timeout(command, "the longest wait for the whole answer (5)", status_.limit);
        command.callback([this] { run_command_ = [this] { return status(status_, stdout); }; });
    }

    void add_explain()
    {
        CLI::App& command = add("explain", "Tell what return codes mean and what to do.",
                                "tessaly explain 0x0300 0x31604B08 STATE_CHECK");
        command.add_option("CODES", codes_, "numbers or names, primary and secondary ones")->required()->type_name("");
        command.callback([this] { run_command_ = [this] { return explain(codes_, stdout); }; });
    }

    void add_launcher()
    {
        CLI::App& command = add("launcher", "Start programs for the conversations that nobody waits for.",
                                "tessaly launcher --config /etc/tessaly/tessaly-launcher.toml");
        command.add_option("--config", launcher_.config, "the file that says which programs")->required()->type_name("FILE");
        command.add_flag("--check-config", launcher_.check_config, "only read the file and tell what is wrong with it");
        command.callback([this] { run_command_ = [this] { return launch_programs(launcher_); }; });
    }

    void add_trace()
    {
        CLI::App& command = add("trace", "Show what a verb trace tells: by verb, verb after verb, or as a sequence chart.",
                                "tessaly trace --html chart.html verbs.trace");
        command.add_option("FILES", trace_.files, "verb traces (TESSALY_API_TRACE), shown together")->required()->type_name("");
        command.add_flag("-l,--list", trace_.list, "a line for each verb, in the order of their requests");
        CLI::Option* follow = command.add_flag("-f,--follow", trace_.follow, "a line for each verb as it ends, until stopped");
        command.add_flag("--json", trace_.json, "the summary as a JSON document, the lines as JSON objects");
        command.add_option("--tp", trace_.which.tp, "only verbs of this TP: its name or number, or a process")->type_name("TP");
        command.add_option("--conversation", trace_.which.conversation, "only verbs of this conversation")->type_name("N");
        command.add_option("--verb", trace_.which.verb, "only this verb, mapped or basic")->type_name("VERB");
        command.add_flag("--errors", trace_.which.errors, "only verbs that failed; DEALLOC_NORMAL is none");
        command.add_option("--svg", trace_.svg, "draw the sequence chart into this file")->type_name("FILE");
        command.add_option("--html", trace_.html, "the same as a page with details")->type_name("FILE");
        command.add_option("--limit", trace_.limit, "the most verbs of a chart (2000)")
            ->type_name("N")
            ->check(CLI::Range(std::size_t{1}, std::size_t{100'000}).description(""));
        command.callback([this, follow] {
            if (*follow && trace_.files.size() > 1)
                throw CLI::ValidationError("--follow", "takes one file");
            run_command_ = [this] {
                if (!trace_.follow)
                    return show_trace(nullptr, trace_, stdout);
                block_watched_signals();
                stopper stop;
                const signal_watch signals(stop);
                return show_trace(&stop, trace_, stdout);
            };
        });
    }

    void add_version()
    {
        CLI::App& command = add("version", "Tell which version of the library a file holds, without loading it.",
                                "tessaly version /usr/lib/i386-linux-gnu/libtessaly.so.7");
        command.add_option("LIBRARY", library_, "the library's file")->required()->type_name("");
        command.callback([this] { run_command_ = [this] { return version_of(library_, stdout); }; });
    }

    CLI::App app_;
    std::function<ending()> run_command_;
    ping_options ping_;
    echo_options echo_;
    send_options send_;
    receive_options receive_;
    status_options status_;
    std::vector<std::string> codes_;
    launcher_options launcher_;
    trace_options trace_;
    std::string library_;
};

}  // namespace

}  // namespace tessaly::tool

int main(int argc, char** argv)
{
    try {
        std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
        tessaly::tool::command_line line;
        return line.run(argc, argv);
    } catch (const std::exception& problem) {
        tessaly::tool::say(std::string("tessaly: ") + problem.what());
    } catch (...) {
        tessaly::tool::say("tessaly: an error of an unknown kind");
    }
    return tessaly::tool::EXIT_VERB_FAILED;
}
