/* tessaly/diagnostics.h - formatted text without surprises, the verb trace, and which build of the library this is.
 *
 * Nothing here keeps anything; every operation may be called from any thread, and only the trace takes a lock. Text is in
 * the local character set (ASCII) and ends with a zero byte. */
#ifndef TESSALY_DIAGNOSTICS_H
#define TESSALY_DIAGNOSTICS_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __GNUC__
#define TESSALY_LIKE_PRINTF(format, first) __attribute__((__format__(__printf__, format, first)))
#else
#define TESSALY_LIKE_PRINTF(format, first)
#endif

/* ---- The print engine -------------------------------------------------------------------------------------------
 * Formats of their own kind: every argument is one 32-bit word, and there are no floating-point conversions.
 *
 *     %d %i %w   signed decimal          %o           octal, with # behind a 0
 *     %u         unsigned decimal        %x %X %p     hexadecimal with A to F, with # behind 0X
 *     %c         the word's low byte, as it is: no width applies
 *     %s         a zero-terminated string; null prints as (null)
 *     %%         a percent sign
 *
 * Between % and the conversion: # as above; - sets the text at the left of its width; 0 in front of the width pads numbers
 * with zeros, before a sign as well; the width; a period and the precision, the fewest digits of a number or the most
 * characters of a string (0: all). * takes width or precision from the next argument: a negative width pads nothing, a
 * negative precision leaves nothing of a string. l and L change nothing.
 *
 * What is none of these is a programming error: it is reported to the runtime (v0_assert), and the character is printed
 * as text; behind l or L, an argument is first printed as with %d, without a report. */

/* Formats into a buffer.
 *   buffer  receives the text and its zero byte
 *   limit   0: the buffer holds the whole text, whatever it is. Otherwise the buffer's size in bytes, of which none behind
 *           is ever written: as soon as more than limit - 20 characters are there, a newline and two zero bytes end the
 *           text, and a single conversion that is longer is cut. With a limit of 1 to 3 all bytes become zero; a negative
 *           one writes nothing.
 *   format  zero-terminated
 *   args    the argument words, one after the other
 * Result: the number of characters in front of the zero byte; after a cut one more. */
int t_print_args(char *buffer, int limit, const char *format, const unsigned int *args);

/* The same without a limit, with the arguments one by one, all of 32 bits. */
int t_sprintf(char *buffer, const char *format, ...);

/* printf, fprintf and sprintf of the C library, with its formats and results. */
int nb_printf(const char *format, ...) TESSALY_LIKE_PRINTF(1, 2);
int nb_fprintf(FILE *stream, const char *format, ...) TESSALY_LIKE_PRINTF(2, 3);
int nb_sprintf(char *buffer, const char *format, ...) TESSALY_LIKE_PRINTF(2, 3);

/* ---- The verb trace ---------------------------------------------------------------------------------------------
 * The library writes these records itself while the node runtime has its API trace on; sister libraries may add some. With
 * the trace off, or without a trace file, nothing is written. Nothing is reported, and no block is changed. */

/* Writes a request or response record: the verb in words, in a response its result too, the block, and the data it names.
 *   kind  1: request, 2: response; any other value: a response with the data of a request
 *   vcb   the verb's block, as long as its struct in tessaly/appc.h; of an unknown opcode 6 bytes are read */
void seputrap(unsigned short kind, void *vcb);

/* Writes an implied-forget record.
 *   vcb       address of the DEALLOCATE's block, printed only
 *   corr      the value that the program gave with the DEALLOCATE
 *   conv_id   the conversation
 *   tp_id     8 bytes
 *   type      0: data flow, 1: UNBIND, 2: failure; others are shown as unknown
 *   callback  address of the program's routine, printed only */
void seputrap2(void *vcb, unsigned int corr, unsigned int conv_id, const unsigned char *tp_id, unsigned short type,
               void *callback);

/* ---- The version ------------------------------------------------------------------------------------------------
 * Texts in fields of 255 bytes, zeros behind them. Callers change and free nothing. */

/* The version and the library's name, one line. */
const char *o6_verstamp(void);

/* The version with the marker %1, for an insert by the caller. */
const char *o6_verstamp_tvt(void);

extern char o6_verstring1[255];     /* what o6_verstamp gives */
extern char o6_verstring1_tvt[255]; /* what o6_verstamp_tvt gives */

/* Three lines that begin with the what-string marker, to be found in the library's file. */
extern char o6_verstring[255];

extern char o6_dummy[512]; /* unused */

#ifdef __cplusplus
}
#endif

#endif
