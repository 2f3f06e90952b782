// Whether a name is well formed, and what its parts are.
#include "names/ntlcomn_compare.h"

#include "common/ebcdic.h"
#include "common/export.h"
#include "runtime/node_runtime.h"

#include <algorithm>

namespace tessaly::names {

namespace {

constexpr u8 NAME_CLASS = 8;

struct parts {
    u32 network_id_bytes = 0;
    u32 name_at = 0;
    u32 name_bytes = 0;
};

bool has_bad_character(const u8* name, u32 bytes) noexcept
{
    return nba_check_ebcdic(NAME_CLASS, name, static_cast<u16>(bytes)) == 0;
}

// The checks in the order in which they decide.
u32 take_apart(const u8* fq_name, parts& found) noexcept
{
    const u32 period = length_before(fq_name, FQ_NAME_BYTES, EBCDIC_PERIOD);
    const bool qualified = period != FQ_NAME_BYTES;
    if (qualified) {
        if (period > NAME_BYTES)
            return NTL_FQ_NETID_TOO_LONG;
        if (period == 0)
            return NTL_FQ_NETID_EMPTY;
        if (has_bad_character(fq_name, period))
            return NTL_FQ_NETID_BAD_CHAR;
        found.network_id_bytes = period;
        found.name_at = period + 1;
    }
    const u8* name = fq_name + found.name_at;
    found.name_bytes = length_before(name, FQ_NAME_BYTES - found.name_at, EBCDIC_BLANK);
    if (found.name_bytes > NAME_BYTES)
        return NTL_FQ_NAME_TOO_LONG;
    if (found.name_bytes == 0)
        return NTL_FQ_NAME_EMPTY;
    if (has_bad_character(name, found.name_bytes))
        return NTL_FQ_NAME_BAD_CHAR;
    if (std::any_of(name + found.name_bytes, fq_name + FQ_NAME_BYTES, [](u8 byte) { return byte != EBCDIC_BLANK; }))
        return NTL_FQ_TRAILING_TEXT;
    return qualified ? NTL_FQ_QUALIFIED : NTL_FQ_UNQUALIFIED;
}

void put_name(u8* output, const u8* name, u32 bytes) noexcept
{
    std::fill_n(output, NAME_BYTES, EBCDIC_BLANK);
    std::copy_n(name, bytes, output);
}

}  // namespace

}  // namespace tessaly::names

using namespace tessaly;
using namespace tessaly::names;

extern "C" {

TESSALY_EXPORT extern const ntl_u8 null_name[128] = {};
TESSALY_EXPORT extern const ntl_u8 mac_address_local_admin_min[6] = {0x01, 0x00, 0x00, 0x00, 0x00, 0x01};

TESSALY_EXPORT ntl_u16 ntl_check_name(ntl_u8 char_class, const ntl_u8* name, ntl_u16 length)
{
    while (length != 0 && name[length - 1] == EBCDIC_BLANK)
        --length;
    return length != 0 ? nba_check_ebcdic(char_class, name, length) : 1;
}

TESSALY_EXPORT ntl_u32 ntl_check_fq_name(const ntl_u8* fq_name)
{
    parts found;
    return take_apart(fq_name, found);
}

TESSALY_EXPORT ntl_u32 ntl_split_fq_name(const ntl_u8* fq_name, ntl_u8* network_id, ntl_u8* name)
{
    parts found;
    const u32 result = take_apart(fq_name, found);
    std::copy_n(null_name, NAME_BYTES, network_id);
    std::copy_n(null_name, NAME_BYTES, name);
    if (result == NTL_FQ_QUALIFIED)
        put_name(network_id, fq_name, found.network_id_bytes);
    if (result == NTL_FQ_QUALIFIED || result == NTL_FQ_UNQUALIFIED)
        put_name(name, fq_name + found.name_at, found.name_bytes);
    return result;
}

}  // extern "C"
