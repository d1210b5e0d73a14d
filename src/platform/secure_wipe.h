// Wiping secrets from memory: the one way the library clears keys, digests
// and passwords once it is done with them.
#ifndef OXCFG_PLATFORM_SECURE_WIPE_H
#define OXCFG_PLATFORM_SECURE_WIPE_H

#include <cstddef>
#include <string>

namespace OxBase {

// Overwrites `len` bytes at `p` with zeros; the compiler may not drop it.
void SecureWipe(void* p, size_t len);

inline void SecureWipe(std::string& s) {
  if (!s.empty()) SecureWipe(&s[0], s.size());
}

// Wipes a local buffer or record when the scope ends, on every path.
class ScopedWipe {
 public:
  ScopedWipe(void* p, size_t len) : p_(p), len_(len) {}
  ~ScopedWipe() { SecureWipe(p_, len_); }
  ScopedWipe(const ScopedWipe&) = delete;
  ScopedWipe& operator=(const ScopedWipe&) = delete;

 private:
  void* p_;
  size_t len_;
};

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_SECURE_WIPE_H
