// A program that a launcher starts. Its first word says what it does with its conversation.
#include "tests/e2e/talking.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

namespace {

using namespace talking;

program take_conversation(std::string& user_id)
{
    // Another name than the one that is called: it is its attach identifier that finds the conversation.
    appc_receive_allocate taking = program::accepting("ANY");
    taking.format = 1;
    if (run(taking) != ok)
        _exit(1);
    user_id.assign(reinterpret_cast<const char*>(taking.user_id), sizeof taking.user_id);
    return program::accepted(taking);
}

std::set<int> open_descriptors()
{
    std::set<int> listed, open;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd"))
        listed.insert(std::stoi(each.path().filename()));
    for (const int each : listed)
        if (fcntl(each, F_GETFD) >= 0)
            open.insert(each);
    return open;
}

std::string what_it_was_given()
{
    std::ostringstream text;
    for (const std::string& each : std::set<std::string>(environ, environ + std::distance(environ, [] {
             char** end = environ;
             while (*end != nullptr)
                 ++end;
             return end;
         }())))
        text << each << '\n';
    text << "descriptors";
    for (const int each : open_descriptors())
        text << ' ' << each;
    std::vector<gid_t> groups(100);
    groups.resize(static_cast<std::size_t>(getgroups(static_cast<int>(groups.size()), groups.data())));
    text << "\nids " << getuid() << ' ' << geteuid() << ' ' << getgid() << ' ' << getegid() << "\ngroups";
    for (const gid_t each : std::set<gid_t>(groups.begin(), groups.end()))
        text << ' ' << each;
    std::ostringstream input;
    for (char part[4096];;) {
        const ssize_t got = read(STDIN_FILENO, part, sizeof part);
        if (got <= 0)
            return text.str() + (got == 0 ? "\nstdin " : "\nno stdin ") + input.str();
        input.write(part, got);
    }
}

}  // namespace

int main(int, char** words)
{
    const std::string_view what = words[1];
    if (what == "leave")
        return 3;
    if (what == "hold")
        std::ifstream(words[3]).get();  // a named pipe: until the test opens its other end
    const std::string given = what == "tell" ? what_it_was_given() : "";
    std::string user_id;
    const program self = take_conversation(user_id);
    for (received got = self.receive_with_turn(); got.outcome == ok; got = self.receive_with_turn())
        self.send(what == "tell" ? "user " + user_id + "\n" + given : got.data + words[2]);
    self.end();
    return 0;
}
