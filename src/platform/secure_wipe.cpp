#include "platform/secure_wipe.h"

#include <string.h>  // explicit_bzero

namespace OxBase {

// explicit_bzero runs at memset speed (OPENSSL_cleanse goes byte by byte)
// and is guaranteed not to be optimised away.
void SecureWipe(void* p, size_t len) {
  if (p && len) explicit_bzero(p, len);
}

}  // namespace OxBase
