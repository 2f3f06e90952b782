// Two TPs that converse: records, turns, questions and errors of mapped and of basic conversations, and what passes them by.
#include "tests/engine/scripts.h"

namespace tessaly::node::playing {
namespace {

using Dialogue = ScriptTest;

constexpr const char* mapped[] = {
    // status with data for a waiting receive
    "b get-all => waits | a send.6 all => waits | b then => all<confirm, end> | b confirmed | a then => ok",
    // long locks
    "a turn-long => waits | b get => <confirm, send> | b confirmed | a then => waits | b send go | a then => ok"
    " | a get => go",
    // errors of the sender come in their place
    "a send before | a error | a send after | b get => before | b get => c00 | b get => after | b get => waits | a error"
    " | b then => c00 | b state => 3",
    // errors of the receiver purge and take the turn
    "a send unread | b error | b state => 2 | b error | b send why | a send x => e00 | a send x => 200/f2000000"
    " | a get => c00 | a get => why | b turn | a get => <send> | a send again | b get => again",
    // an error of the receive that waits beside it
    "b get => waits | b error | b then => 2100 | a send x => e00",
    // an error about data and turn received
    "a send.3 x | b get-all => x<send> | b error | a get => e00",
    // an error takes back a turn that has not been taken
    "a send x | a turn | a error | b get => x | b get => e00 | a send y | b get => y | b get => waits | a turn"
    " | b then => <send>",
    // an error about data to be sent
    "a send.3 x | b get-all => x<send> | b error-out | a get => c00",
    // an error meets the end
    "a send x | a end | b error => 900",
    // an end behind an error
    "b error | b end | a confirm => e00 | a get => 900",
    // an abnormal end cancels what waits beside it
    "b post => waits | b end.3 | b then => 2100 | a flush => 500",
};

constexpr const char* basic_records[] = {
    // a record a send
    "a send _4ab | a send _3c | b get => _4ab | b get => _3c",
    // two in one send
    "a send _4ab_3c | b get.4 => _4ab | b get => _3c",
    // one in four, LL split
    "a send _ | a send 5 | a send ab | a send c | b get => _5abc",
    // end and begin in one
    "a send _4a | a send b_3 | a send c | b get => _4ab | b get => _3c",
    // continuation, no data
    "a send C4ab_2 | b get => C4ab | b get => _2",
    // less room than a record
    "a send _5abc | b get.3 => _5a~ | b get.0 => ~ | b get => bc",
    // buffer over borders
    "a send _4ab | a send _4cd_2 | b fill.6 => _4ab_4= | b fill.4 => cd_2=",
    // buffer, then the rest
    "a send _5abc_3d | b fill.4 => _5ab= | b get => c | b fill.3 => _3d=",
    // a buffer is full, or data end
    "b fill.7 => waits | a send _3a_3 | b then => waits | a send.3 b | b then => _3a_3b= | b get => <send> | b end",
    // a receive waits for the end
    "b get => waits | a send _5a | b then => waits | a send bc_3 | b then => _5abc | b get => waits | a send d"
    " | b then => _3d",
    // a look takes what is there
    "a send _6ab | b look => _6ab~ | b look => 1400 | b get => waits | a send c | b then => waits | a send d | b then => cd",
    // a post with status
    "b post-fill.6 => waits | a send _3x | b then => waits | a send.3 _3y | b then => _3x_3y=<send> | b state => 4",
    // an LL of 0 or 1 is none
    "a send _3a__ => 100/f1000000 | a send _1 => 100/f1000000 | a send C1x => 100/f1000000 | a send _"
    " | a send 1 => 100/f1000000 | a send 2 | b get => _2",
    // errors inside and between
    "a send _5a | a error | a error | a send _3z_ | b fill => _5a= | b get => d00 | b get => c00 | b get => _3z | b error"
    " | a send 9 => e00 | b send.3 _3y | a get-all => _3y<send> | a send _2",
    // the same of a service
    "a send _5a | a error.1 | a error.1 | a send _2 | b get => _5a~ | b get => 1200 | b get => 1100 | b get => _2"
    " | b error.1 | a flush => 1300",
    // a program's end
    "a send _5a | b get => waits | a end.4 | b then => _5a~ | b get => 600",
    // log data of an error
    "a error _7abxyz | b get => c00",
    // inside a record
    "a send _5a | a confirm => 200/33000000 | a turn => 200/a2000000 | a turn.2 => 200/a2000000 | a end => 200/55000000"
    " | a end.2 => 200/55000000 | a get => 200/b2000000 | a post => 200/d2000000 | a send.1 b => 200/33000000"
    " | a send.5 b => 200/55000000 | a flush | a send.3 bc | b get => _5abc",
    // wrong fields, basic
    "a send _5a | a get-odd => 100/b5000000 | a post-odd => 100/d5000000 | b look-odd => 100/c4000000"
    " | a other-type => 100/11000000 | a end.3 => 100/51000000 | a end.5 x => 100/57000000 | a end.4 _5abcd => 100/57000000"
    " | a error _6abc => 100/2010000 | a error.2 => 100/3010000 | a state => 2 | a send bc",
};

// How a comes into each state, and what each verb does there: the half-duplex rules as they are written down here, with nothing
// from the engine's own table, so that the two can contradict each other. oracle.cpp knows one side alone, in long
// sequences; here is also what the partner sees.
constexpr std::string_view STATES = "SRPCTD";  // send, receive, send pending, confirm, confirm send, confirm deallocate
constexpr const char* ways_into[] = {
    "",
    "a turn | b get => <send>",
    "a turn | b get => <send> | b send.3 x | a get-all => x<send>",
    "a turn | b get => <send> | b confirm => waits | a get => <confirm>",
    "a turn | b get => <send> | b turn.2 => waits | a get => <confirm, send>",
    "a turn | b get => <send> | b end.2 => waits | a get => <confirm, end>",
};

const struct {
    const char* verb;
    char then[7];             // the state after it, for each before it; . refuses the verb, - is none
    const char* refusal;      // secondary code of STATE_CHECK
    const char* goes = "";    // how it goes on, * where a partner without the turn gets it
    const char* asker = "";   // what a partner that asked is answered
} rules[] = {
    {"send x", "S.S...", "f2"},
    {"flush", "S.S...", "61"},
    {"confirm", "S.S...", "32", " => waits | b get => <confirm> | b confirmed | a then"},
    {"confirm", "R.R...", "32", " => waits | b get => <confirm> | b error | a then => e00"},
    {"confirmed", "...RS-", "41", "", "ok"},
    {"turn", "R.R...", "a3"},
    {"turn.2", "R.R...", "a3", " => waits | b get => <confirm, send> | b confirmed | a then"},
    {"look", ".R....", "c1", " => 1400"},
    {"get", "RRR...", "b1", " => waits* | b send x | a then => x"},
    {"get-all", "PPP...", "b1", " => waits* | b send.3 x | a then => x<send>"},
    {"get", "CCC...", "b1", " => waits* | b confirm => waits | a then => <confirm>"},
    {"get", "TTT...", "b1", " => waits* | b turn.2 => waits | a then => <confirm, send>"},
    {"get", "DDD...", "b1", " => waits* | b end.2 => waits | a then => <confirm, end>"},
    {"get", "---...", "b1", " => waits* | b end | a then => 900"},
    {"ask", ".R.CTD", "e1"},
    {"error", "SSSSSS", "", "", "e00"},
    {"end", "-.-...", "52"},
    {"end.2", "-.-...", "53", " => waits | b get => <confirm, end> | b confirmed | a then"},
    {"end.3", "------", "", "", "500"},
};

constexpr const char* states[] = {
    // a question is to be answered
    "a confirm => waits | b get => <confirm> | b post => 200/d1000000 | b test => 200/5010000 | b test-post => 200/5010000"
    " | b ask | b x-send x | b x-get => 1400 | b confirmed | a then => ok rts expd",
    // send pending
    "a send.3 x | b get-all => x<send> | b x-send x | b test => 1400 | b post => waits | a get => <send> expd",
    // a receive waits
    "b get => waits | b send x => 200/f2000000 | b flush => 200/61000000 | b confirm => 200/32000000"
    " | b turn => 200/a3000000 | b turn.2 => 200/a3000000 | b end => 200/52000000 | b end.2 => 200/53000000"
    " | b confirmed => 200/41000000 | b get => 200/b1000000 | b post => 200/d1000000 | b look => 200/c1000000 | b ask"
    " | b x-send x | b test => 1400 | a send x => ok rts expd | b then => x",
    // a question waits
    "a confirm => waits | a send x => 200/f2000000 | a flush => 200/61000000 | a confirm => 200/32000000"
    " | a turn => 200/a3000000 | a turn.2 => 200/a3000000 | a end => 200/52000000 | a end.2 => 200/53000000"
    " | a confirmed => 200/41000000 | a get => 200/b1000000 | a post => 200/d1000000 | a look => 200/c1000000"
    " | a error => 200/4010000 | a ask => 200/e1000000 | a x-send x | a test => 1400 | b get => <confirm> expd | b confirmed"
    " | a then => ok",
    // wrong fields, mapped
    "a other-type => 100/11000000 | a send.8 => 100/f4000000 | a turn.3 => 100/a1000000 | a turn-odd => 100/a1000000"
    " | a end.4 => 100/51000000 | a end.5 => 100/51000000 | a end.7 => 100/51000000 | a error-odd => 100/3010000"
    " | a error.1 => 100/3010000 | a x-send => 100/6000000 | a x-odd => 100/14000000 | a state => 2 | a end",
};

constexpr const char* questions[] = {
    // turn, sync level, confirmed
    "a turn.0 => waits | b get => <confirm, send> | b confirmed | a then => ok | a state => 3 | b state => 2",
    // end, sync level, confirmed
    "a end.0 => waits | b get => <confirm, end> | b confirmed | a then => ok | a state => 100/2000000"
    " | b state => 100/2000000",
};

constexpr const char* no_questions[] = {
    // without sync level nothing asks
    "a confirm => 100/31000000 | a send.1 x => 100/f5000000 | a turn.2 => 100/a1000000 | a end.2 => 100/51000000 | a turn.0"
    " | b get => <send> | b send.4 x | a get => x | a get => <send> | a end.0 | b get => 900",
};

constexpr const char* asides[] = {
    // RTS tested
    "a test => 1400 | b ask | a test | a test => 1400 | a send x | b get => x",
    // RTS told by SEND_DATA
    "b ask | a send x => ok rts | a send x | a test => 1400",
    // RTS told by SEND_ERROR
    "b ask | a error => ok rts | a test => 1400",
    // RTS told by CONFIRM
    "b ask | a confirm => waits | b get => <confirm> | b confirmed | a then => ok rts",
    // RTS told by expedited
    "b ask | a x-send x => ok rts | b ask | b x-get => x | b x-send y | a x-get => y rts",
    // RTS told by a receive
    "a turn | b get => <send> | a ask | b turn | b look => 1400 rts | a get => <send>",
    // a posted test
    "a test-post => waits | a send x | a test-post => 200/5010000 | b ask | a then => ok | a test => 1400 | b ask"
    " | a test-post",
    // expedited passes
    "a send x | b x-get => 1400 | a x-send now | b get => x expd | b look => 1400 expd | b x-get.2 => no expd | b x-get => w"
    " | b x-get => 1400",
    // one each way
    "a x-send one | b x-send two => ok expd | a send x => ok expd | a error => ok expd | a x-get => two | b x-get => one"
    " | a send x",
    // told by a question
    "b x-send y | a confirm => waits | b get => <confirm> | b confirmed | a then => ok expd | a x-get => y",
    // a receive waits
    "b x-wait => waits | b x-wait => 1400 | a x-send one | b then => one | b x-get => 1400",
    // one behind the other
    "a x-send one | a x-send two => waits | a x-send three => 1400 | b x-get => one expd | a then => ok | b x-get => two",
    // the partner ends
    "a test-post => waits | a x-wait => waits | b end.3 | a then => 500 | a then => 500 | a test-post => 500"
    " | a x-wait => 500 | a x-send x => 500 | a send x => 500",
    // it ends itself
    "a x-send one | a x-send two => waits | a test-post => waits | a x-wait => waits | a end | a then => 2100"
    " | a then => 2100 | a then => 2100 | b x-get => one",
    // a confirmed end
    "a test-post => waits | b test-post => waits | a end.2 => waits | b get => <confirm, end> | b confirmed | a then => 2100"
    " | a then => ok | b then => 2100",
};

TEST_F(Dialogue, follows_the_rules_in_every_state)
{
    for (const auto& [verb, then, refusal, goes, asker] : rules)
        for (std::size_t state = 0; state < STATES.size(); ++state) {
            const bool refused = then[state] == '.';
            std::string after = refused ? std::string(" => 200/") + refusal + "000000" : goes;
            if (const auto turn = after.find('*'); turn != std::string::npos)
                after.replace(turn, 1, STATES[state] == 'R' ? "" : " | b get => <send>");
            if (!refused && *asker != '\0' && state >= STATES.find('C'))
                after += std::string(" | b then => ") + asker;
            const std::size_t last = STATES.find(refused ? STATES[state] : then[state]);
            const std::string told = last == std::string::npos ? "100/2000000" : std::to_string(2 + last);
            const std::string way = *ways_into[state] == '\0' ? "" : std::string(ways_into[state]) + " | ";
            play(way + "a " + verb + after + " | a state => " + told);
        }
}

TEST_F(Dialogue, goes_its_way_on_a_mapped_conversation)
{
    play(mapped);
}

TEST_F(Dialogue, carries_logical_records_on_a_basic_conversation)
{
    play(basic_records, APPC_BASIC);
}

TEST_F(Dialogue, refuses_what_its_state_does_not_allow_and_says_which_verb_and_why)
{
    play(states);
}

TEST_F(Dialogue, asks_and_gets_an_answer_where_there_is_a_sync_level)
{
    play(questions);
    play(no_questions, APPC_MAPPED, APPC_SYNC_NONE);
}

TEST_F(Dialogue, is_passed_by_what_both_kinds_of_conversation_have)
{
    play(asides);
}

}  // namespace
}  // namespace tessaly::node::playing
