/* Base64 and bit strings. */
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

/* Length of the encoded form of `length` bytes: 4 characters per started
 * group of 3; 0 for 0. No terminator is counted. */
uint64_t tav_util_to_base64_size(uint64_t length);

/* Encodes into a fresh malloc block of exactly *size_out characters (no
 * terminator). On failure *out is null and *size_out the encoded length. */
tav_status tav_util_base64_encode(const uint8_t *bytes, uint64_t length, char **out,
                                  uint64_t *size_out);

/* Decodes into a fresh malloc block; every character outside the alphabet
 * ("=", blanks, newlines, any other byte) is skipped wherever it stands. A
 * last group of 2 or 3 characters gives 1 or 2 bytes, one of 1 character
 * gives 3. On failure *out is null and *size_out is (length / 4) * 3. */
tav_status tav_util_base64_decode(const char *text, uint64_t length, uint8_t **out,
                                  uint64_t *size_out);

/* ---- Bit strings (most significant bit of byte 0 first) ----------------- */

/* Shifts the bit string towards its start by `shift` bits, in place: the
 * whole bytes of the shift leave the front and *length shrinks by them. With
 * a shift that is not a whole number of bytes, the bytes behind the new
 * length are cleared up to the former length. A shift of 8 * *length bits or
 * more leaves an empty string. */
tav_status tav_util_shift_bitstring_left(uint8_t *bytes, uint64_t *length, uint64_t shift);

/* Spreads each bit over one byte (0 or 1), most significant bit first, into
 * a fresh malloc block of length * 8 bytes. */
tav_status tav_util_map_bitstring_to_bytes(const uint8_t *bytes, uint64_t length, uint8_t **out,
                                           uint64_t *size_out);

/* Writes each byte `factor` times in a row into a fresh malloc block of
 * factor * length bytes. A negative factor cannot be met: TAV_ERR_NOMEM. */
tav_status tav_util_expand_byte_array(const uint8_t *bytes, uint64_t length, int32_t factor,
                                      uint8_t **out, uint64_t *size_out);

#ifdef __cplusplus
}
#endif

#endif
