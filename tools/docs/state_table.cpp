// Draws the engine's state table: "state_table svg" prints docs/conversation-states.svg, "state_table markdown" the table in
// docs/conversation.md. A test compares both with what is committed.
#include "localnode/engine/conversation_states.h"

#include <iostream>
#include <string>
#include <string_view>

namespace {

using namespace tessaly::node;
using tessaly::u8;

// Exhaustive switches: the compiler names whatever a new enumerator needs here.
std::string_view name_of(conv_verb verb)
{
    switch (verb) {
    case conv_verb::send_data: return "SEND_DATA";
    case conv_verb::flush: return "FLUSH";
    case conv_verb::confirm: return "CONFIRM";
    case conv_verb::prepare_flush: return "PREPARE_TO_RECEIVE, flush";
    case conv_verb::prepare_confirm: return "PREPARE_TO_RECEIVE, confirm";
    case conv_verb::deallocate_flush: return "DEALLOCATE, flush";
    case conv_verb::deallocate_confirm: return "DEALLOCATE, confirm";
    case conv_verb::deallocate_abend: return "DEALLOCATE, abend";
    case conv_verb::confirmed: return "CONFIRMED";
    case conv_verb::receive_and_wait: return "RECEIVE_AND_WAIT";
    case conv_verb::receive_and_post: return "RECEIVE_AND_POST";
    case conv_verb::receive_immediate: return "RECEIVE_IMMEDIATE";
    case conv_verb::send_error: return "SEND_ERROR";
    case conv_verb::request_to_send: return "REQUEST_TO_SEND";
    case conv_verb::test_rts: return "TEST_RTS, TEST_RTS_AND_POST";
    case conv_verb::send_expedited_data: return "SEND_EXPEDITED_DATA";
    case conv_verb::receive_expedited_data: return "RECEIVE_EXPEDITED_DATA";
    case conv_verb::inquire: return "GET_STATE, GET_TYPE, GET_ATTRIBUTES";
    }
    return {};
}

std::string_view name_of(conv_state state)
{
    switch (state) {
    case conv_state::reset: return "over";
    case conv_state::send: return "send";
    case conv_state::receive: return "receive";
    case conv_state::send_pending: return "send pending";
    case conv_state::confirm: return "confirm";
    case conv_state::confirm_send: return "confirm send";
    case conv_state::confirm_deallocate: return "confirm deallocate";
    case conv_state::receiving: return "a receive waits";
    case conv_state::asking: return "a question waits";
    }
    return {};
}

enum class group : u8 { refused, turn_kept, turn_changes, asks, ends, aside };

struct group_look {
    std::string_view fill;
    std::string_view text;
    std::string_view meaning;
};

group_look look_of(group which)
{
    switch (which) {
    case group::refused: return {"#ffffff", "#6b7480", "refused with STATE_CHECK"};
    case group::turn_kept: return {"#dfeaf8", "#123a68", "does its work; who has the turn keeps it"};
    case group::turn_changes: return {"#fdf3dc", "#5f4300", "the turn changes hands"};
    case group::asks: return {"#efe3f7", "#4b1f6b", "waits for the partner's CONFIRMED"};
    case group::ends: return {"#f8dfdd", "#7a1710", "the conversation is over"};
    case group::aside: return {"#e3f2e6", "#17502a", "beside the flow: nothing changes"};
    }
    return {};
}

bool has_turn(conv_state state)
{
    return state == conv_state::send || state == conv_state::send_pending;
}

group group_of(const step& to_do, conv_state from)
{
    switch (to_do.act) {
    case action::refuse: return group::refused;
    case action::ask: return group::asks;
    case action::finish:
    case action::abend: return group::ends;
    case action::signal:
    case action::tell: return group::aside;
    case action::pass_on:
    case action::turn_and_wait:
    case action::wait:
    case action::look:
    case action::reply:
    case action::error: break;
    }
    if (to_do.next == conv_state::reset)
        return group::ends;
    return has_turn(from) == has_turn(to_do.next) ? group::turn_kept : group::turn_changes;
}

std::string text_of(const step& to_do)
{
    return to_do.act == action::refuse ? "\u2013" : std::string(name_of(to_do.next));
}

constexpr u8 FIRST_STATE = static_cast<u8>(conv_state::send);
constexpr u8 STATES = static_cast<u8>(conv_state::asking) + 1;
constexpr u8 VERBS = static_cast<u8>(conv_verb::inquire) + 1;

void print_markdown()
{
    std::cout << "| Verb |";
    for (u8 state = FIRST_STATE; state < STATES; ++state)
        std::cout << ' ' << name_of(conv_state{state}) << " |";
    std::cout << "\n|---|";
    for (u8 state = FIRST_STATE; state < STATES; ++state)
        std::cout << "---|";
    for (u8 verb = 0; verb < VERBS; ++verb) {
        std::cout << "\n| " << name_of(conv_verb{verb}) << " |";
        for (u8 state = FIRST_STATE; state < STATES; ++state)
            std::cout << ' ' << text_of(conversation_step(conv_verb{verb}, conv_state{state})) << " |";
    }
    std::cout << '\n';
}

constexpr int LEFT = 290;
constexpr int TOP = 96;
constexpr int WIDTH = 128;
constexpr int HEIGHT = 28;

void print_text(std::string_view name, int x, int y, std::string_view text, std::string_view colour = "#1b2430")
{
    std::cout << "  <text class=\"" << name << "\" x=\"" << x << "\" y=\"" << y << "\" fill=\"" << colour << "\">" << text
              << "</text>\n";
}

void print_box(int x, int y, int width, std::string_view fill)
{
    std::cout << "  <rect x=\"" << x << "\" y=\"" << y << "\" width=\"" << width << "\" height=\"" << HEIGHT - 4
              << "\" rx=\"4\" fill=\"" << fill << "\" stroke=\"#c3cad3\"/>\n";
}

void print_row(conv_verb verb, int y)
{
    print_text("verb", 20, y + 17, name_of(verb));
    for (u8 state = FIRST_STATE; state < STATES; ++state) {
        const step to_do = conversation_step(verb, conv_state{state});
        const group_look look = look_of(group_of(to_do, conv_state{state}));
        const int x = LEFT + (state - FIRST_STATE) * WIDTH;
        print_box(x, y, WIDTH - 4, look.fill);
        print_text("cell", x + WIDTH / 2 - 2, y + 17, text_of(to_do), look.text);
    }
}

void print_svg()
{
    const int width = LEFT + (STATES - FIRST_STATE) * WIDTH + 16;
    const int below = TOP + VERBS * HEIGHT + 14;
    const int height = below + 3 * HEIGHT + 8;
    std::cout << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << width << ' ' << height << "\" width=\"" << width
              << "\" height=\"" << height << "\" role=\"img\"\n     aria-label=\"What each verb does in each state\">\n"
              << "  <style>\n    text { font-family: \"DejaVu Sans\", Verdana, Arial, sans-serif; font-size: 12px; }\n"
              << "    .title { font-size: 16px; font-weight: bold; }\n    .verb { font-size: 13px; }\n"
              << "    .head { font-weight: bold; text-anchor: middle; }\n    .cell { text-anchor: middle; }\n  </style>\n"
              << "  <rect width=\"" << width << "\" height=\"" << height << "\" fill=\"#ffffff\"/>\n";
    print_text("title", 20, 32, "The state after each verb, once it has completed with OK");
    print_text("verb", 20, TOP - 14, "verb");
    print_text("verb", LEFT, TOP - 38, "state of the side that issues it");
    for (u8 state = FIRST_STATE; state < STATES; ++state)
        print_text("head", LEFT + (state - FIRST_STATE) * WIDTH + WIDTH / 2 - 2, TOP - 14, name_of(conv_state{state}));
    for (u8 verb = 0; verb < VERBS; ++verb)
        print_row(conv_verb{verb}, TOP + verb * HEIGHT);
    for (u8 i = 0; i <= static_cast<u8>(group::aside); ++i) {
        const group_look look = look_of(group{i});
        const int x = 20 + i % 3 * 420;
        const int y = below + i / 3 * HEIGHT;
        print_box(x, y, 40, look.fill);
        print_text("cell", x + 20, y + 17, group{i} == group::refused ? "\u2013" : "", look.text);
        print_text("verb", x + 50, y + 17, look.meaning, look.text);
    }
    print_text("verb", 20, below + 2 * HEIGHT + 22,
               "After a receive verb in state receive, what it brought may change the state further: the turn makes it send or "
               "send pending, a question one of the confirm states.");
    std::cout << "</svg>\n";
}

}  // namespace

int main(int count, char** words)
{
    const std::string_view what = count == 2 ? words[1] : "";
    if (what != "svg" && what != "markdown") {
        std::cerr << "usage: state_table svg|markdown\n";
        return 2;
    }
    what == "svg" ? print_svg() : print_markdown();
    return 0;
}
