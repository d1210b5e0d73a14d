// Symbol visibility of the public API.
//
// The library is built with hidden visibility by default; only what is marked
// OXCFG_API (classes, their members and the free functions of the public
// headers) is exported from liboxconfigmgr.so.
#ifndef OXCONFIGMGR_OXEXPORT_H
#define OXCONFIGMGR_OXEXPORT_H

#define OXCFG_API __attribute__((visibility("default")))

#endif  // OXCONFIGMGR_OXEXPORT_H
