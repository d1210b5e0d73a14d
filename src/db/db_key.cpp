#include "db/db_key.h"

#include <cstring>
#include <memory>
#include <utility>

#include "platform/secure_wipe.h"

namespace OxConfigMgr {

namespace {

// Replaced whole and read with atomic_load, so a reader never takes a lock
// and never sees a provider half-assigned.
std::shared_ptr<const ConfigDbKeyProvider> g_provider;

}  // namespace

void SetConfigDbKeyProvider(ConfigDbKeyProvider provider) {
  std::shared_ptr<const ConfigDbKeyProvider> next;
  if (provider) next = std::make_shared<const ConfigDbKeyProvider>(std::move(provider));
  std::atomic_store(&g_provider, std::move(next));
}

bool GetConfigDbKey(unsigned char out[kDBKeyLength]) {
  std::memset(out, 0, kDBKeyLength);
  std::shared_ptr<const ConfigDbKeyProvider> provider = std::atomic_load(&g_provider);
  bool ok = false;
  try {
    ok = provider && (*provider)(out);
  } catch (...) {
    ok = false;
  }
  if (!ok) OxBase::SecureWipe(out, kDBKeyLength);
  return ok;
}

}  // namespace OxConfigMgr
