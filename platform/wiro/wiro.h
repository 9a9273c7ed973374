/*
 * Framed request/reply messages over a file descriptor.
 *
 * A message has a fixed header record, a list of header keys (small tagged
 * values) and one content block. The sender writes the whole frame with a
 * single write(); the receiver reads the fixed part, then the rest, and
 * replaces the header, keys and content of the message it was given with
 * those of the frame it read.
 *
 * Wire format (all integers in host byte order; sender and receiver share a
 * machine):
 *
 *   offset  size  field
 *   0       8     wiro_header_t as laid out below
 *   8       4     magic WIRO_FRAME_MAGIC
 *   12      4     key section length K in bytes
 *   16      4     content length C in bytes
 *   20      K     keys, each: uint16 key, uint16 value length L, L bytes
 *   20+K    C     content
 *
 * A frame is refused on receipt when the magic is wrong, when K exceeds
 * WIRO_KEYS_MAX or C exceeds WIRO_CONTENT_MAX, or when the key section does
 * not parse into whole keys.
 *
 * Header record (the first member of every message points to it):
 *   byte 0  version (WIRO_VERSION)
 *   byte 1  flags (unused, 0)
 *   byte 2  reserved; requesters clear it
 *   byte 3  low 7 bits: operation (1 create, 2 read, 3 write, 0 reset);
 *           top bit: set by a service in a reply frame
 *   bytes 4-5  command number
 *   bytes 6-7  status code of a reply (200 success)
 *
 * Time-outs are in milliseconds; a negative time-out waits without bound.
 */
#ifndef WIRO_H
#define WIRO_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define WIRO_API __attribute__((visibility("default")))

#define WIRO_VERSION 1u
#define WIRO_FRAME_MAGIC 0x4f524957u /* "WIRO" in little-endian byte order */
#define WIRO_FRAME_FIXED 20u
#define WIRO_KEYS_MAX 4096u
#define WIRO_CONTENT_MAX (1024u * 1024u)
#define WIRO_OP_MASK 0x7fu
#define WIRO_OP_REPLY 0x80u

typedef struct wiro_header {
    uint8_t version;
    uint8_t flags;
    uint8_t reserved;
    uint8_t op;
    uint16_t command;
    uint16_t code;
} wiro_header_t;

typedef struct wiro_key {
    uint16_t key;
    uint16_t len;
    uint8_t* value;
} wiro_key_t;

typedef struct wiro_message {
    wiro_header_t* header; /* always the first member */
    wiro_key_t* keys;
    size_t key_count;
    uint8_t* content;
    size_t content_len;
    wiro_header_t header_storage;
} wiro_message_t;

/* A new empty message (flags: 0, other values are ignored): its header is
 * header_storage with version WIRO_VERSION and every other field 0, no keys,
 * no content. Null when memory is short. */
WIRO_API wiro_message_t* wiro_message_new(int flags);

/* Releases the message with its keys and content; null is ignored. */
WIRO_API void wiro_message_put(wiro_message_t* msg);

/* Sets header key `key` to a copy of len bytes (replacing an earlier value).
 * 0 on success, -1 on a null message or value, a key outside 0..65535, a
 * length above 65535 or a lack of memory. */
WIRO_API int wiro_header_set(wiro_message_t* msg, int key, const void* value, size_t len);

/* The value of header key `key` and its length, or null when absent (*len is
 * then 0). len may be null. */
WIRO_API const void* wiro_header_get(const wiro_message_t* msg, int key, size_t* len);

/* Appends size bytes to the content (flags: 0, other values are ignored).
 * 0 on success, -1 on a null
 * message, a null data pointer with a non-zero size, content growing past
 * WIRO_CONTENT_MAX or a lack of memory. */
WIRO_API int wiro_content_add(wiro_message_t* msg, const void* data, size_t size, int flags);

/* Copies the whole content into buf when it fits into size bytes and returns
 * its length; returns -1 without copying when it does not fit or an argument
 * is null. */
WIRO_API int wiro_content_copy(const wiro_message_t* msg, void* buf, size_t size);

/* Writes the message as one frame, with one write() unless the descriptor
 * takes only part of it. Returns the frame's length, or -1 with errno set
 * (ETIMEDOUT when the descriptor did not become writable in time, EMSGSIZE
 * when the keys or content exceed what a receiver accepts, EINVAL for a null
 * message, EPIPE when a socket's peer has gone - no SIGPIPE is raised). The
 * time-out bounds the whole send. */
WIRO_API int wiro_message_sendfd(wiro_message_t* msg, int fd);
WIRO_API int wiro_message_sendfd_timeout(wiro_message_t* msg, int fd, int timeout_ms);

/* Reads one frame into msg, replacing its header (copied into
 * header_storage, which header then points to), keys and content. A key that
 * appears twice in a frame takes its later value. The time-out bounds the
 * whole frame. Returns the frame's length, or -1 with errno set (ETIMEDOUT on
 * time-out, EPROTO for a refused frame, ECONNRESET when the peer closed
 * before a whole frame, EINVAL for a null message); msg is unchanged on
 * failure. After a failure part of a frame may have been consumed. */
WIRO_API int wiro_message_recvfd(wiro_message_t* msg, int fd);
WIRO_API int wiro_message_recvfd_timeout(wiro_message_t* msg, int fd, int timeout_ms);

#ifdef __cplusplus
}
#endif

#endif /* WIRO_H */
