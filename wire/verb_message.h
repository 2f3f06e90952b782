// One verb, or its answer, as it travels on a TP's path: a header, the verb's block in the node's layout, then data.
#pragma once

#include "common/types.h"

namespace tessaly {

// The node echoes the header of a verb in its answer, with the two correlators exchanged.
struct verb_message_header {
    u32 next_link;  //   0  always 0 on the wire
    u8 unused_4[4];
    u32 previous_link;  //   8  always 0
    u8 unused_12[4];
    u32 owner_link;  //  16  address of the sender's buffer; no meaning to the receiver
    u8 unused_20[12];
    u32 dest_corr;  //  32  the receiver's name for the TP
    u8 unused_36[16];
    u32 buf_len;  //  52  header and block, bytes
    u32 msg_len;  //  56  buf_len and all data behind it, bytes
    u8 unused_60[2];
    u16 kind;      //  62
    u32 src_corr;  //  64  the sender's name for the TP
    u16 code;      //  68
    u8 unused_70[10];
    u32 pend_handle;  //  80  hostile on the way back: look it up, never trust it
    u8 zero_84[28];   //  84
};
static_assert(sizeof(verb_message_header) == 112);
static_assert(offsetof(verb_message_header, previous_link) == 8 && offsetof(verb_message_header, owner_link) == 16);
static_assert(offsetof(verb_message_header, dest_corr) == 32 && offsetof(verb_message_header, src_corr) == 64);
static_assert(offsetof(verb_message_header, buf_len) == 52 && offsetof(verb_message_header, msg_len) == 56);
static_assert(offsetof(verb_message_header, kind) == 62 && offsetof(verb_message_header, code) == 68);
static_assert(offsetof(verb_message_header, pend_handle) == 80 && offsetof(verb_message_header, zero_84) == 84);

inline constexpr u16 VERB_MESSAGE_KIND = 12;
inline constexpr u16 VERB_MESSAGE_CODE = 0x2001;

inline constexpr u32 VAV_MAX_SIZE = 350;  // header and widened block of one message, bytes

struct verb_message {
    verb_message_header header;
    u8 block[VAV_MAX_SIZE - sizeof(verb_message_header)];
    u8 unused_350[2];  // rounds the struct up to its alignment; never sent
};
static_assert(offsetof(verb_message, block) == 112 && offsetof(verb_message, unused_350) == VAV_MAX_SIZE);

}  // namespace tessaly
