/*
 * What the socket targets share: a stream socket whose peer has sent the
 * fuzzer's input.
 */
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

/* One end of a stream socket pair; the other has written the input, which
 * fits the socket's buffer (each target's -max_len keeps it small). */
class FuzzStream {
public:
    FuzzStream(const uint8_t* data, size_t size)
    {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends_) != 0 ||
            (size != 0 && write(ends_[1], data, size) != static_cast<ssize_t>(size))) {
            std::abort();
        }
    }
    ~FuzzStream()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    FuzzStream(const FuzzStream&) = delete;
    FuzzStream& operator=(const FuzzStream&) = delete;

    int Reader() const { return ends_[0]; }
    /* The peer sends nothing more: reads past the input see the stream end. */
    void End() const { shutdown(ends_[1], SHUT_WR); }

private:
    int ends_[2] = {-1, -1};
};

#endif /* FUZZ_HOST_H */
