/* tessaly/names.h - SNA names: comparing, checking, splitting and building them.
 *
 * All names are fixed-width fields without a terminator. The character set of each is given at its operation:
 *
 *     SNA name                 8 bytes   EBCDIC, padded with EBCDIC blanks (0x40): LU name, mode name, network ID
 *     network-qualified name  17 bytes   EBCDIC: network ID, period (0x4B), name, padded with EBCDIC blanks
 *     TP name                 64 bytes   EBCDIC, padded with EBCDIC blanks
 *     ASCII SNA name           8 bytes   ASCII, padded with ASCII blanks (0x20)
 *
 * The operations are pure functions of their arguments: they keep nothing, allocate nothing, take no lock, and may be
 * called from any thread at any time. They read and write exactly the widths given. Pointers are never null. */
#ifndef TESSALY_NAMES_H
#define TESSALY_NAMES_H

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char ntl_u8;   /*  8 bits */
typedef unsigned short ntl_u16; /* 16 bits */
typedef unsigned int ntl_u32;   /* 32 bits */
typedef signed int ntl_i32;     /* 32 bits */

/* A session identifier; the second field is the more significant one. */
struct ntl_lfsid {
    ntl_u16 first;
    ntl_u16 second;
};

/* A procedure correlation identifier: 25 bytes. */
struct ntl_fqpcid {
    ntl_u8 id[8];
    ntl_u8 fq_name[17]; /* EBCDIC */
};

/* ---- Comparing -------------------------------------------------------------------------------------------------
 * Results are negative when the first argument sorts before the second, 0 when they are equal, positive when it sorts
 * after; which values occur is given, since callers may keep them. */

/* Plain order: the bytes as they are, as unsigned values, the first difference decides. EBCDIC names thus sort in EBCDIC
 * code order: lower-case letters, upper-case letters, digits. */

/* One byte each. Result: first minus second, -255 to 255. */
ntl_i32 ntl_compare_byte(const ntl_u8 *a, const ntl_u8 *b);

/* The second fields decide, the first ones only when those are equal. Result: their difference, -65535 to 65535. */
ntl_i32 ntl_compare_lfsid(const struct ntl_lfsid *a, const struct ntl_lfsid *b);

/* Procedure identifiers of 4 bytes, SNA names of 8, network-qualified names of 17, TP names of 64. Result: -1, 0 or 1. */
ntl_i32 ntl_compare_proc_id(const ntl_u8 *a, const ntl_u8 *b);
ntl_i32 ntl_compare_name(const ntl_u8 *a, const ntl_u8 *b);
ntl_i32 ntl_compare_fq_name(const ntl_u8 *a, const ntl_u8 *b);
ntl_i32 ntl_compare_tp_name(const ntl_u8 *a, const ntl_u8 *b);

/* MIB order, in which a management information base lists names: the name with fewer characters before its first blank
 * comes first, then the result is the difference of these lengths (-8 to 8, -17 to 17, -64 to 64). Names of the same
 * length are compared in the local character set (ASCII), over their whole width, what follows the first blank
 * included: -1, 0 or 1. */

/* ASCII SNA names, 8 bytes each. */
ntl_i32 ntl_compare_mib_ascii_sna_name(const ntl_u8 *a, const ntl_u8 *b);

/* SNA names, EBCDIC, 8 bytes each. A name that begins with a blank counts as 8 characters long. */
ntl_i32 ntl_compare_mib_sna_name(const ntl_u8 *a, const ntl_u8 *b);

/* Network-qualified names, EBCDIC, 17 bytes each; the period counts as a character. */
ntl_i32 ntl_compare_mib_fq_name(const ntl_u8 *a, const ntl_u8 *b);

/* TP names, EBCDIC, 64 bytes each. */
ntl_i32 ntl_compare_mib_tp_name(const ntl_u8 *a, const ntl_u8 *b);

/* By name in MIB order, which gives the result unless the names are equal; then by identifier in plain order, -1, 0, 1. */
ntl_i32 ntl_compare_fqpcid(const struct ntl_fqpcid *a, const struct ntl_fqpcid *b);

/* The number of bytes before the first EBCDIC blank of a field of that width, the width when it has none. */
ntl_u16 ntl_name_length(const ntl_u8 *field, ntl_u16 width);

/* ---- Checking and splitting ------------------------------------------------------------------------------------ */

/* What a network-qualified name is, or the first thing that is wrong with it. */
#define NTL_FQ_QUALIFIED 1      /* valid: network ID, period, name */
#define NTL_FQ_UNQUALIFIED 2    /* valid: a name alone */
#define NTL_FQ_NETID_TOO_LONG 3 /* more than 8 characters before the period */
#define NTL_FQ_NAME_TOO_LONG 4  /* more than 8 characters of name */
#define NTL_FQ_NETID_BAD_CHAR 5
#define NTL_FQ_NAME_BAD_CHAR 6
#define NTL_FQ_NETID_EMPTY 7   /* begins with the period */
#define NTL_FQ_NAME_EMPTY 8    /* blank where the name begins */
#define NTL_FQ_TRAILING_TEXT 9 /* something follows the blank that ends the name */

/* Whether all characters of an EBCDIC name belong to a character class of the node runtime; class 8 has A to Z, 0 to 9,
 * $, # and @. Trailing blanks do not count, and a name of none but blanks, or of length 0, passes.
 * Result: not 0 when it is acceptable. */
ntl_u16 ntl_check_name(ntl_u8 char_class, const ntl_u8 *name, ntl_u16 length);

/* Checks a network-qualified name of 17 bytes; network ID and name consist of characters of class 8. Result: NTL_FQ_... */
ntl_u32 ntl_check_fq_name(const ntl_u8 *fq_name);

/* The same, and gives the parts, each 8 bytes, EBCDIC, padded with blanks. Both outputs are always written: as zeros for
 * a name that is not valid, and the network ID as zeros when there is none. */
ntl_u32 ntl_split_fq_name(const ntl_u8 *fq_name, ntl_u8 *network_id, ntl_u8 *name);

/* ---- Building --------------------------------------------------------------------------------------------------
 * These check no characters. An output never overlaps an input. */

/* Joins a network ID and a name, 8 bytes each, to a network-qualified name of 17 bytes. */
void ntl_make_fq_name(const ntl_u8 *network_id, const ntl_u8 *name, ntl_u8 *fq_name);

/* The network-qualified name with another name part of 8 bytes; 17 bytes in and out. A name alone gives the new name
 * alone; a name whose period comes behind more than 8 characters gives 17 zeros. */
void ntl_change_local_name(const ntl_u8 *fq_name, const ntl_u8 *new_name, ntl_u8 *changed);

/* The input without its EBCDIC blanks, padded with blanks to the length of the output; what has no room is left out. */
void ntl_make_internal_name(ntl_u8 *output, ntl_u16 output_length, const ntl_u8 *input, ntl_u16 input_length);

extern const ntl_u8 null_name[128]; /* zeros */
extern const ntl_u8 mac_address_local_admin_min[6];

#ifdef __cplusplus
}
#endif

#endif
