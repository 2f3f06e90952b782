// On a single processor the node waits for a client that talks alone on its socket, until there is any other news.
#include "tests/daemon/daemon.h"
#include "tests/e2e/talking.h"

#include <csignal>
#include <functional>

namespace tessaly::daemon {
namespace {

using namespace talking;

constexpr const char* BEGINS = ": is alone";
constexpr const char* ENDS = ": is not alone any more";
constexpr int MANY = 100;    // more packets than the node wants before it believes it
constexpr int FLOOD = 1500;  // more packets than a socket holds, and then as many again

using Alone = DaemonTest;

void talk(raw_client& client, int times = MANY)
{
    for (int i = 0; i < times; ++i)
        ASSERT_TRUE(client.send(echo()) && client.receive() == echo()) << i;
}

TEST_F(Alone, a_client_that_has_fallen_silent_keeps_nothing_else_waiting)
{
    start_on_one_processor("[log]\nlevel = \"debug\"");
    std::optional<raw_client> lone{socket}, other{socket};
    ASSERT_TRUE(lone->greet() && other->greet());
    // clang-format off
    const struct { const char* what; std::function<void()> happens; const char* logged; } news[] = {
        {"another speaks",   [&] { talk(*other, 1); },                                                ENDS},
        {"both, by turns",   [&] { for (int i = 0; i < 20; ++i) talk(i % 2 == 0 ? *other : *lone); }, ENDS},
        {"another comes",    [&] { EXPECT_NE(status(), ""); },                                        "has got everything"},
        {"SIGHUP",           [&] { signal(SIGHUP); },                                                 "settings again"},
        {"it takes nothing", [&] { for (int i = 0; i < FLOOD; ++i) lone->send(echo(2000)); },         ENDS},
        {"another leaves",   [&] { other.reset(); },                                                  "left"},
        {"it leaves",        [&] { lone.reset(); },                                                   "left"},
    };
    // clang-format on
    for (const auto& each : news) {
        SCOPED_TRACE(each.what);
        talk(*lone);
        EXPECT_TRUE(logs(BEGINS));
        each.happens();
        EXPECT_TRUE(logs(each.logged));
        for (int i = 0; i < FLOOD && each.what == std::string("it takes nothing"); ++i)
            ASSERT_EQ(lone->receive(), echo(2000)) << i;
    }
    raw_client last{socket};
    ASSERT_TRUE(last.greet());
    talk(last, 10'000);
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_TRUE(logs("any more, after 9")) << "thousand";
    EXPECT_EQ(last.receive(), packet(node::frame_kind::terminated, 0));
    EXPECT_TRUE(last.is_dropped());
}

TEST_F(Alone, what_the_client_itself_waits_for_comes_in_time)
{
    start_on_one_processor("[log]\nlevel = \"debug\"\n[times]\nattach_seconds = 1");
    program self = program::start("HERE", "A");
    self.allocate("HERE", "SINK");
    program::accept("SINK");
    for (int i = 0; i < MANY; ++i)
        ASSERT_EQ(self.send("x"), ok);
    EXPECT_TRUE(logs(BEGINS));
    program hopeful = program::start("HERE", "B");
    hopeful.allocate("HERE", "NOBODY");
    EXPECT_EQ(hopeful.receive().outcome, (codes{APPC_ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY}));
}

}  // namespace
}  // namespace tessaly::daemon
