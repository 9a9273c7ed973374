#include "exchange_record.h"

#include <fcntl.h>
#include <json-c/json.h>
#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

namespace {

// The value of the Allow header in the answer's head, or "".
std::string AllowHeader(const std::string& head)
{
    std::istringstream lines(head);
    for (std::string line; std::getline(lines, line);) {
        if (strncasecmp(line.c_str(), "Allow:", 6) == 0) {
            const size_t start = line.find_first_not_of(' ', 6);
            const size_t end = line.find_last_not_of("\r ");
            return start == std::string::npos ? "" : line.substr(start, end + 1 - start);
        }
    }
    return "";
}

}  // namespace

void RecordExchange(const std::string& method, const std::string& target, const std::string& body,
                    const std::string& head, int status, const std::string& answer)
{
    const char* path = std::getenv("ISPIAAS_EXCHANGES");
    if (path == nullptr || *path == '\0' || status == 0) {
        return;
    }
    json_object* o = json_object_new_object();
    json_object_object_add(o, "method", json_object_new_string(method.c_str()));
    json_object_object_add(o, "target", json_object_new_string(target.c_str()));
    json_object_object_add(o, "body", json_object_new_string_len(body.data(), static_cast<int>(body.size())));
    json_object_object_add(o, "status", json_object_new_int(status));
    json_object_object_add(o, "allow", json_object_new_string(AllowHeader(head).c_str()));
    json_object_object_add(o, "answer", json_object_new_string_len(answer.data(), static_cast<int>(answer.size())));
    const std::string line = json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN) + std::string("\n");
    json_object_put(o);
    // One write of the whole line to a file opened for appending: lines of
    // tests that run at the same time do not mix.
    const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0) {
        (void)!write(fd, line.data(), line.size());
        close(fd);
    }
}
