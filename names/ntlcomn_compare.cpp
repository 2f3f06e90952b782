// The orders in which names and identifiers are sorted.
#include "names/ntlcomn_compare.h"

#include "common/ebcdic.h"
#include "common/export.h"
#include "runtime/node_runtime.h"

#include <algorithm>
#include <cstring>

namespace tessaly::names {

namespace {

constexpr u8 ASCII_BLANK = ' ';

i32 compare_bytes(const u8* a, const u8* b, u32 width) noexcept
{
    const int order = std::memcmp(a, b, width);
    return (order > 0) - (order < 0);
}

i32 by_length(u32 a, u32 b) noexcept
{
    return static_cast<i32>(a) - static_cast<i32>(b);
}

template <u32 Width>
i32 compare_in_local_characters(const u8* a, const u8* b) noexcept
{
    u8 local[2][Width];
    std::copy_n(a, Width, local[0]);
    std::copy_n(b, Width, local[1]);
    nba_ebcdic_to_local(local[0], Width);
    nba_ebcdic_to_local(local[1], Width);
    return compare_bytes(local[0], local[1], Width);
}

template <u32 Width>
i32 compare_mib(const u8* a, const u8* b) noexcept
{
    const i32 order = by_length(length_before(a, Width, EBCDIC_BLANK), length_before(b, Width, EBCDIC_BLANK));
    return order != 0 ? order : compare_in_local_characters<Width>(a, b);
}

}  // namespace

u32 length_before(const u8* field, u32 width, u8 end) noexcept
{
    return static_cast<u32>(std::find(field, field + width, end) - field);
}

}  // namespace tessaly::names

using namespace tessaly;
using namespace tessaly::names;

extern "C" {

TESSALY_EXPORT ntl_i32 ntl_compare_byte(const ntl_u8* a, const ntl_u8* b)
{
    return *a - *b;
}

TESSALY_EXPORT ntl_i32 ntl_compare_lfsid(const ntl_lfsid* a, const ntl_lfsid* b)
{
    return a->second != b->second ? a->second - b->second : a->first - b->first;
}

TESSALY_EXPORT ntl_i32 ntl_compare_proc_id(const ntl_u8* a, const ntl_u8* b)
{
    return compare_bytes(a, b, PROC_ID_BYTES);
}

TESSALY_EXPORT ntl_i32 ntl_compare_name(const ntl_u8* a, const ntl_u8* b)
{
    return compare_bytes(a, b, NAME_BYTES);
}

TESSALY_EXPORT ntl_i32 ntl_compare_fq_name(const ntl_u8* a, const ntl_u8* b)
{
    return compare_bytes(a, b, FQ_NAME_BYTES);
}

TESSALY_EXPORT ntl_i32 ntl_compare_tp_name(const ntl_u8* a, const ntl_u8* b)
{
    return compare_bytes(a, b, LONG_NAME_BYTES);
}

TESSALY_EXPORT ntl_i32 ntl_compare_mib_ascii_sna_name(const ntl_u8* a, const ntl_u8* b)
{
    const ntl_i32 order = by_length(length_before(a, NAME_BYTES, ASCII_BLANK), length_before(b, NAME_BYTES, ASCII_BLANK));
    return order != 0 ? order : compare_bytes(a, b, NAME_BYTES);
}

TESSALY_EXPORT ntl_i32 ntl_compare_mib_sna_name(const ntl_u8* a, const ntl_u8* b)
{
    const auto length = [](const ntl_u8* name) {
        const u32 counted = length_before(name, NAME_BYTES, EBCDIC_BLANK);
        return counted != 0 ? counted : NAME_BYTES;
    };
    const ntl_i32 order = by_length(length(a), length(b));
    return order != 0 ? order : compare_in_local_characters<NAME_BYTES>(a, b);
}

TESSALY_EXPORT ntl_i32 ntl_compare_mib_fq_name(const ntl_u8* a, const ntl_u8* b)
{
    return compare_mib<FQ_NAME_BYTES>(a, b);
}

TESSALY_EXPORT ntl_i32 ntl_compare_mib_tp_name(const ntl_u8* a, const ntl_u8* b)
{
    return compare_mib<LONG_NAME_BYTES>(a, b);
}

TESSALY_EXPORT ntl_i32 ntl_compare_fqpcid(const ntl_fqpcid* a, const ntl_fqpcid* b)
{
    const ntl_i32 order = compare_mib<FQ_NAME_BYTES>(a->fq_name, b->fq_name);
    return order != 0 ? order : compare_bytes(a->id, b->id, sizeof a->id);
}

TESSALY_EXPORT ntl_u16 ntl_name_length(const ntl_u8* field, ntl_u16 width)
{
    return static_cast<ntl_u16>(length_before(field, width, EBCDIC_BLANK));
}

}  // extern "C"
