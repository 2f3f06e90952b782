// The exported layout tables, read off the catalogue at compile time. The library itself looks verbs up in the
// catalogue.

#include "common/export.h"
#include "v6/vav3264/convert.h"
#include "verbs/catalogue.h"

#include <tessaly/layout.h>

#include <algorithm>
#include <array>

static_assert(VAV_MAIN_OPCODES == tessaly::MAIN_OPCODES && VAV_2ND_OPCODES == tessaly::SECOND_OPCODES);
static_assert(VAV_2ND_FIRST == tessaly::FIRST_2ND_OPCODE);

namespace tessaly {

namespace {

// The rows of one opcode range, with the index of each format in that range's tables.
template <u16 first, u16 count, typename Visit>
constexpr void for_each_entry(Visit visit)
{
    for (const verb_row& verb : verbs) {
        const u16 index = static_cast<u16>(verb.opcode - first);
        for (u16 format = 0; index < count && format < 2; ++format)
            visit(static_cast<u32>(format * count + index), verb, verb.format[format]);
    }
}

template <u16 first, u16 count>
constexpr auto make_data_table()
{
    std::array<verb_data, 2 * count> table{};
    for_each_entry<first, count>([&table](u32 index, const verb_row& verb, const block_format& format) {
        table[index] = {format.length, verb.conv_verb};
    });
    return table;
}

constexpr auto make_sizes_table()
{
    std::array<verb_sizes, 2 * MAIN_OPCODES> table{};
    for_each_entry<0, MAIN_OPCODES>([&table](u32 index, const verb_row&, const block_format& format) {
        table[index] = {format.length, format.node_length, format.pointer_1, format.pointer_2};
    });
    return table;
}

}  // namespace

// A C array cannot be initialised from a computed one, so these carry the exported names of <tessaly/layout.h> as
// labels.
TESSALY_EXPORT extern const std::array<verb_data, 2 * MAIN_OPCODES> main_data __asm__("vav_vcb");
TESSALY_EXPORT extern const std::array<verb_data, 2 * SECOND_OPCODES> second_data __asm__("vav_vcb2");
TESSALY_EXPORT extern const std::array<verb_sizes, 2 * MAIN_OPCODES> main_sizes __asm__("vav_main_verb_sizes");
TESSALY_EXPORT extern const std::array<verb_sizes, 2 * SECOND_OPCODES> second_sizes __asm__("vav_2nd_verb_sizes");

constexpr std::array<verb_data, 2 * MAIN_OPCODES> main_data = make_data_table<0, MAIN_OPCODES>();
constexpr std::array<verb_data, 2 * SECOND_OPCODES> second_data = make_data_table<FIRST_2ND_OPCODE, SECOND_OPCODES>();
constexpr std::array<verb_sizes, 2 * MAIN_OPCODES> main_sizes = make_sizes_table();

// Verbs of the second range never travel. Nothing reads these rows, whose values are part of the binary interface all
// the same.
constexpr std::array<verb_sizes, 2 * SECOND_OPCODES> second_sizes = {{
    {0, 208, 196, 0}, {188, 76, 0, 0}, {0, 76, 0, 0}, {28, 0, 0, 0},
    {0, 208, 196, 0}, {188, 0, 0, 0}, {0, 0, 0, 0}, {28, 192, 0, 0},
}};

static_assert(main_data[MAIN_OPCODES + SEND_DATA].length == 36 && main_data[SEND_DATA].conv_verb == 1);
static_assert(main_sizes[SEND_CONVERSATION].node_length == 208 && main_sizes[SEND_CONVERSATION].pointer_2 == 0xBC);
static_assert(second_data[SECOND_OPCODES + (RECEIVE_ALLOCATE_EX - FIRST_2ND_OPCODE)].length == 192);

void vav_init_ptr_offsets() noexcept
{
    std::fill(std::begin(vav_vcb_ptrs), std::end(vav_vcb_ptrs), verb_pointers{});
    std::fill(std::begin(vav_vcb2_ptrs), std::end(vav_vcb2_ptrs), verb_pointers{});
    for_each_entry<0, MAIN_OPCODES>([](u32 index, const verb_row&, const block_format& format) {
        vav_vcb_ptrs[index] = {format.pointer_1, format.pointer_2};
    });
    for_each_entry<FIRST_2ND_OPCODE, SECOND_OPCODES>([](u32 index, const verb_row&, const block_format& format) {
        vav_vcb2_ptrs[index] = {format.pointer_1, format.pointer_2};
    });
}

}  // namespace tessaly

TESSALY_EXPORT verb_pointers vav_vcb_ptrs[2 * VAV_MAIN_OPCODES];
TESSALY_EXPORT verb_pointers vav_vcb2_ptrs[2 * VAV_2ND_OPCODES];
