// The way in for a browser: a host that needs its access token answers a
// browser's page load without it with a small HTML page that says how to get
// in and takes the token, instead of the JSON refusal that scripts get.
#ifndef DEVHOST_HTTP_WAY_IN_H
#define DEVHOST_HTTP_WAY_IN_H

#include <optional>
#include <string>

#include "http_front.h"

struct MHD_Connection;

namespace devhost {

// The way-in page's own stylesheet, script and icon, which it loads before it
// has the token: served to every client (they hold nothing of the host).
bool IsWayInAsset(const std::string& path);

// For a refusal (401) of a GET or HEAD of a console path ("/", "/console/...")
// whose Accept header prefers text/html and that offers no Authorization
// header: the way-in page (still 401, with the refusal's headers), saying why
// the browser was refused. Nothing for any other request.
std::optional<HttpReply> WayInPage(MHD_Connection* connection, const char* method, const std::string& path,
                                   const std::string& target, const HttpReply& denial);

// True when an Accept header names text/html with a quality at least that of
// JSON (application/json, application/*, or */* when neither is named).
bool PrefersHtml(const char* accept);

}  // namespace devhost

#endif  // DEVHOST_HTTP_WAY_IN_H
