#include "v6/vav3264/convert.h"

#include "common/invariant.h"
#include "v6/records/modules.h"
#include "verbs/block.h"
#include "verbs/layout_64.h"

namespace tessaly {

namespace {

// The format row by which a block is converted, or null. Blocks of the second range never travel, and a format that no verb has is
// left as it is.
const block_format* convertible(u16 opcode, u8 format) noexcept
{
    const verb_row* verb = find_verb(opcode);
    const bool second_range = static_cast<u16>(opcode - FIRST_2ND_OPCODE) < SECOND_OPCODES;
    invariant(opcode < MAIN_OPCODES || second_range, VAV3264, "FALSE");
    return verb == nullptr || second_range || format > 1 ? nullptr : &verb->format[format];
}

}  // namespace

void vav_make_vcb_64bit(void* vcb, u16* grow) noexcept
{
    const block_format* format = convertible(header_of(vcb).opcode, header_of(vcb).format);
    *grow = format == nullptr ? u16{0} : widen_block(static_cast<u8*>(vcb), *format);
}

void vav_make_vcb_32bit(void* vcb, u16 opcode, u8 format, u16* shrink) noexcept
{
    const block_format* travelled = convertible(opcode, format);
    *shrink = travelled == nullptr ? u16{0} : narrow_block(static_cast<u8*>(vcb), *travelled);
}

u16 travelling_length(u16 opcode, u8 format) noexcept
{
    if (is_receive_allocate(opcode))
        return sizeof(appc_receive_allocate);
    if (opcode == TP_STARTED)
        return sizeof(appc_tp_started);
    const verb_row* verb = find_verb(opcode);
    return verb == nullptr || format > 1 ? u16{0} : verb->format[format].node_length;
}

}  // namespace tessaly
