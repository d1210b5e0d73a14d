// Pieces of the picture storage area shared by its files and tests.
#ifndef OXCFG_NETWORK_STORAGE_CONFIG_H
#define OXCFG_NETWORK_STORAGE_CONFIG_H

#include <string>

namespace OxConfigMgr {

// The request path of an upload selects the pool of the picture: true when
// `url`, cut at its first "?" (the query is ignored), equals `path` exactly.
bool cmpURL(std::string url, const char* path);

}  // namespace OxConfigMgr

#endif  // OXCFG_NETWORK_STORAGE_CONFIG_H
