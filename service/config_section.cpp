#include "service/config_section.h"

#include "common/edit_distance.h"

#include <algorithm>

namespace tessaly::service {

namespace {

std::string in_quotes(std::string_view text)
{
    return '"' + std::string{text} + '"';
}

config_problem problem_at(const toml::value& value, const std::string& text)
{
    const toml::source_location at = value.location();
    return {text, at.line_str(), at.line(), at.column(), std::max(at.region(), 1u)};
}

}  // namespace

std::string suggestion(std::string_view word, const std::vector<std::string>& known)
{
    const auto nearest = std::ranges::min_element(known, {}, [=](const std::string& each) { return edit_distance(word, each); });
    if (nearest == known.end() || !may_mean(word, *nearest))
        return "";
    return "; did you mean " + in_quotes(*nearest) + "?";
}

const toml::value* config_section::find(const std::string& key)
{
    known_.push_back(key);
    return table_.contains(key) ? &table_.at(key) : nullptr;
}

void config_section::report_at(const toml::value& value, const std::string& text)
{
    problems_.push_back(problem_at(value, text));
}

void config_section::report(const std::string& key, const std::string& text)
{
    report_at(table_.contains(key) ? table_.at(key) : table_, text);
}

bool config_section::has_type(const toml::value& value, toml::value_t type, const std::string& wanted)
{
    if (value.type() == type)
        return true;
    report_at(value, "must be " + wanted);
    return false;
}

bool config_section::read_text(const toml::value& value, std::string& into, const text_check& check)
{
    if (!has_type(value, toml::value_t::string, "a text in quotes"))
        return false;
    const std::string& text = value.as_string().str;
    const std::string wrong = text.find('\0') != text.npos ? "must have no zero in it" : check ? check(text) : "";
    if (!wrong.empty()) {
        report_at(value, wrong);
        return false;
    }
    into = text;
    return true;
}

bool config_section::read(const std::string& key, std::string& into, const text_check& check)
{
    const toml::value* const value = find(key);
    return value != nullptr && read_text(*value, into, check);
}

bool config_section::read(const std::string& key, u32& into, u32 least, u32 most)
{
    const std::string wanted = "a number from " + std::to_string(least) + " to " + std::to_string(most);
    const toml::value* const value = find(key);
    if (value == nullptr || !has_type(*value, toml::value_t::integer, wanted))
        return false;
    if (value->as_integer() < least || value->as_integer() > most) {
        report_at(*value, "must be " + wanted);
        return false;
    }
    into = static_cast<u32>(value->as_integer());
    return true;
}

bool config_section::read(const std::string& key, std::vector<std::string>& into, const text_check& check)
{
    const toml::value* const value = find(key);
    if (value == nullptr || !has_type(*value, toml::value_t::array, "a list, [\"...\", \"...\"]"))
        return false;
    std::vector<std::string> texts(value->as_array().size());
    for (std::size_t i = 0; i < texts.size(); ++i)
        if (!read_text(value->as_array()[i], texts[i], check))
            return false;
    into = std::move(texts);
    return true;
}

bool config_section::read(const std::string& key, std::map<std::string, std::string>& into)
{
    const toml::value* const value = find(key);
    if (value == nullptr || !has_type(*value, toml::value_t::table, "a table, { NAME = \"...\" }"))
        return false;
    std::map<std::string, std::string> texts;
    for (const auto& [name, text] : value->as_table())
        if (!read_text(text, texts[name], {}))
            return false;
    into = std::move(texts);
    return true;
}

void config_section::require(const std::string& key)
{
    if (!table_.contains(key))
        report_at(table_, "has no " + in_quotes(key));
}

// The parser knows where a value is; its key stands in front of it.
void config_section::report_unknown()
{
    for (const auto& [key, value] : table_.as_table()) {
        if (std::ranges::find(known_, key) != known_.end())
            continue;
        config_problem problem = problem_at(value, "unknown setting " + in_quotes(key) + suggestion(key, known_));
        const std::size_t at = problem.line.find(key);
        if (at < problem.column) {
            problem.column = static_cast<u32>(at) + 1;
            problem.width = static_cast<u32>(key.size());
        }
        problems_.push_back(problem);
    }
}

std::vector<config_problem> read_root(const toml::value& root, const std::function<void(config_section&)>& each)
{
    std::vector<config_problem> problems;
    config_section section{root, problems};
    each(section);
    section.report_unknown();
    std::ranges::stable_sort(problems, {}, [](const config_problem& p) { return std::pair{p.number, p.column}; });
    return problems;
}

// Its text is a message, then lines of the file with carets: "[error] toml::parse_key: ...", " 2 | b 2", "   |  ^--- ...".
config_problem problem_of(const toml::exception& error)
{
    const toml::source_location& at = error.location();
    const std::string text = error.what();
    std::string message = text.substr(0, text.find('\n'));
    if (const std::size_t origin = message.rfind(": "); origin != message.npos)
        message = message.substr(origin + 2);
    config_problem problem{message, at.line_str(), at.line(), at.column()};
    const std::size_t caret = text.rfind('^');
    if (caret == text.npos)
        return problem;
    const std::size_t line = text.rfind('\n', caret) + 1;
    const std::size_t bar = text.find("| ", line);
    const std::size_t shown = text.rfind('\n', line - 2) + 1;
    const std::size_t shown_bar = text.find("| ", shown);
    if (bar == text.npos || bar > caret || shown_bar == text.npos || shown_bar > line)
        return problem;
    problem.column = static_cast<u32>(caret - bar - 1);
    problem.line = text.substr(shown_bar + 2, line - shown_bar - 3);
    problem.number = static_cast<u32>(std::strtoul(text.c_str() + shown, nullptr, 10));
    return problem;
}

}  // namespace tessaly::service
