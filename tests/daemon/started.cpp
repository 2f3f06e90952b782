// A program that the node starts for an attach. Its argument says what it does with it.
#include "tests/e2e/talking.h"

#include <string_view>

int main(int, char** words)
{
    using namespace talking;
    if (std::string_view{words[1]} == "leave")
        return 3;
    appc_receive_allocate taking = program::accepting("ECHO");
    taking.format = 1;
    if (run(taking) != ok)
        return 1;
    const program self = program::accepted(taking);
    const received got = self.receive_with_turn();
    self.send(got.data + " from " + words[1] + std::getenv("SIGN"));
    self.deallocate();
    self.end();
    return 0;
}
