// Hexadecimal text and MD5. Lower-case hexadecimal everywhere.
#ifndef OXCFG_PLATFORM_HEX_H
#define OXCFG_PLATFORM_HEX_H

#include <string>

// Writes two hexadecimal characters per byte of `in` into `out`, at most
// `outLen` characters (whole bytes only), and a terminating NUL when there is
// room for it. Returns the number of characters written, or -1 for null or
// negative arguments.
int convertByteArrayToCharArray(const unsigned char* in, int inLen, char* out, int outLen);

// Reads `inLen` hexadecimal characters (upper or lower case) into at most
// `outLen` bytes, two characters per byte; a character that is not
// hexadecimal counts as 0 and an odd last character is ignored. Returns the
// number of bytes written, or -1 for null or negative arguments.
int convertCharArrayToByteArray(const char* in, int inLen, unsigned char* out, int outLen);

// Hexadecimal text of `len` bytes.
std::string Vlue2HexString(const unsigned char* in, int len);

// MD5 of `len` bytes of `in` as 32 hexadecimal characters and a NUL into
// `out` (at least 33 bytes). Returns 0, or -1 on failure.
int mprGetMD5Hash(const unsigned char* in, int len, char* out);

#endif  // OXCFG_PLATFORM_HEX_H
