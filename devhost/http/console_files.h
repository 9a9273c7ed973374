// The console: plain HTML, CSS and JavaScript files that the host serves at
// "/" (the page) and "/console/<file>", read from one directory.
#ifndef DEVHOST_CONSOLE_FILES_H
#define DEVHOST_CONSOLE_FILES_H

#include <string>

#include "http_front.h"

namespace devhost {

// The directory the console's files are read from, opened on the first call
// (or -1). The host calls it before it enters its private mounts, whose empty
// /tmp would hide a tree unpacked there.
int OpenConsoleDirectory();

// True for the paths the console answers: "/" and everything under "/console/".
bool IsConsolePath(const std::string& path);

// The answer to a request for a console path: the file with its Content-Type,
// 404 for a name that is not a regular file of the directory (no links, no
// subdirectories, no "..", only known kinds of file), 405 for a method other
// than GET or HEAD.
HttpReply ConsoleFile(const std::string& method, const std::string& path);

}  // namespace devhost

#endif  // DEVHOST_CONSOLE_FILES_H
