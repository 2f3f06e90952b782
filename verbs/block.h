// A verb's block as the library sees it: the fields that it reads and writes by name, and where they must lie. The structs are
// those of tessaly/appc.h; every offset that library and node agree on is checked here.
#pragma once

#include "common/types.h"
#include "verbs/codes.h"

#include <tessaly/appc.h>

#include <cstring>

namespace tessaly {

using block_header = appc_header;

// A block, or a block in a message, seen as one verb's struct.
template <typename Verb>
Verb& block_as(void* block) noexcept
{
    return *static_cast<Verb*>(block);
}

template <typename Verb>
const Verb& block_as(const void* block) noexcept
{
    return *static_cast<const Verb*>(block);
}

inline block_header& header_of(void* block) noexcept
{
    return *static_cast<block_header*>(block);
}

inline const block_header& header_of(const void* block) noexcept
{
    return *static_cast<const block_header*>(block);
}

// Both return codes at once, so that none is forgotten.
inline void set_codes(void* block, u16 primary, u32 secondary) noexcept
{
    header_of(block).primary_rc = primary;
    header_of(block).secondary_rc = secondary;
}

// A field by its offset, for what catalogue rows name by number.
template <typename Field>
Field load(const void* block, u32 offset) noexcept
{
    Field value;
    std::memcpy(&value, static_cast<const u8*>(block) + offset, sizeof value);
    return value;
}

template <typename Field>
void store(void* block, u32 offset, Field value) noexcept
{
    std::memcpy(static_cast<u8*>(block) + offset, &value, sizeof value);
}

inline constexpr u32 TP_ID_BYTES = 8;
inline constexpr u32 TP_NAME_BYTES = 64;
inline constexpr u32 LU_ALIAS_BYTES = 8;
inline constexpr u32 FQ_LU_NAME_BYTES = 17;

// The TP's handle lies in the second half of its identifier.
inline u32 tp_handle_in(const u8* tp_id) noexcept
{
    return load<u32>(tp_id, 4);
}

static_assert(offsetof(block_header, opcode) == 0 && offsetof(block_header, opext) == 2);
static_assert(offsetof(block_header, format) == 3 && offsetof(block_header, primary_rc) == 4);
static_assert(offsetof(block_header, secondary_rc) == 8 && offsetof(block_header, tp_id) == 12);
static_assert(offsetof(block_header, conv_id) == 20 && sizeof(block_header) == 24);

static_assert(sizeof(appc_luw_id) == 26);
static_assert(offsetof(appc_tp_started, lu_alias) == 12 && offsetof(appc_tp_started, tp_id) == 20);
static_assert(offsetof(appc_tp_started, tp_name) == 28 && offsetof(appc_tp_started, fq_lu_name) == 0x5F);
static_assert(sizeof(appc_tp_started) == 112 && sizeof(appc_tp_ended) == 24);

static_assert(offsetof(appc_receive_allocate, tp_name) == 12 && offsetof(appc_receive_allocate, tp_id) == 0x4C);
static_assert(offsetof(appc_receive_allocate, conv_id) == 0x54 && offsetof(appc_receive_allocate, lu_alias) == 0x64);
static_assert(offsetof(appc_receive_allocate, conv_group_id) == 124 && offsetof(appc_receive_allocate, duplex_type) == 0x95);
static_assert(offsetof(appc_receive_allocate, security_profile) == 0x9A);
static_assert(offsetof(appc_receive_allocate, pip_dlen) == 0xA2);
static_assert(offsetof(appc_receive_allocate, attach_id) == 166 && offsetof(appc_receive_allocate, fq_lu_name) == 0xAE);
static_assert(sizeof(appc_receive_allocate) == 192);
static_assert(offsetof(appc_receive_allocate_cpic, tp_name_count) == 192);
static_assert(offsetof(appc_receive_allocate_cpic, tp_names) == 0xC4);
static_assert(offsetof(appc_cpic_tp, tp_name) == 12 && sizeof(appc_cpic_tp) == 76);

static_assert(offsetof(appc_allocate, conv_group_id) == 32 && offsetof(appc_allocate, plu_alias) == 40);
static_assert(offsetof(appc_allocate, pip_dlen) == 152 && offsetof(appc_allocate, pip_dptr) == 156);
static_assert(offsetof(appc_allocate_format_0, plu_alias) == 38 && offsetof(appc_allocate_format_0, pip_dlen) == 0x96);
static_assert(offsetof(appc_allocate_format_0, pip_dptr) == 0x98);
static_assert(offsetof(appc_send_conversation, conv_group_id) == 32 && offsetof(appc_send_conversation, pip_dlen) == 152);
static_assert(offsetof(appc_send_conversation, pip_dptr) == 156 && offsetof(appc_send_conversation, dlen) == 186);
static_assert(offsetof(appc_send_conversation, dptr) == 188);

static_assert(offsetof(appc_send_data, dlen) == 26 && offsetof(appc_send_data, dptr) == 28);
static_assert(offsetof(appc_send_data, rts_rcvd) == 0x18 && offsetof(appc_send_data, expd_rcvd) == 0x19);
static_assert(offsetof(appc_send_expedited_data, dlen) == 26 && offsetof(appc_send_expedited_data, dptr) == 28);
static_assert(offsetof(appc_send_error, rts_rcvd) == 0x18 && offsetof(appc_send_error, expd_rcvd) == 0x1B);
static_assert(offsetof(appc_send_error, dlen) == 28 && offsetof(appc_send_error, dptr) == 32);
static_assert(offsetof(appc_deallocate, dlen) == 26 && offsetof(appc_deallocate, dptr) == 0x1C);
static_assert(offsetof(appc_deallocate, forget_callback) == 0x20 && offsetof(appc_deallocate, forget_value) == 0x24);
static_assert(offsetof(appc_receive, dlen) == 0x20 && offsetof(appc_receive, dptr) == 0x24);
static_assert(offsetof(appc_receive, callback) == 0x28 && sizeof(appc_receive) == 48);
static_assert(offsetof(appc_receive_expedited_data, dlen) == 0x20 && offsetof(appc_receive_expedited_data, dptr) == 0x24);
static_assert(offsetof(appc_receive, max_len) == offsetof(appc_receive_expedited_data, max_len));
static_assert(offsetof(appc_test_rts_and_post, callback) == 0x1C);

static_assert(offsetof(appc_get_attributes, luw_id) == 0x82 && sizeof(appc_get_attributes) == 164);
static_assert(offsetof(appc_get_tp_properties, luw_id) == 0x5C && offsetof(appc_get_tp_properties, unprot_luw_id) == 0x9B);
static_assert(offsetof(appc_set_tp_properties, set_prot_id) == 20 && offsetof(appc_set_tp_properties, prot_id) == 22);
static_assert(offsetof(appc_set_tp_properties, set_unprot_id) == 48 && offsetof(appc_set_tp_properties, unprot_id) == 50);
static_assert(offsetof(appc_set_tp_properties, set_user_id) == 0x4C && offsetof(appc_set_tp_properties, user_id) == 0x4E);
static_assert(sizeof(appc_set_tp_properties) == 100 && sizeof(appc_get_tp_properties) == 184);

static_assert(offsetof(appc_unregister_tp_server, secondary_rc) == 8 && offsetof(appc_unregister_tp_server, server_handle) == 12);
static_assert(offsetof(appc_register_tp_server, file_status_events) == 16);
static_assert(offsetof(appc_register_tp_server, server_callback) == 20 && sizeof(appc_register_tp_server) == 24);
static_assert(offsetof(appc_register_tp, tp_reg_id) == 16 && offsetof(appc_register_tp, tp_name) == 20);
static_assert(offsetof(appc_register_tp, lu_alias) == 84 && offsetof(appc_register_tp, fqplu_name) == 92);
static_assert(offsetof(appc_register_tp, tp_type) == 109 && offsetof(appc_register_tp, start_value) == 112);
static_assert(offsetof(appc_register_tp, replace) == 116 && offsetof(appc_register_tp, node_options) == 120);
static_assert(offsetof(appc_query_attach, start_id) == 16 && offsetof(appc_query_attach, tp_name) == 24);
static_assert(offsetof(appc_query_attach, lu_alias) == 88 && offsetof(appc_query_attach, fqplu_name) == 96);
static_assert(offsetof(appc_query_attach, mode_name) == 113 && offsetof(appc_query_attach, pip_buf_len) == 122);
static_assert(offsetof(appc_query_attach, pip_len) == 124 && offsetof(appc_query_attach, pip_buf) == 128);
static_assert(offsetof(appc_query_attach, attach_buf_len) == 132 && offsetof(appc_query_attach, attach_len) == 134);
static_assert(offsetof(appc_query_attach, attach_buf) == 136 && sizeof(appc_query_attach) == 140);
static_assert(offsetof(appc_start_appl, start_id) == 16 && offsetof(appc_start_appl, error_code) == 24);

}  // namespace tessaly
