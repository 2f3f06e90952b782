#include "localnode/daemon/options.h"

#include <CLI/CLI.hpp>

namespace tessaly::daemon {

namespace {

constexpr const char* INTRODUCTION =
    "Runs a node on this machine, so that the LU 6.2 programs of several processes can converse.\n"
    "\n"
    "Example:\n"
    "  tessaly-node --socket /tmp/node.sock\n"
    "  TESSALY_NODE=unix:/tmp/node.sock ./program\n";

}  // namespace

std::optional<options> read_command_line(int count, char** words, int& exit_code)
{
    options given;
    CLI::App app{INTRODUCTION, "tessaly-node"};
    app.add_option("--config", given.config, "The file with the node's settings")->type_name("FILE");
    app.add_option("--socket", given.socket,
                   "Where programs reach the node; without it what the config file says, else " +
                       std::string{node::DEFAULT_SOCKET})
        ->type_name("PATH");
    app.add_flag("--check-config", given.check_config, "Only read the config file and tell what is wrong with it");
    app.add_flag("--foreground", given.foreground, "Stay in the foreground");
    app.set_version_flag("--version", "tessaly-node " TESSALY_VERSION);
    try {
        app.parse(count, words);
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? 0 : 2;
        return std::nullopt;
    }
    return given;
}

}  // namespace tessaly::daemon
