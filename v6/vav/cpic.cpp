#include "v6/vav/cpic.h"

#include "common/ebcdic.h"
#include "runtime/node_runtime.h"
#include "v6/vav/incoming.h"
#include "verbs/block.h"

#include <cstring>

namespace tessaly {

namespace {

u16 send(void* vcb, cpic_datagram& datagram, datagram_type type) noexcept
{
    datagram.header = {sizeof datagram, type};
    std::memset(datagram.blanks, ' ', sizeof datagram.blanks);
    datagram.zero_200 = 0;
    const u16 status = vpm_send_datagram(DATAGRAM_DESTINATION, 0, &datagram, sizeof datagram);
    if (status != 0)
        set_codes(vcb, UNEXPECTED_SYSTEM_ERROR, status);
    return status;
}

}  // namespace

u16 vav_register_cpic_tp(void* vcb) noexcept
{
    cpic_datagram datagram;
    vav_copy_tp_name(datagram.tp_name, block_as<appc_cpic_tp>(vcb).tp_name);
    return send(vcb, datagram, DATAGRAM_REGISTER_CPIC);
}

// Withdraws by the whole field, not by the name's used length.
u16 vav_unregister_cpic_tp(void* vcb) noexcept
{
    const u8* name = block_as<appc_cpic_tp>(vcb).tp_name;
    cpic_datagram datagram;
    datagram.tp_name.length = TP_NAME_BYTES;
    if (name[0] != 0)
        std::memcpy(datagram.tp_name.name, name, TP_NAME_BYTES);
    else
        std::memset(datagram.tp_name.name, EBCDIC_BLANK, TP_NAME_BYTES);
    return send(vcb, datagram, DATAGRAM_UNREGISTER_CPIC);
}

}  // namespace tessaly
