// The datagrams between the verb library and the node's control point. Each starts with its length and type.
#pragma once

#include "common/types.h"

namespace tessaly {

inline constexpr u32 DATAGRAM_DESTINATION = 16;  // destination kind of vpm_send_datagram

enum datagram_type : u16 {
    DATAGRAM_ANNOUNCE = 2,           // a TP waits for a conversation
    DATAGRAM_REGISTER_CPIC = 7,      // this process accepts a TP name
    DATAGRAM_UNREGISTER_CPIC = 10,   // it does so no more
    DATAGRAM_CANCEL_ANNOUNCE = 16,   // the TP waits no more
    DATAGRAM_ATTACH_RESPONSE = 17,   // an attach was taken, or refused
    DATAGRAM_APPL_READY = 0x0082,    // from the node: what became of an announcement
};

struct datagram_header {
    u16 length;  // whole datagram, bytes
    u16 type;
};
static_assert(sizeof(datagram_header) == 4);

// A TP name as datagrams carry it: its used length, then 64 bytes padded with EBCDIC blanks.
struct counted_tp_name {
    u32 length;
    u8 name[64];
};
static_assert(sizeof(counted_tp_name) == 68);

struct announce_datagram {
    datagram_header header;
    u32 zero_4;
    u32 src_corr;  //   8  the TP's handle
    u32 zero_12;
    u32 zero_16;
    u32 cpic_names;           //  20  RECEIVE_ALLOCATE_CPIC: its name count
    counted_tp_name tp_name;  //  24  all zero for RECEIVE_ALLOCATE_CPIC
    u8 lu_alias[8];           //  92  RECEIVE_ALLOCATE_EX: its local LU, else ASCII blanks
};
static_assert(sizeof(announce_datagram) == 100 && offsetof(announce_datagram, src_corr) == 8);
static_assert(offsetof(announce_datagram, cpic_names) == 20 && offsetof(announce_datagram, tp_name) == 24);
static_assert(offsetof(announce_datagram, lu_alias) == 92);

struct cancel_announce_datagram {
    datagram_header header;
    u32 src_corr;  // the TP's handle
};
static_assert(sizeof(cancel_announce_datagram) == 8);

enum attach_reason : u32 { ATTACH_TAKEN = 0, ATTACH_REFUSED = 7 };

struct attach_response_datagram {
    datagram_header header;
    u32 reason;
    u32 attach_corr;
    u32 attach_addr;
};
static_assert(sizeof(attach_response_datagram) == 16 && offsetof(attach_response_datagram, attach_addr) == 12);

struct cpic_datagram {
    datagram_header header;
    counted_tp_name tp_name;  //   4
    u8 blanks[128];           //  72  ASCII blanks
    u32 zero_200;
};
static_assert(sizeof(cpic_datagram) == 204 && offsetof(cpic_datagram, blanks) == 72);

enum appl_ready_status : u32 { VSM_ST_READY = 0, VSM_ST_FAILED = 1, VSM_ST_WITHDRAWN = 2 };

struct appl_ready_datagram {
    datagram_header header;
    u32 app_rdy_status;  //   4
    u32 tp_handle;       //   8  the waiting TP
    u32 attach_addr;     //  12  where the conversation's path goes
    u32 attach_corr;     //  16
    u8 unused_20[8];
    u8 tp_name[64];  //  28
};
static_assert(sizeof(appl_ready_datagram) == 92 && offsetof(appl_ready_datagram, tp_name) == 0x1C);

}  // namespace tessaly
