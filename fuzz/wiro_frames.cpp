// The framed-message receive path on any byte stream: frames are read one
// after another from a file holding the input until one is refused or the
// stream ends. Each frame read must report exactly the bytes it consumed,
// and its keys and content must be readable in full.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "wiro.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int fd = memfd_create("wiro-fuzz", 0);
    if (fd < 0 || (size != 0 && write(fd, data, size) != static_cast<ssize_t>(size)) || lseek(fd, 0, SEEK_SET) != 0) {
        std::abort();
    }
    wiro_message_t* msg = wiro_message_new(0);
    off_t consumed = 0;
    for (int n; (n = wiro_message_recvfd_timeout(msg, fd, 1000)) > 0;) {
        const off_t after = lseek(fd, 0, SEEK_CUR);
        if (after - consumed != n) {
            std::abort();
        }
        consumed = after;
        for (size_t i = 0; i < msg->key_count; ++i) {
            size_t len = 0;
            const auto* value = static_cast<const uint8_t*>(wiro_header_get(msg, msg->keys[i].key, &len));
            if (value == nullptr || len != msg->keys[i].len) {
                std::abort();
            }
        }
        std::vector<uint8_t> content(msg->content_len + 1);
        if (wiro_content_copy(msg, content.data(), content.size()) != static_cast<int>(msg->content_len)) {
            std::abort();
        }
    }
    wiro_message_put(msg);
    close(fd);
    return 0;
}
