// wire/crc32.h: the CRC that stands for a file's path on the wire.
//
// Reflected CRC-32, polynomial 0xEDB88320, start value all ones, no inversion
// at the end: the variant catalogued as CRC-32/JAMCRC.
#pragma once

#include <string>

/// Returns the CRC of `len` more bytes, where `crc` is that of the bytes before them.
unsigned long crc32(unsigned long crc, const unsigned char* data, unsigned int len);

/// Returns the JAMCRC of `s`, as the signed number with the same 32 bits.
int crc32_str(const std::string& s);
