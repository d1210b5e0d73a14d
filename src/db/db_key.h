// Where the configuration database's key comes from. The key is the private
// configuration's storage key; the databases do not know that object, so the
// composition root installs a provider that fetches it.
#ifndef OXCFG_DB_DB_KEY_H
#define OXCFG_DB_DB_KEY_H

#include <functional>

namespace OxConfigMgr {

// Length of the configuration database's key: the private configuration's
// storage key.
constexpr int kDBKeyLength = 32;

// Writes the kDBKeyLength key bytes into `out`; false when there is no key
// (for instance before the private configuration is loaded).
using ConfigDbKeyProvider = std::function<bool(unsigned char out[kDBKeyLength])>;

// Installs the provider (an empty one removes it). Thread-safe; a call that
// is fetching the key meanwhile finishes with the provider it started with.
void SetConfigDbKeyProvider(ConfigDbKeyProvider provider);

// Fetches the key through the installed provider. False, with `out` zeroed,
// when none is installed, it has no key, or it throws (the exception is
// caught). Thread-safe.
bool GetConfigDbKey(unsigned char out[kDBKeyLength]);

}  // namespace OxConfigMgr

#endif  // OXCFG_DB_DB_KEY_H
