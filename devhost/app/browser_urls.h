// The host names a browser can open for the address the host listens on.
#ifndef DEVHOST_BROWSER_URLS_H
#define DEVHOST_BROWSER_URLS_H

#include <string>
#include <vector>

namespace devhost {

// The address itself; for the wildcard 0.0.0.0, which a browser cannot open,
// the loopback address first, then the machine's own IPv4 addresses (its
// interfaces that are up, loopback ones left out) and last its name.
std::vector<std::string> BrowserHosts(const std::string& address);

}  // namespace devhost

#endif  // DEVHOST_BROWSER_URLS_H
