#include "vtpsrv/vtpsmain_validation.h"

#include "common/ebcdic.h"
#include "common/invariant.h"
#include "verbs/block.h"
#include "vtpsrv/modules.h"

#include <tessaly/names.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace tessaly {

namespace {

constexpr u8 ASCII_BLANK = 0x20;
constexpr u8 NAME_CLASS = 8;

u16 refuse(void* vcb, u32 secondary) noexcept
{
    set_codes(vcb, PARAMETER_CHECK, secondary);
    return 0;
}

u16 validate_server(void* vcb) noexcept
{
    const auto& block = block_as<appc_register_tp_server>(vcb);
    if (block.server_callback == nullptr)
        return refuse(vcb, SEC_NO_SERVER_CALLBACK);
    if (block.file_status_events > 1)
        return refuse(vcb, SEC_BAD_EVENTS_FLAG);
    return 1;
}

u16 validate_tp(void* vcb) noexcept
{
    const auto& block = block_as<appc_register_tp>(vcb);
    tps_validate_tp_name(block.tp_name);
    if (tps_validate_tp_type(block.tp_type) == 0)
        return refuse(vcb, SEC_BAD_TP_TYPE);
    if (tps_validate_lu_alias(block.lu_alias) == 0)
        return refuse(vcb, SEC_BAD_TP_LU_ALIAS);
    if (tps_validate_wild_fqplu(block.fqplu_name) == 0)
        return refuse(vcb, SEC_BAD_PLU_NAME);
    return 1;
}

// Whether an empty span is a part of a name is the runtime's rule.
bool is_name_part(const u8* from, const u8* to) noexcept
{
    return nba_check_ebcdic(NAME_CLASS, from, static_cast<u16>(to - from)) != 0;
}

bool are_all(u8 value, const u8* from, const u8* to) noexcept
{
    return std::all_of(from, to, [value](u8 byte) { return byte == value; });
}

const u8* first_of(u8 value, const u8* name) noexcept
{
    return static_cast<const u8*>(std::memchr(name, value, FQ_LU_NAME_BYTES));
}

}  // namespace

u16 tps_validate(void* vcb) noexcept
{
    const u16 opcode = header_of(vcb).opcode;
    if (opcode < FIRST_TP_SERVER_OPCODE || opcode > LAST_TP_SERVER_OPCODE) {
        header_of(vcb).primary_rc = INVALID_VERB;
        return 0;
    }
    if (opcode == NAP_REGISTER_TP_SERVER)
        return validate_server(vcb);
    if (opcode == NAP_REGISTER_TP)
        return validate_tp(vcb);
    return 1;
}

u16 tps_validate_tp_name(const u8*) noexcept
{
    return 1;
}

u16 tps_validate_tp_type(u8 type) noexcept
{
    return type == APPC_TP_QUEUED || type == APPC_TP_QUEUED_MANUAL || type == APPC_TP_NONQUEUED;
}

u16 tps_validate_lu_alias(const u8* alias) noexcept
{
    const u8* end = alias + LU_ALIAS_BYTES;
    const u8* blank = std::find(alias, end, ASCII_BLANK);
    const auto printable = [](u8 byte) { return std::isprint(static_cast<signed char>(byte)) != 0; };
    return std::all_of(alias, blank, printable) && are_all(ASCII_BLANK, blank, end);
}

u16 tps_validate_wild_fqplu(const u8* name) noexcept
{
    const u8* end = name + FQ_LU_NAME_BYTES;
    if (ntl_check_fq_name(name) == NTL_FQ_QUALIFIED || are_all(EBCDIC_BLANK, name, end))
        return 1;
    const u8* star_ptr = first_of(EBCDIC_ASTERISK, name);
    const u8* point_ptr = first_of(EBCDIC_PERIOD, name);
    if (star_ptr == nullptr)
        return 0;
    const u8* part = name;
    if (point_ptr != nullptr) {
        if (!invariant(star_ptr > point_ptr, VTPSMAIN, "star_ptr > point_ptr", 1619) || !is_name_part(name, point_ptr))
            return 0;
        part = point_ptr + 1;
    }
    return is_name_part(part, star_ptr) && are_all(EBCDIC_BLANK, star_ptr + 1, end);
}

}  // namespace tessaly
