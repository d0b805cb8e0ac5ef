/**
 * @file tavutil/bit_ops.h
 * @brief Base64 and bit strings.
 *
 * Blocks handed to the caller come from `malloc` and are released with
 * `free`.
 */
#ifndef TAVUTIL_BIT_OPS_H
#define TAVUTIL_BIT_OPS_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Base64 (standard alphabet, "=" padding) ----------------------------
 * Counted byte runs in and out, no terminators. Silent: the status is the
 * only report, and TAV_ERR_NOMEM the only failure. No pointer is tested. */

/**
 * @brief Length of the Base64 form of @p length bytes: 4 characters per
 * started group of 3, no terminator counted.
 * @param length Number of input bytes.
 * @return The encoded length; 0 for 0.
 */
uint64_t tav_util_to_base64_size(uint64_t length);

/**
 * @brief Encodes bytes as Base64 (standard alphabet, "=" padding).
 *
 * Silent: a failed allocation gives TAV_ERR_NOMEM with no line and no trace,
 * null in @p out and the encoded length in @p size_out. No pointer is tested.
 * @param bytes    The bytes.
 * @param length   Their count.
 * @param out      Receives a block of exactly @p *size_out characters, with
 *                 no terminator.
 * @param size_out Receives the encoded length.
 * @return TAV_OK or TAV_ERR_NOMEM.
 */
tav_status tav_util_base64_encode(const uint8_t *bytes, uint64_t length, char **out,
                                  uint64_t *size_out);

/**
 * @brief Decodes Base64; every character outside the alphabet ("=", blanks,
 * newlines, any other byte) is skipped wherever it stands.
 *
 * A last group of 2 or 3 characters gives 1 or 2 bytes, one of 1 character
 * gives 3. Silent: a failed allocation gives TAV_ERR_NOMEM with no line and no
 * trace, null in @p out and (@p length / 4) * 3 in @p size_out. No input is
 * refused otherwise, and no pointer is tested.
 * @param text     The encoded characters, not necessarily terminated.
 * @param length   Their count.
 * @param out      Receives the decoded bytes.
 * @param size_out Receives their count.
 * @return TAV_OK or TAV_ERR_NOMEM.
 */
tav_status tav_util_base64_decode(const char *text, uint64_t length, uint8_t **out,
                                  uint64_t *size_out);

/* ---- Bit strings (most significant bit of byte 0 first) ----------------- */

/**
 * @brief Shifts a bit string towards its start by @p shift bits, in place.
 *
 * The whole bytes of the shift leave the front and @p *length shrinks by
 * them. With a shift that is not a whole number of bytes, the bytes behind the
 * new length are cleared up to the former length. A shift of 8 * @p *length
 * bits or more leaves an empty string. A null pointer gives the plain error
 * line "NULL argument detected: %p %p" and TAV_ERR_NULL_ARG, traced, and
 * changes nothing.
 * @param bytes  The string, changed in place.
 * @param length In and out: its length in bytes.
 * @param shift  Shift in bits.
 * @return TAV_OK or TAV_ERR_NULL_ARG.
 */
tav_status tav_util_shift_bitstring_left(uint8_t *bytes, uint64_t *length, uint64_t shift);

/**
 * @brief Spreads each bit over one byte (0 or 1), most significant bit first.
 *
 * Failures: a null pointer gives the plain error line "NULL parameter
 * detected: %p %p %p" and TAV_ERR_NULL_ARG, traced; a failed allocation
 * "Memory allocation failed" and TAV_ERR_NOMEM, traced, with null in @p out.
 * @param bytes    The bit string.
 * @param length   Its length in bytes.
 * @param out      Receives a block of @p length * 8 bytes.
 * @param size_out Receives @p length * 8 (also on a failed allocation).
 * @return TAV_OK or a status above.
 */
tav_status tav_util_map_bitstring_to_bytes(const uint8_t *bytes, uint64_t length, uint8_t **out,
                                           uint64_t *size_out);

/**
 * @brief Writes each byte @p factor times in a row into a fresh block.
 *
 * Failures: a null pointer gives the plain error line "NULL parameter
 * detected: %p %p %p" and TAV_ERR_NULL_ARG, traced; a failed allocation, or a
 * size that cannot be met (a negative factor, a product past 64 bits),
 * "Memory allocation failed" and TAV_ERR_NOMEM, traced, with null in @p out.
 * @param bytes    The bytes.
 * @param length   Their count.
 * @param factor   Repetitions of each byte.
 * @param out      Receives a block of @p factor * @p length bytes.
 * @param size_out Receives that size (also on a failed allocation).
 * @return TAV_OK or a status above.
 */
tav_status tav_util_expand_byte_array(const uint8_t *bytes, uint64_t length, int32_t factor,
                                      uint8_t **out, uint64_t *size_out);

#ifdef __cplusplus
}
#endif

#endif
