// Names made from others.
#include "names/ntlcomn_compare.h"

#include "common/ebcdic.h"
#include "common/export.h"

#include <algorithm>

using namespace tessaly;
using namespace tessaly::names;

extern "C" {

TESSALY_EXPORT void ntl_make_fq_name(const ntl_u8* network_id, const ntl_u8* name, ntl_u8* fq_name)
{
    std::fill_n(fq_name, FQ_NAME_BYTES, EBCDIC_BLANK);
    std::copy_n(network_id, NAME_BYTES, fq_name);
    ntl_u8* const period = fq_name + length_before(network_id, NAME_BYTES, EBCDIC_BLANK);
    *period = EBCDIC_PERIOD;
    std::copy_n(name, NAME_BYTES, period + 1);
}

TESSALY_EXPORT void ntl_change_local_name(const ntl_u8* fq_name, const ntl_u8* new_name, ntl_u8* changed)
{
    const u32 period = length_before(fq_name, FQ_NAME_BYTES, EBCDIC_PERIOD);
    std::fill_n(changed, FQ_NAME_BYTES, EBCDIC_BLANK);
    if (period == FQ_NAME_BYTES)
        std::copy_n(new_name, NAME_BYTES, changed);
    else if (period > NAME_BYTES)
        std::copy_n(null_name, FQ_NAME_BYTES, changed);
    else
        std::copy_n(new_name, NAME_BYTES, std::copy_n(fq_name, period + 1, changed));
}

TESSALY_EXPORT void ntl_make_internal_name(ntl_u8* output, ntl_u16 output_length, const ntl_u8* input, ntl_u16 input_length)
{
    std::fill_n(output, output_length, EBCDIC_BLANK);
    const ntl_u8* const end = output + output_length;
    for (const ntl_u8* next = input; next != input + input_length && output != end; ++next)
        if (*next != EBCDIC_BLANK)
            *output++ = *next;
}

}  // extern "C"
