// The state table of a half-duplex conversation. One side may send, the other receives; the turn changes hands only by the
// sender's will. What arrives can change the receiver's state as well: the turn makes it send (send_pending when data came
// along), a question makes it confirm, confirm_send or confirm_deallocate.
#include "localnode/engine/conversation_states.h"

#include <array>

namespace tessaly::node {

namespace {

using enum conv_state;
using enum action;

constexpr u32 VERBS = static_cast<u32>(conv_verb::inquire) + 1;
constexpr u32 STATES = static_cast<u32>(asking) + 1;

struct verb_steps {
    conv_verb verb;
    u32 bad_state;
    u32 inside_record;  // basic: why not before the record is complete that was begun
    step in[STATES - 2];  // from send on; in reset there is no conversation to issue a verb on
};

constexpr step no{refuse, reset};
constexpr u32 never = 0;

// The columns are the states in the order of conv_state.
// clang-format off
constexpr verb_steps table[VERBS] = {
    //  send                      receive                 send_pending
    //  confirm                   confirm_send            confirm_deallocate
    //  receiving                 asking
    {conv_verb::send_data, APPC_SEC_SEND_DATA_NOT_SEND_STATE, never,
     {{pass_on, send},            no,                     {pass_on, send},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::flush, APPC_SEC_FLUSH_NOT_SEND_STATE, never,
     {{pass_on, send},            no,                     {pass_on, send},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::confirm, APPC_SEC_CONFIRM_BAD_STATE, APPC_SEC_CONFIRM_NOT_LL_BDY,
     {{ask, send},                no,                     {ask, send},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::prepare_flush, APPC_SEC_P_TO_R_NOT_SEND_STATE, APPC_SEC_P_TO_R_NOT_LL_BDY,
     {{pass_on, receive},         no,                     {pass_on, receive},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::prepare_confirm, APPC_SEC_P_TO_R_NOT_SEND_STATE, APPC_SEC_P_TO_R_NOT_LL_BDY,
     {{ask, receive},             no,                     {ask, receive},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::deallocate_flush, APPC_SEC_DEALLOC_FLUSH_BAD_STATE, APPC_SEC_DEALLOC_NOT_LL_BDY,
     {{finish, reset},            no,                     {finish, reset},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::deallocate_confirm, APPC_SEC_DEALLOC_CONFIRM_BAD_STATE, APPC_SEC_DEALLOC_NOT_LL_BDY,
     {{ask, reset},               no,                     {ask, reset},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::deallocate_abend, never, never,
     {{abend, reset},             {abend, reset},         {abend, reset},
      {abend, reset},             {abend, reset},         {abend, reset},
      {abend, reset},             {abend, reset}}},
    {conv_verb::confirmed, APPC_SEC_CONFIRMED_BAD_STATE, never,
     {no,                         no,                     no,
      {reply, receive},           {reply, send},          {reply, reset},
      no,                         no}},
    {conv_verb::receive_and_wait, APPC_SEC_RCV_AND_WAIT_BAD_STATE, APPC_SEC_RCV_AND_WAIT_NOT_LL_BDY,
     {{turn_and_wait, receive},   {wait, receive},        {turn_and_wait, receive},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::receive_and_post, APPC_SEC_RCV_AND_POST_BAD_STATE, APPC_SEC_RCV_AND_POST_NOT_LL_BDY,
     {{turn_and_wait, receive},   {wait, receive},        {turn_and_wait, receive},
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::receive_immediate, APPC_SEC_RCV_IMMD_BAD_STATE, never,
     {no,                         {look, receive},        no,
      no,                         no,                     no,
      no,                         no}},
    {conv_verb::send_error, APPC_SEC_SEND_ERROR_BAD_STATE, never,
     {{error, send},              {error, send},          {error, send},
      {error, send},              {error, send},          {error, send},
      {error, send},              no}},
    {conv_verb::request_to_send, APPC_SEC_R_T_S_BAD_STATE, never,
     {no,                         {signal, receive},      no,
      {signal, confirm},          {signal, confirm_send}, {signal, confirm_deallocate},
      {signal, receiving},        no}},
    {conv_verb::test_rts, APPC_SEC_TEST_RTS_BAD_STATE, never,
     {{tell, send},               {tell, receive},        {tell, send_pending},
      no,                         no,                     no,
      {tell, receiving},          {tell, asking}}},
    {conv_verb::send_expedited_data, never, never,
     {{signal, send},             {signal, receive},      {signal, send_pending},
      {signal, confirm},          {signal, confirm_send}, {signal, confirm_deallocate},
      {signal, receiving},        {signal, asking}}},
    {conv_verb::receive_expedited_data, never, never,
     {{signal, send},             {signal, receive},      {signal, send_pending},
      {signal, confirm},          {signal, confirm_send}, {signal, confirm_deallocate},
      {signal, receiving},        {signal, asking}}},
    {conv_verb::inquire, never, never,
     {{tell, send},               {tell, receive},        {tell, send_pending},
      {tell, confirm},            {tell, confirm_send},   {tell, confirm_deallocate},
      {tell, receiving},          {tell, asking}}},
};
// clang-format on

constexpr const verb_steps& row(conv_verb verb) noexcept
{
    return table[static_cast<u32>(verb)];
}

constexpr step look_up(conv_verb verb, conv_state state) noexcept
{
    return row(verb).in[static_cast<u32>(state) - static_cast<u32>(send)];
}

constexpr bool rows_stand_in_order_and_can_say_why_they_refuse()
{
    for (u32 i = 0; i < VERBS; ++i) {
        if (static_cast<u32>(table[i].verb) != i)
            return false;
        for (const step& in : table[i].in)
            if (in.act == refuse && table[i].bad_state == never)
                return false;
    }
    return true;
}

constexpr bool only_the_sender_sends()
{
    for (const conv_verb verb :
         {conv_verb::send_data, conv_verb::flush, conv_verb::confirm, conv_verb::prepare_flush,
          conv_verb::prepare_confirm, conv_verb::deallocate_flush, conv_verb::deallocate_confirm})
        for (u8 number = static_cast<u8>(send); number < STATES; ++number) {
            const conv_state state{number};
            const bool sender = state == send || state == send_pending;
            if ((look_up(verb, state).act == refuse) == sender)
                return false;
        }
    return true;
}

constexpr bool gives_the_turn_away_between_records_only()
{
    for (const verb_steps& each : table) {
        const step in_send = look_up(each.verb, send);
        const bool asks_or_ends = in_send.act == ask || in_send.act == finish || in_send.act == turn_and_wait;
        const bool needs_border = asks_or_ends || (in_send.act == pass_on && in_send.next != send);
        if (needs_border != (each.inside_record != never))
            return false;
    }
    return true;
}

static_assert(static_cast<u32>(send) == static_cast<u32>(reset) + 1, "the table starts behind reset");
static_assert(rows_stand_in_order_and_can_say_why_they_refuse());
static_assert(only_the_sender_sends());
static_assert(gives_the_turn_away_between_records_only());
static_assert(look_up(conv_verb::confirmed, confirm_send).next == send);
static_assert(look_up(conv_verb::receive_immediate, send).act == refuse, "only waiting gives the turn away");

}  // namespace

step conversation_step(conv_verb verb, conv_state state) noexcept
{
    return look_up(verb, state);
}

u32 bad_state_code(conv_verb verb) noexcept
{
    return row(verb).bad_state;
}

u32 inside_record_code(conv_verb verb) noexcept
{
    return row(verb).inside_record;
}

}  // namespace tessaly::node
