/* Names as blocks want them, for the examples: padded with blanks to their full width, without a terminator. */
#ifndef TESSALY_EXAMPLES_NAMES_H
#define TESSALY_EXAMPLES_NAMES_H

#include <string.h>

/* LU aliases are 8 ASCII characters. */
static void set_alias(unsigned char alias[8], const char *text)
{
    size_t length = strlen(text);
    memset(alias, ' ', 8);
    memcpy(alias, text, length < 8 ? length : 8);
}

/* TP and mode names are EBCDIC; capital letters and digits do for an example. */
static void set_ebcdic(unsigned char *name, size_t width, const char *text)
{
    size_t at;
    memset(name, 0x40, width);
    for (at = 0; at < width && text[at] != '\0'; ++at) {
        const char c = text[at];
        if (c >= 'A' && c <= 'I')
            name[at] = (unsigned char)(0xC1 + (c - 'A'));
        else if (c >= 'J' && c <= 'R')
            name[at] = (unsigned char)(0xD1 + (c - 'J'));
        else if (c >= 'S' && c <= 'Z')
            name[at] = (unsigned char)(0xE2 + (c - 'S'));
        else if (c >= '0' && c <= '9')
            name[at] = (unsigned char)(0xF0 + (c - '0'));
    }
}

#endif
