// The console: plain HTML, CSS and JavaScript files that the host serves at
// "/" (the page) and "/console/<file>", read from one directory.
#ifndef DEVHOST_CONSOLE_FILES_H
#define DEVHOST_CONSOLE_FILES_H

#include <string>

#include "http_front.h"

namespace devhost {

// Opens the directory the console's files are read from; false when it
// cannot. The host calls it before it enters its private mounts, whose empty
// /tmp would hide a tree unpacked there.
bool OpenConsoleDirectory(const std::string& path);
// That directory (-1 before it is opened or when it could not be).
int ConsoleDirectory();

// True for the paths the console answers: "/" and everything under "/console/".
bool IsConsolePath(const std::string& path);

// Where the console's files other than the page are served.
inline constexpr const char* kConsolePrefix = "/console/";

// The answer to a request for a console path: the file with its Content-Type,
// 404 for a name that is not a regular file of the directory (no links, no
// subdirectories, no "..", only known kinds of file), 405 for a method other
// than GET or HEAD.
HttpReply ConsoleFile(const std::string& method, const std::string& path);

}  // namespace devhost

#endif  // DEVHOST_CONSOLE_FILES_H
