// SPDX-License-Identifier: MIT
// Reading of caller-display data blocks that stays inside the library.
#ifndef VOICE_LIBVOICE_UTILS_H
#define VOICE_LIBVOICE_UTILS_H

#include <stdint.h>

namespace voice {

// The value of two characters as strtol() reads them with base 16, its low 16 bits: white space and a sign are
// accepted, reading stops at the first other character, no digits give 0. A text that ends at the first or second is
// fine.
uint16_t libvoice_db_hex_byte(const char *characters);

// 1 when the block's checksum is right. 0 and one level-100 trace message when it is not, or when the text is NULL or
// ends before the checksum that its length byte announces.
int libvoice_db_verify_checksum(const char *text);

} // namespace voice

#endif
