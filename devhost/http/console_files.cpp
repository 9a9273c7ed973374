#include "console_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>


namespace devhost {

namespace {


struct FileKind {
    const char* extension;
    const char* contentType;
};

// JavaScript modules load only with a JavaScript type.
constexpr FileKind kFileKinds[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
};

const char* ContentType(const std::string& name)
{
    for (const FileKind& kind : kFileKinds) {
        const size_t len = std::strlen(kind.extension);
        if (name.size() > len && name.compare(name.size() - len, len, kind.extension) == 0) {
            return kind.contentType;
        }
    }
    return nullptr;
}

// A plain file name: letters, digits, '-', '_' and one '.', which may not lead.
bool PlainName(const std::string& name)
{
    const bool charsOk = std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
    });
    return charsOk && !name.empty() && name[0] != '.' && std::count(name.begin(), name.end(), '.') == 1;
}

}  // namespace

namespace {
int g_consoleDirectory = -1;
}  // namespace

bool OpenConsoleDirectory(const std::string& path)
{
    g_consoleDirectory = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    return g_consoleDirectory >= 0;
}

int ConsoleDirectory() { return g_consoleDirectory; }

bool IsConsolePath(const std::string& path) { return path == "/" || path.rfind(kConsolePrefix, 0) == 0; }

HttpReply ConsoleFile(const std::string& method, const std::string& path)
{
    if (method != "GET" && method != "HEAD") {
        HttpReply reply = ErrorReply(405, path + " takes GET, not " + method);
        reply.allow = "GET";
        return reply;
    }
    const std::string name = path == "/" ? "index.html" : path.substr(std::strlen(kConsolePrefix));
    const char* contentType = ContentType(name);
    if (!PlainName(name) || contentType == nullptr) {
        return ErrorReply(404, "no console file at " + path);
    }
    // Neither a link (which could lead anywhere) nor anything but a regular
    // file (a FIFO would block the request) is served.
    const int fd = openat(ConsoleDirectory(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        if (fd >= 0) {
            close(fd);
        }
        return ErrorReply(404, "no console file at " + path);
    }
    HttpReply reply{200, "", ""};
    char chunk[16384];
    for (ssize_t got; (got = read(fd, chunk, sizeof(chunk))) > 0;) {
        reply.body.append(chunk, static_cast<size_t>(got));
    }
    close(fd);
    reply.contentType = contentType;
    return reply;
}

}  // namespace devhost
