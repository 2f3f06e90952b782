#include "v6/vav/version.h"

#include "common/export.h"
#include "common/invariant.h"
#include "v6/records/modules.h"
#include "verbs/block.h"

extern "C" {

TESSALY_EXPORT extern const unsigned short vav_appc_caps_5_1_2[3] = {6, 1, 0x0015};
TESSALY_EXPORT extern const unsigned short vav_appc_caps_6_0[4] = {8, 1, 0x0015, 0xF001};
TESSALY_EXPORT extern const unsigned short vav_appc_caps_7_0[4] = {8, 1, 0x0015, 0xF002};
TESSALY_EXPORT const unsigned short* vav_appc_caps = vav_appc_caps_5_1_2;

}  // extern "C"

namespace tessaly {

namespace {

enum class format_choice : u8 { format_0, format_1, callers_from_version_2 };

format_choice choice_for(u16 opcode) noexcept
{
    switch (opcode) {
    case ALLOCATE:
    case DEALLOCATE:
    case GET_ATTRIBUTES:
    case RECEIVE_ALLOCATE:
    case GET_TP_PROPERTIES:
    case TEST_RTS_AND_POST:
    case RECEIVE_ALLOCATE_CPIC:
    case RECEIVE_ALLOCATE_EX:
        return format_choice::format_1;
    case CONFIRM:
    case GET_TYPE:
    case SEND_DATA:
        return format_choice::callers_from_version_2;
    default:
        return format_choice::format_0;
    }
}

}  // namespace

void vav_set_version(u32 version, void* vcb) noexcept
{
    if (!invariant(version == 1 || version == 2, VAV, "FALSE"))
        return;
    vav_appc_caps = version == 1 ? vav_appc_caps_6_0 : vav_appc_caps_7_0;

    block_header& header = header_of(vcb);
    const format_choice choice = choice_for(header.opcode);
    if (choice == format_choice::callers_from_version_2 && version == 2)
        invariant(header.format <= 1, VAV, "((VAV_HDR(vcb)->format) == 0) || ((VAV_HDR(vcb)->format) == 1)");
    else
        header.format = choice == format_choice::format_1;
}

}  // namespace tessaly
