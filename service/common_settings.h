// Settings that several programs have, and the checks behind them.
#pragma once

#include "service/config_section.h"
#include "service/log.h"
#include "service/program.h"

#include <sys/types.h>

#include <optional>

namespace tessaly::service {

struct log_settings {
    std::string file;  // empty: stderr
    level most = level::info;

    bool operator==(const log_settings&) const = default;
};

void read_log(config_section& in, log_settings& log);

// A program for a TP name: tp_name and command (both required), user, environment.
void read_program(config_section& in, program_settings& program);

// Users and groups, by name or number.
void read_users(config_section& in, const std::string& key, std::vector<uid_t>& into);
void read_groups(config_section& in, const std::string& key, std::vector<gid_t>& into);

// What is wrong with a text; empty: nothing.
std::string check_short_name(const std::string& text);  // of a network, an LU or an alias
std::string check_full_name(const std::string& text);   // network, period, LU
std::string check_tp_name(const std::string& text);
std::string check_group(const std::string& text);
std::string check_socket(const std::string& text);

template <typename Record>
bool is_defined(const std::vector<Record>& all, const std::string& key, std::string Record::*field)
{
    return std::ranges::find(all, key, field) != all.end();
}

}  // namespace tessaly::service
