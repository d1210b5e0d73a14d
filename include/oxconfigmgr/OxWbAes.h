// The white-box block cipher: a table-driven implementation of the AES block
// cipher (128-bit blocks; 128-, 192- and 256-bit keys, 10, 12 and 14 rounds)
// with ECB and CBC modes, each with zero padding or PKCS#7 padding.
//
// The round transformations are lookups in fixed encoded tables built into
// the library; the round keys are passed in at every call as a block of
// masked key material (244 bytes), so the same tables serve any key material
// made for them. Enciphering and deciphering take different key-material
// blocks (the deciphering one holds the round keys in the order and form of
// the equivalent inverse cipher). Data enciphered with one build's tables can
// only be deciphered with the same tables. The tables obfuscate the key; they
// do not make its extraction impossible.
//
// Common contract of every function below:
//  - Parameters, in order: input bytes; input length in bytes; output
//    buffer; output length (in: the buffer's capacity in bytes, out: the
//    number of bytes written, set only on success and before any block is
//    processed); key size in bits (128, 192 or 256); key material (244 bytes,
//    enciphering or deciphering block as the function requires); for CBC the
//    16-byte IV, which is only read (the caller's IV is never updated).
//  - Results: 0 success;
//      0x10001000 a required pointer (input, output, output length, key
//                 material, and for CBC the IV) is null;
//      0x10001001 the key size is not 128, 192 or 256;
//      0x10001002 the capacity is smaller than the output length (also for
//                 a negative input length, or an output length that would
//                 not fit in an int, when enciphering);
//      0x10001003 the input length of a deciphering function is negative or
//                 not a multiple of 16.
//    Enciphering checks pointers, key size, capacity in this order;
//    deciphering checks pointers, length, capacity, key size. On any error
//    neither the output buffer nor the output length is touched.
//  - Input and output may be the same buffer; partially overlapping buffers
//    are not supported.
//  - State and memory: the first call in each direction (enciphering,
//    deciphering) derives from the built-in tables a rearranged copy for
//    faster lookups, about 420 KiB of heap per direction, kept for the rest
//    of the process and never freed. It depends on the tables only, never on
//    key material or data. It is allocated without throwing; when memory is
//    short the call still succeeds through the plain table lookups (slower)
//    and the next call tries again. Besides that, a call uses up to about
//    32 KiB of the caller's stack (the round keys bound to the tables).
//  - Thread safety: every function may be called from any number of threads
//    at once. The derived copy is built once under a lock and then only
//    read. The unmasked round keys and everything derived from them live on
//    the caller's stack and are wiped before returning.
//  - Processors: the block engine is chosen once per process from what the
//    processor offers (on x86-64 AVX-512, else AVX2; plain C++ on every
//    other processor). Every engine gives the same bytes; only the speed
//    differs.
#ifndef OXCONFIGMGR_OXWBAES_H
#define OXCONFIGMGR_OXWBAES_H

#include <oxconfigmgr/OxExport.h>

#ifdef __cplusplus
extern "C" {
#endif

// ECB, zero padding. Output length: the input length rounded up to a
// multiple of 16 (unchanged when already one). A final partial block is
// enciphered as if followed by zero bytes. A zero-length input writes
// nothing.
OXCFG_API int nyxwbaes_dynamic_ecb_encrypt(const unsigned char* in, int inLen, unsigned char* out,
                                           int* outLen, int keyBits, const unsigned char* key);

// ECB deciphering. Output length: the input length. Padding is not removed.
OXCFG_API int nyxwbaes_dynamic_ecb_decrypt(const unsigned char* in, int inLen, unsigned char* out,
                                           int* outLen, int keyBits, const unsigned char* key);

// CBC, zero padding: each block is XORed with the IV (first block) or the
// previous ciphertext block, then enciphered. Output length as for ECB; the
// missing bytes of a final partial block act as zero bytes.
OXCFG_API int nyxwbaes_dynamic_cbc_encrypt(const unsigned char* in, int inLen, unsigned char* out,
                                           int* outLen, int keyBits, const unsigned char* key,
                                           const unsigned char* iv);

// CBC deciphering: each block is deciphered and XORed with the IV (first
// block) or the previous ciphertext block. Output length: the input length.
// Deciphering in place (in == out) gives the same result as into a separate
// buffer.
OXCFG_API int nyxwbaes_dynamic_cbc_decrypt(const unsigned char* in, int inLen, unsigned char* out,
                                           int* outLen, int keyBits, const unsigned char* key,
                                           const unsigned char* iv);

// ECB / CBC with PKCS#7 padding: always 1 to 16 pad bytes, each equal to
// their count (a whole block of 16s when the input length is a multiple of
// 16). Output length: (input length / 16 + 1) * 16. A zero-length input
// gives one block of padding.
OXCFG_API int nyxwbaes_dynamic_ecb_encrypt_pkcs7(const unsigned char* in, int inLen,
                                                 unsigned char* out, int* outLen, int keyBits,
                                                 const unsigned char* key);
OXCFG_API int nyxwbaes_dynamic_cbc_encrypt_pkcs7(const unsigned char* in, int inLen,
                                                 unsigned char* out, int* outLen, int keyBits,
                                                 const unsigned char* key, const unsigned char* iv);

// ECB / CBC deciphering followed by PKCS#7 length trimming: the output length
// is the input length minus the value of the last deciphered byte. The
// padding is deliberately not verified: a last byte of 0 leaves the length
// unchanged, and a value larger than the input length makes the output
// length negative. A zero-length input yields length 0.
OXCFG_API int nyxwbaes_dynamic_ecb_decrypt_pkcs7(const unsigned char* in, int inLen,
                                                 unsigned char* out, int* outLen, int keyBits,
                                                 const unsigned char* key);
OXCFG_API int nyxwbaes_dynamic_cbc_decrypt_pkcs7(const unsigned char* in, int inLen,
                                                 unsigned char* out, int* outLen, int keyBits,
                                                 const unsigned char* key, const unsigned char* iv);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // OXCONFIGMGR_OXWBAES_H
