#include "platform/hex.h"

#include <openssl/evp.h>

namespace {
const char kHex[] = "0123456789abcdef";

int Nibble(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 0;
}
}  // namespace

int convertByteArrayToCharArray(const unsigned char* in, int inLen, char* out, int outLen) {
  if (!in || !out || inLen < 0 || outLen < 0) return -1;
  int n = 0;
  for (int i = 0; i < inLen && n + 2 <= outLen; ++i) {
    out[n++] = kHex[in[i] >> 4];
    out[n++] = kHex[in[i] & 0x0F];
  }
  if (n < outLen) out[n] = '\0';
  return n;
}

int convertCharArrayToByteArray(const char* in, int inLen, unsigned char* out, int outLen) {
  if (!in || !out || inLen < 0 || outLen < 0) return -1;
  int n = 0;
  for (int i = 0; i + 1 < inLen && n < outLen; i += 2) {
    out[n++] = static_cast<unsigned char>((Nibble(in[i]) << 4) | Nibble(in[i + 1]));
  }
  return n;
}

std::string Vlue2HexString(const unsigned char* in, int len) {
  std::string s;
  if (!in || len <= 0) return s;
  s.resize(static_cast<size_t>(len) * 2);
  for (int i = 0; i < len; ++i) {
    s[2 * i] = kHex[in[i] >> 4];
    s[2 * i + 1] = kHex[in[i] & 0x0F];
  }
  return s;
}

int mprGetMD5Hash(const unsigned char* in, int len, char* out) {
  if (!in || !out || len < 0) return -1;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int digestLen = 0;
  if (EVP_Digest(in, static_cast<size_t>(len), digest, &digestLen, EVP_md5(), nullptr) != 1) return -1;
  convertByteArrayToCharArray(digest, static_cast<int>(digestLen), out, 33);
  return 0;
}
