#include "vtpsrv/vtpscbck_ltv.h"

#include "common/ebcdic.h"
#include "common/invariant.h"
#include "verbs/block.h"
#include "vtpsrv/modules.h"
#include "vtpsrv/vtpsmain_records.h"
#include "wire/ltv.h"

#include <algorithm>
#include <cstring>

namespace tessaly {

namespace {

// Fills a buffer from its start and never past its end.
struct bounded_buffer {
    u8* start;
    u32 room;
    u32 stored = 0;

    bool is_full() const noexcept { return stored == room; }

    u32 append(const u8* from, u32 count) noexcept
    {
        count = std::min(count, room - stored);
        std::memcpy(start + stored, from, count);
        stored += count;
        return count;
    }
};

// The attach header as far as it exists: bounded by its element and by its own length byte.
struct attach_header {
    const u8* start;
    u32 end;

    bool has(u32 at) const noexcept { return at < end; }
    u32 bytes_from(u32 at, u32 wanted) const noexcept { return has(at) ? std::min(wanted, end - at) : 0; }
    u32 append_to(bounded_buffer& buffer, u32 at, u32 wanted) const noexcept
    {
        return has(at) ? buffer.append(start + at, bytes_from(at, wanted)) : 0;
    }
};

void put_tp_name(u8 (&field)[TP_NAME_BYTES], const u8* name, u32 bytes) noexcept
{
    bytes = std::min(bytes, TP_NAME_BYTES);
    std::fill(std::copy_n(name, bytes, field), std::end(field), EBCDIC_BLANK);
}

// Fixed part, TP name, the security subfield for those who may see it, the rest.
void store_parts(const attach_header& header, appc_query_attach& block, bounded_buffer& buffer, bool privileged) noexcept
{
    header.append_to(buffer, 0, FMH5_FIXED_BYTES);
    if (buffer.is_full() || !header.has(FMH5_FIXED_BYTES))
        return;
    const u32 name_bytes = header.start[FMH5_FIXED_BYTES];
    const u32 copied = header.append_to(buffer, FMH5_FIXED_BYTES, name_bytes + 1);
    put_tp_name(block.tp_name, header.start + FMH5_FIXED_BYTES + 1, copied - 1);

    const u32 security_at = FMH5_FIXED_BYTES + 1 + name_bytes;
    if (buffer.is_full() || !header.has(security_at))
        return;
    const u32 security_bytes = header.start[security_at] + 1u;
    constexpr u8 withheld = 0;
    if (privileged)
        header.append_to(buffer, security_at, security_bytes);
    else
        buffer.append(&withheld, sizeof withheld);
    header.append_to(buffer, security_at + security_bytes, header.end);
}

// Result: bytes stored.
u16 store_attach_header(const u8* value, u32 value_bytes, appc_query_attach& block, bool privileged) noexcept
{
    auto* start = static_cast<u8*>(block.attach_buf);
    if (block.attach_buf_len == 0 || start == nullptr)
        return 0;
    bounded_buffer buffer{start, block.attach_buf_len};
    const attach_header header{value, value_bytes == 0 ? 0 : std::min<u32>(value_bytes, value[0])};
    store_parts(header, block, buffer, privileged);
    if (buffer.stored != 0)
        start[0] = static_cast<u8>(buffer.stored);
    block.attach_len = static_cast<u16>(buffer.stored);
    return block.attach_len;
}

template <u32 Width>
void store_field(u8 (&field)[Width], const u8* value, u32 value_bytes) noexcept
{
    std::memcpy(field, value, std::min(value_bytes, Width));
}

}  // namespace

u32 tps_parse_ltv(const u8* buffer, u32 length, ltv_routine routine, u32 correlator) noexcept
{
    u32 visited = 0;
    while (length >= LTV_HEADER_BYTES) {
        const u32 element = big_endian_16(buffer);
        if (element < LTV_HEADER_BYTES || element > length)
            break;
        routine(element - LTV_HEADER_BYTES, big_endian_16(buffer + 2), buffer + LTV_HEADER_BYTES, correlator);
        length -= element;
        buffer += element;
        ++visited;
    }
    return visited;
}

void tps_parsed_ltv(u32 value_bytes, u16 type, const u8* value, u32 correlator) noexcept
{
    invariant(correlator != 0, VTPSCBCK, "correlator != NB_NULL_HANDLE", 476);
    const waiting_verb waiting = find_waiting_verb(correlator);
    if (waiting.verb == nullptr)
        return;
    invariant(header_of(waiting.verb->verb).opcode == NAP_QUERY_ATTACH, VTPSCBCK,
              "TPS_QUA(verb_info->verb)->opcode == NAP_QUERY_ATTACH", 484);
    if (waiting.verb->opcode != NAP_QUERY_ATTACH)  // its block has no room for the fields below
        return;
    auto& block = block_as<appc_query_attach>(waiting.verb->verb);
    switch (type) {
    case LTV_LU_ALIAS: store_field(block.lu_alias, value, value_bytes); break;
    case LTV_FQPLU_NAME: store_field(block.fqplu_name, value, value_bytes); break;
    case LTV_MODE_NAME: store_field(block.mode_name, value, value_bytes); break;
    case LTV_ATTACH_HEADER:
        waiting.verb->attach_bytes = store_attach_header(value, value_bytes, block, waiting.server->privileged != 0);
        break;
    default: break;  // of no interest
    }
}

}  // namespace tessaly
