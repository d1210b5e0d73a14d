// Whether a port may be used by a service of the gateway.
#ifndef OXCFG_PLATFORM_CHECK_PORT_H
#define OXCFG_PLATFORM_CHECK_PORT_H

// Returns -1 for a port that may not be used: 0, above 65535, or, for
// protocol 1 (TCP), one on which a listening socket cannot be bound on all
// addresses right now (in use, or privileged for this process). Otherwise
// returns the port. Other protocol values only get the range check. The probe
// socket is closed before returning.
int CheckPort(int port, int protocol);

#endif  // OXCFG_PLATFORM_CHECK_PORT_H
