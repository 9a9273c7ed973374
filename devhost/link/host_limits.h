// The host's limits on what a client sends, in one place: the front applies
// them and the API document states them.
#ifndef DEVHOST_LINK_HOST_LIMITS_H
#define DEVHOST_LINK_HOST_LIMITS_H

#include <cstddef>

namespace devhost {

// The largest request head (request line and header lines) the host takes.
// libmicrohttpd keeps a head within its 32 KiB per connection; below that it
// is the host that refuses.
inline constexpr size_t kHeadLimit = 16 * 1024;
// The largest request body.
inline constexpr size_t kBodyLimit = 64 * 1024;

}  // namespace devhost

#endif  // DEVHOST_LINK_HOST_LIMITS_H
