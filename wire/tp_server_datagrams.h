// The datagrams between the TP server and the node's control point, and the message that fetches PIP data. Types 11, 23, 147 and
// 150 come from the node: hostile until checked against their own length.
#pragma once

#include "common/types.h"
#include "wire/datagrams.h"
#include "wire/verb_message.h"

namespace tessaly {

enum tp_server_datagram_type : u16 {
    TPS_MSG_APPL_FAILED = 1,
    TPS_MSG_START_APPL_REQ = 11,  // from the node
    TPS_MSG_UPDATE_TP_INFO = 19,
    TPS_MSG_QUERY_DLOAD = 22,
    TPS_MSG_TP_FILE_STATUS = 23,  // from the node; a header alone
    TPS_MSG_START_APPL_RSP = 139,
    TPS_MSG_UPDATE_TP_RSP = 147,    // from the node
    TPS_MSG_QUERY_DLOAD_RSP = 150,  // from the node; LTV elements follow
};

constexpr bool is_from_tp_server(u16 type) noexcept
{
    return type == TPS_MSG_APPL_FAILED || type == TPS_MSG_UPDATE_TP_INFO || type == TPS_MSG_QUERY_DLOAD ||
           type == TPS_MSG_START_APPL_RSP;
}

inline constexpr u32 TPS_PATH_USER_KIND = 0x20;

struct start_id_words {
    u32 attach;
    u32 node;
};

struct appl_failed_datagram {
    datagram_header header;
    u32 error_code;           //   4
    start_id_words start_id;  //   8
};
static_assert(sizeof(appl_failed_datagram) == 16 && offsetof(appl_failed_datagram, start_id) == 8);

struct start_appl_rsp_datagram {
    datagram_header header;
    u8 zero_4[8];
    u32 error_code;           //  12  0: the application was started
    start_id_words start_id;  //  16
};
static_assert(sizeof(start_appl_rsp_datagram) == 24 && offsetof(start_appl_rsp_datagram, error_code) == 12);
static_assert(offsetof(start_appl_rsp_datagram, start_id) == 16);

struct query_dload_datagram {
    datagram_header header;
    u32 zero_4;
    u32 correlator;  //   8
    u32 zero_12;
    start_id_words start_id;  //  16
};
static_assert(sizeof(query_dload_datagram) == 24 && offsetof(query_dload_datagram, correlator) == 8);
static_assert(offsetof(query_dload_datagram, start_id) == 16);

enum tp_action : u32 { TPS_TP_ADD = 1, TPS_TP_REPLACE = 2, TPS_TP_DELETE = 3 };

inline constexpr u8 TPS_PLU_NAME_END = 0x40;  // update_tp_info's byte behind the partner's name

struct update_tp_info_datagram {
    datagram_header header;
    u32 action;  //   4  tp_action
    u32 zero_8;
    u32 tp_reg_id;      //  12  0 for TPS_TP_ADD
    u32 server_handle;  //  16
    u32 correlator;     //  20
    u32 node_options;   //  24
    u32 zero_28;
    u32 start_value;       //  32  this and all that follows: 0 for TPS_TP_DELETE
    u8 lu_alias[8];        //  36
    u8 fqplu_name[17];     //  44
    u8 plu_name_end;       //  61  TPS_PLU_NAME_END
    u8 tp_type;            //  62  APPC_TP_QUEUED: 2, APPC_TP_QUEUED_MANUAL: 3, APPC_TP_NONQUEUED: 1
    u8 zero_63[2];
    u8 tp_name[64];  //  65
    u8 zero_129[3];
};
static_assert(sizeof(update_tp_info_datagram) == 132 && offsetof(update_tp_info_datagram, action) == 4);
static_assert(offsetof(update_tp_info_datagram, tp_reg_id) == 12 && offsetof(update_tp_info_datagram, server_handle) == 16);
static_assert(offsetof(update_tp_info_datagram, correlator) == 20 && offsetof(update_tp_info_datagram, node_options) == 24);
static_assert(offsetof(update_tp_info_datagram, start_value) == 32 && offsetof(update_tp_info_datagram, lu_alias) == 36);
static_assert(offsetof(update_tp_info_datagram, fqplu_name) == 44 && offsetof(update_tp_info_datagram, plu_name_end) == 61);
static_assert(offsetof(update_tp_info_datagram, tp_type) == 62 && offsetof(update_tp_info_datagram, tp_name) == 65);

struct start_appl_req_datagram {
    datagram_header header;
    u32 server_handle;  //   4
    u32 start_value;    //   8
    u32 unused_12;
    start_id_words start_id;  //  16
};
static_assert(sizeof(start_appl_req_datagram) == 24 && offsetof(start_appl_req_datagram, start_value) == 8);
static_assert(offsetof(start_appl_req_datagram, start_id) == 16);

enum update_tp_status : u32 { UPDATE_TP_DONE = 0, UPDATE_TP_NOT_DEFINED = 11, UPDATE_TP_ALREADY_DEFINED = 12 };

struct update_tp_rsp_datagram {
    datagram_header header;
    u32 unused_4;
    u32 status;     //   8  update_tp_status
    u32 tp_reg_id;  //  12
    u32 unused_16;
    u32 correlator;  //  20
};
static_assert(sizeof(update_tp_rsp_datagram) == 24 && offsetof(update_tp_rsp_datagram, status) == 8);
static_assert(offsetof(update_tp_rsp_datagram, tp_reg_id) == 12 && offsetof(update_tp_rsp_datagram, correlator) == 20);

enum query_dload_status : u32 { QUERY_DLOAD_DONE = 0, QUERY_DLOAD_ATTACH_GONE = 9, QUERY_DLOAD_BAD_ATTACH = 10 };

// The fixed part; header.length counts the LTV elements behind it too.
struct query_dload_rsp_datagram {
    datagram_header header;
    u32 unused_4;
    u32 correlator;           //   8
    u32 status;               //  12  query_dload_status
    start_id_words attach;    //  16  the attaching TP, and the node address that holds its PIP data
};
static_assert(sizeof(query_dload_rsp_datagram) == 24 && offsetof(query_dload_rsp_datagram, correlator) == 8);
static_assert(offsetof(query_dload_rsp_datagram, status) == 12 && offsetof(query_dload_rsp_datagram, attach) == 16);

// Asks for PIP data on a path of its own. The node answers with the same layout, its data behind it.
inline constexpr u16 NAP_EXTRACT_PIP = 0x0104;

struct extract_pip_block {
    u16 opcode;  //   0  NAP_EXTRACT_PIP
    u8 opext;
    u8 format;
    u16 primary_rc;  //   4
    u8 unused_6[2];
    u32 secondary_rc;        //   8
    start_id_words attach;   //  12
    u8 unused_20[10];
    u16 pip_buf_len;  //  30  room for PIP data, bytes
    u16 pip_len;      //  32  in the answer: what the node holds, bytes
    u8 unused_34[2];
    u32 zero_36;
    u8 unused_40[8];
};
static_assert(sizeof(extract_pip_block) == 48 && offsetof(extract_pip_block, primary_rc) == 4);
static_assert(offsetof(extract_pip_block, secondary_rc) == 8 && offsetof(extract_pip_block, attach) == 12);
static_assert(offsetof(extract_pip_block, pip_buf_len) == 30 && offsetof(extract_pip_block, pip_len) == 32);
static_assert(offsetof(extract_pip_block, zero_36) == 36);

struct verb_signal {
    verb_message_header header;
    extract_pip_block block;
};
static_assert(sizeof(verb_signal) == 160 && offsetof(verb_signal, block) == 112);

}  // namespace tessaly
