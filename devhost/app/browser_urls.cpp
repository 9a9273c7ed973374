#include "browser_urls.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace devhost {

namespace {

constexpr const char* kWildcard = "0.0.0.0";
constexpr const char* kLoopback = "127.0.0.1";

void AddOnce(std::vector<std::string>& list, const std::string& host)
{
    if (!host.empty() && std::find(list.begin(), list.end(), host) == list.end()) {
        list.push_back(host);
    }
}

}  // namespace

std::vector<std::string> BrowserHosts(const std::string& address)
{
    if (address != kWildcard) {
        return {address};
    }
    std::vector<std::string> hosts{kLoopback};
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) == 0) {
        for (const ifaddrs* i = all; i != nullptr; i = i->ifa_next) {
            if (i->ifa_addr == nullptr || i->ifa_addr->sa_family != AF_INET || (i->ifa_flags & IFF_UP) == 0 ||
                (i->ifa_flags & IFF_LOOPBACK) != 0) {
                continue;
            }
            char text[INET_ADDRSTRLEN] = "";
            const auto* in = reinterpret_cast<const sockaddr_in*>(i->ifa_addr);
            if (inet_ntop(AF_INET, &in->sin_addr, text, sizeof(text)) != nullptr) {
                AddOnce(hosts, text);
            }
        }
        freeifaddrs(all);
    }
    char name[HOST_NAME_MAX + 1] = "";
    if (gethostname(name, sizeof(name)) == 0 && std::string(name) != "localhost") {
        name[HOST_NAME_MAX] = '\0';
        AddOnce(hosts, name);
    }
    return hosts;
}

}  // namespace devhost
