/* tessaly/layout.h - the layout tables that libtessaly.so.7 exports for sister libraries.
 *
 * Every verb's block exists in two layouts: the caller's (32-bit pointers, tessaly/appc.h) and the node's, where each
 * pointer field is 8 bytes, starts at a multiple of 8 and the block is padded to a multiple of 8. The tables below
 * describe both.
 *
 * Index: opcodes 0x0000 to 0x0102 use the main tables at format * VAV_MAIN_OPCODES + opcode; opcodes 0xF100 to 0xF103
 * use the second tables at format * VAV_2ND_OPCODES + (opcode - VAV_2ND_FIRST). Format is 0 or 1. Lengths are in
 * bytes, offsets are byte offsets in the caller's layout, 0 for none. All tables are constant, but for vav_vcb_ptrs
 * and vav_vcb2_ptrs, which hold zeros until the library starts.
 */
#ifndef TESSALY_LAYOUT_H
#define TESSALY_LAYOUT_H

#ifdef __cplusplus
extern "C" {
#endif

#define VAV_MAIN_OPCODES 259
#define VAV_2ND_FIRST 0xF100
#define VAV_2ND_OPCODES 4
#define VAV_INVALID_VERB 0 /* a length: no such verb in this format */

typedef struct verb_data {
    unsigned short length;    /* of the block as a caller fills it */
    unsigned short conv_verb; /* 1: carries a conversation identifier at offset 20 */
} verb_data;

typedef struct verb_sizes {
    unsigned short caller_length;
    unsigned short node_length;
    unsigned short pointer_1; /* offset of the first pointer field */
    unsigned short pointer_2;
} verb_sizes;

typedef struct verb_pointers {
    unsigned short pointer_1;
    unsigned short pointer_2;
} verb_pointers;

extern const verb_data vav_vcb[2 * VAV_MAIN_OPCODES];
extern const verb_data vav_vcb2[2 * VAV_2ND_OPCODES];
extern const verb_sizes vav_main_verb_sizes[2 * VAV_MAIN_OPCODES];
extern const verb_sizes vav_2nd_verb_sizes[2 * VAV_2ND_OPCODES];
extern verb_pointers vav_vcb_ptrs[2 * VAV_MAIN_OPCODES];
extern verb_pointers vav_vcb2_ptrs[2 * VAV_2ND_OPCODES];

/* What the library tells the node about itself when a path is made: u16 values, the first one the block's length in
 * bytes. vav_appc_caps points to the block in force; a versioned entry point moves it and nothing moves it back. */
extern const unsigned short vav_appc_caps_5_1_2[3];
extern const unsigned short vav_appc_caps_6_0[4];
extern const unsigned short vav_appc_caps_7_0[4];
extern const unsigned short *vav_appc_caps;

/* vav_to_hex_string - writes count bytes as upper-case hexadecimal digits, two a byte, and a NUL.
 *   out    out  room for 2 * count + 1 characters
 *   count  in   bytes to show; 0 gives the empty string
 *   bytes  in */
void vav_to_hex_string(char *out, unsigned int count, const unsigned char *bytes);

#ifdef __cplusplus
}
#endif

#endif
