// Reads one table of the config file, setting by setting, and notes what is wrong with it and where.
#pragma once

#include "common/types.h"

#include <toml.hpp>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::service {

struct config_problem {
    std::string text;
    std::string line;  // of the file, in which it is
    u32 number = 1;    // of that line
    u32 column = 1;
    u32 width = 1;
};

class config_section {
public:
    // Settings that are missing leave what they are read into as it is.
    config_section(const toml::value& table, std::vector<config_problem>& problems) : table_(table), problems_(problems) {}

    // What is wrong with a text; empty: nothing.
    using text_check = std::function<std::string(const std::string&)>;

    // Result: whether it is there and right.
    bool read(const std::string& key, std::string& into, const text_check& check = {});
    bool read(const std::string& key, u32& into, u32 least, u32 most);
    bool read(const std::string& key, std::vector<std::string>& into, const text_check& check = {});
    bool read(const std::string& key, std::map<std::string, std::string>& into);

    // Calls each(section) for [key], or for each of [[key]].
    template <typename Each>
    void in_table(const std::string& key, Each each)
    {
        if (const toml::value* const table = find(key); table != nullptr && has_type(*table, toml::value_t::table, "a table"))
            read_table(*table, each);
    }
    template <typename Each>
    void in_tables(const std::string& key, Each each)
    {
        const toml::value* const tables = find(key);
        if (tables == nullptr || !has_type(*tables, toml::value_t::array, "[[" + key + "]], once for each"))
            return;
        for (const toml::value& table : tables->as_array())
            if (has_type(table, toml::value_t::table, "[[" + key + "]], once for each"))
                read_table(table, each);
    }

    void require(const std::string& key);
    void report(const std::string& key, const std::string& text);  // of the setting, or of the table without it

private:
    template <typename Each>
    void read_table(const toml::value& table, Each each)
    {
        config_section section{table, problems_};
        each(section);
        section.report_unknown();
    }

    friend std::vector<config_problem> read_root(const toml::value& root, const std::function<void(config_section&)>& each);

    const toml::value* find(const std::string& key);
    bool has_type(const toml::value& value, toml::value_t type, const std::string& wanted);
    bool read_text(const toml::value& value, std::string& into, const text_check& check);
    void report_at(const toml::value& value, const std::string& text);
    void report_unknown();

    const toml::value& table_;
    std::vector<config_problem>& problems_;
    std::vector<std::string> known_;
};

std::vector<config_problem> read_root(const toml::value& root, const std::function<void(config_section&)>& each);

// What the parser says about a file that is no TOML.
config_problem problem_of(const toml::exception& error);

// "; did you mean "..."?" for a word that is nearly one of those; else empty.
std::string suggestion(std::string_view word, const std::vector<std::string>& known);

}  // namespace tessaly::service
