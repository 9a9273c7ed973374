/*
 * Framed request/reply messages over a file descriptor.
 *
 * A frame is sent with one write() so that a service which takes one write
 * as one request (a device file, a datagram-like channel) sees it whole; the
 * call only loops when the descriptor accepts part of it. A frame is read in
 * two steps, the fixed part and then the keys and content, and the message
 * is only touched once the whole frame has arrived and parsed.
 */
#define _GNU_SOURCE

#include "wiro.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

_Static_assert(sizeof(wiro_header_t) == 8, "the header record is 8 bytes on the wire");
_Static_assert(offsetof(wiro_message_t, header) == 0, "the header pointer is the first member");
_Static_assert(WIRO_FRAME_FIXED + WIRO_KEYS_MAX + WIRO_CONTENT_MAX <= INT_MAX, "frame lengths fit an int");

#define WIRO_KEY_ENTRY_FIXED 4u

/* ---- messages ---------------------------------------------------------- */

static void free_keys(wiro_key_t* keys, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        free(keys[i].value);
    }
    free(keys);
}

static wiro_key_t* find_key(wiro_key_t* keys, size_t count, uint16_t key)
{
    for (size_t i = 0; i < count; i++) {
        if (keys[i].key == key) {
            return &keys[i];
        }
    }
    return NULL;
}

/* A private copy of a key value; never null, even for an empty value, so
 * that a present key is told apart from an absent one. */
static uint8_t* copy_value(const void* value, size_t len)
{
    uint8_t* copy = malloc(len != 0 ? len : 1);
    if (copy != NULL && len != 0) {
        memcpy(copy, value, len);
    }
    return copy;
}

/* Sets key in the array (*keys, *count), replacing an earlier value. The
 * array always has room for one more entry when called from the frame
 * parser; otherwise it is grown here. */
static int put_key(wiro_key_t** keys, size_t* count, size_t* capacity, uint16_t key, const void* value, size_t len)
{
    uint8_t* copy = copy_value(value, len);
    if (copy == NULL) {
        return -1;
    }
    wiro_key_t* existing = find_key(*keys, *count, key);
    if (existing != NULL) {
        free(existing->value);
        existing->value = copy;
        existing->len = (uint16_t)len;
        return 0;
    }
    if (*count == *capacity) {
        size_t newCapacity = *capacity + 1;
        wiro_key_t* grown = realloc(*keys, newCapacity * sizeof(*grown));
        if (grown == NULL) {
            free(copy);
            return -1;
        }
        *keys = grown;
        *capacity = newCapacity;
    }
    (*keys)[*count].key = key;
    (*keys)[*count].len = (uint16_t)len;
    (*keys)[*count].value = copy;
    (*count)++;
    return 0;
}

wiro_message_t* wiro_message_new(int flags)
{
    (void)flags;
    wiro_message_t* msg = calloc(1, sizeof(*msg));
    if (msg == NULL) {
        return NULL;
    }
    msg->header_storage.version = WIRO_VERSION;
    msg->header = &msg->header_storage;
    return msg;
}

void wiro_message_put(wiro_message_t* msg)
{
    if (msg == NULL) {
        return;
    }
    free_keys(msg->keys, msg->key_count);
    free(msg->content);
    free(msg);
}

int wiro_header_set(wiro_message_t* msg, int key, const void* value, size_t len)
{
    if (msg == NULL || value == NULL || key < 0 || key > UINT16_MAX || len > UINT16_MAX) {
        return -1;
    }
    size_t capacity = msg->key_count;
    return put_key(&msg->keys, &msg->key_count, &capacity, (uint16_t)key, value, len);
}

const void* wiro_header_get(const wiro_message_t* msg, int key, size_t* len)
{
    const wiro_key_t* found = NULL;
    if (msg != NULL && key >= 0 && key <= UINT16_MAX) {
        found = find_key(msg->keys, msg->key_count, (uint16_t)key);
    }
    if (len != NULL) {
        *len = found != NULL ? found->len : 0;
    }
    return found != NULL ? found->value : NULL;
}

int wiro_content_add(wiro_message_t* msg, const void* data, size_t size, int flags)
{
    (void)flags;
    if (msg == NULL || (data == NULL && size != 0)) {
        return -1;
    }
    if (size == 0) {
        return 0;
    }
    if (size > WIRO_CONTENT_MAX || msg->content_len > WIRO_CONTENT_MAX - size) {
        return -1;
    }
    uint8_t* grown = realloc(msg->content, msg->content_len + size);
    if (grown == NULL) {
        return -1;
    }
    memcpy(grown + msg->content_len, data, size);
    msg->content = grown;
    msg->content_len += size;
    return 0;
}

int wiro_content_copy(const wiro_message_t* msg, void* buf, size_t size)
{
    if (msg == NULL || buf == NULL || msg->content_len > size) {
        return -1;
    }
    if (msg->content_len != 0) {
        memcpy(buf, msg->content, msg->content_len);
    }
    return (int)msg->content_len;
}

/* ---- waiting with a time-out ------------------------------------------- */

static long long now_ms(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (long long)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

/* An absolute deadline in monotonic milliseconds, or -1 for none. */
static long long deadline_after(int timeout_ms) { return timeout_ms < 0 ? -1 : now_ms() + timeout_ms; }

/* Waits until fd is ready for events or the deadline passes (ETIMEDOUT).
 * A descriptor in an error or hang-up state counts as ready: the following
 * read or write reports it. */
static int wait_ready(int fd, short events, long long deadline)
{
    for (;;) {
        int wait_ms = -1;
        if (deadline >= 0) {
            long long left = deadline - now_ms();
            wait_ms = left > 0 ? (left > INT_MAX ? INT_MAX : (int)left) : 0;
        }
        struct pollfd pfd = {.fd = fd, .events = events, .revents = 0};
        int rc = poll(&pfd, 1, wait_ms);
        if (rc > 0) {
            if (pfd.revents & POLLNVAL) {
                errno = EBADF;
                return -1;
            }
            return 0;
        }
        if (rc == 0) {
            if (deadline >= 0 && now_ms() >= deadline) {
                errno = ETIMEDOUT;
                return -1;
            }
            continue;
        }
        if (errno != EINTR) {
            return -1;
        }
    }
}

/* One write of the remaining bytes. Sockets are written with MSG_NOSIGNAL so
 * that a vanished peer yields EPIPE instead of killing the process. */
static ssize_t write_once(int fd, const uint8_t* buf, size_t len, int* notSocket)
{
    if (!*notSocket) {
        ssize_t n = send(fd, buf, len, MSG_NOSIGNAL);
        if (n >= 0 || errno != ENOTSOCK) {
            return n;
        }
        *notSocket = 1;
    }
    return write(fd, buf, len);
}

static int write_all(int fd, const uint8_t* buf, size_t len, int timeout_ms)
{
    long long deadline = deadline_after(timeout_ms);
    int notSocket = 0;
    size_t done = 0;
    while (done < len) {
        if (deadline >= 0 && wait_ready(fd, POLLOUT, deadline) != 0) {
            return -1;
        }
        ssize_t n = write_once(fd, buf + done, len - done, &notSocket);
        if (n > 0) {
            done += (size_t)n;
        } else if (n == 0) {
            errno = EIO;
            return -1;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (wait_ready(fd, POLLOUT, deadline) != 0) {
                return -1;
            }
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

/* Reads exactly len bytes; ECONNRESET when the peer closes first. */
static int read_all(int fd, uint8_t* buf, size_t len, long long deadline)
{
    size_t done = 0;
    while (done < len) {
        if (deadline >= 0 && wait_ready(fd, POLLIN, deadline) != 0) {
            return -1;
        }
        ssize_t n = read(fd, buf + done, len - done);
        if (n > 0) {
            done += (size_t)n;
        } else if (n == 0) {
            errno = ECONNRESET;
            return -1;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (wait_ready(fd, POLLIN, deadline) != 0) {
                return -1;
            }
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

/* ---- frames ------------------------------------------------------------ */

static void put_u32(uint8_t* p, uint32_t v) { memcpy(p, &v, sizeof(v)); }

static uint32_t get_u32(const uint8_t* p)
{
    uint32_t v;
    memcpy(&v, p, sizeof(v));
    return v;
}

static void put_u16(uint8_t* p, uint16_t v) { memcpy(p, &v, sizeof(v)); }

static uint16_t get_u16(const uint8_t* p)
{
    uint16_t v;
    memcpy(&v, p, sizeof(v));
    return v;
}

int wiro_message_sendfd_timeout(wiro_message_t* msg, int fd, int timeout_ms)
{
    if (msg == NULL || msg->header == NULL || (msg->key_count != 0 && msg->keys == NULL) ||
        (msg->content_len != 0 && msg->content == NULL)) {
        errno = EINVAL;
        return -1;
    }
    size_t keysLen = 0;
    for (size_t i = 0; i < msg->key_count; i++) {
        keysLen += WIRO_KEY_ENTRY_FIXED + msg->keys[i].len;
        if (keysLen > WIRO_KEYS_MAX) {
            break;
        }
    }
    /* A frame the receiver would refuse is not sent. */
    if (keysLen > WIRO_KEYS_MAX || msg->content_len > WIRO_CONTENT_MAX) {
        errno = EMSGSIZE;
        return -1;
    }
    size_t frameLen = WIRO_FRAME_FIXED + keysLen + msg->content_len;
    uint8_t* frame = malloc(frameLen);
    if (frame == NULL) {
        errno = ENOMEM;
        return -1;
    }
    memcpy(frame, msg->header, sizeof(wiro_header_t));
    put_u32(frame + 8, WIRO_FRAME_MAGIC);
    put_u32(frame + 12, (uint32_t)keysLen);
    put_u32(frame + 16, (uint32_t)msg->content_len);
    uint8_t* p = frame + WIRO_FRAME_FIXED;
    for (size_t i = 0; i < msg->key_count; i++) {
        const wiro_key_t* k = &msg->keys[i];
        put_u16(p, k->key);
        put_u16(p + 2, k->len);
        if (k->len != 0) {
            memcpy(p + WIRO_KEY_ENTRY_FIXED, k->value, k->len);
        }
        p += WIRO_KEY_ENTRY_FIXED + k->len;
    }
    if (msg->content_len != 0) {
        memcpy(p, msg->content, msg->content_len);
    }

    int rc = write_all(fd, frame, frameLen, timeout_ms);
    int savedErrno = errno;
    free(frame);
    errno = savedErrno;
    return rc == 0 ? (int)frameLen : -1;
}

int wiro_message_sendfd(wiro_message_t* msg, int fd) { return wiro_message_sendfd_timeout(msg, fd, -1); }

/* Parses a key section into a new key array; EPROTO when it does not split
 * into whole keys. A key repeated in the section takes its last value, as if
 * the keys had been set one after the other. */
static int parse_keys(const uint8_t* section, size_t len, wiro_key_t** outKeys, size_t* outCount)
{
    wiro_key_t* keys = NULL;
    size_t count = 0;
    size_t capacity = len / WIRO_KEY_ENTRY_FIXED;
    if (capacity != 0) {
        keys = calloc(capacity, sizeof(*keys));
        if (keys == NULL) {
            errno = ENOMEM;
            return -1;
        }
    }
    size_t off = 0;
    while (off < len) {
        if (len - off < WIRO_KEY_ENTRY_FIXED) {
            goto refused;
        }
        uint16_t key = get_u16(section + off);
        uint16_t valueLen = get_u16(section + off + 2);
        off += WIRO_KEY_ENTRY_FIXED;
        if (valueLen > len - off) {
            goto refused;
        }
        if (put_key(&keys, &count, &capacity, key, section + off, valueLen) != 0) {
            free_keys(keys, count);
            errno = ENOMEM;
            return -1;
        }
        off += valueLen;
    }
    *outKeys = keys;
    *outCount = count;
    return 0;

refused:
    free_keys(keys, count);
    errno = EPROTO;
    return -1;
}

int wiro_message_recvfd_timeout(wiro_message_t* msg, int fd, int timeout_ms)
{
    if (msg == NULL) {
        errno = EINVAL;
        return -1;
    }
    long long deadline = deadline_after(timeout_ms);
    uint8_t fixed[WIRO_FRAME_FIXED];
    if (read_all(fd, fixed, sizeof(fixed), deadline) != 0) {
        return -1;
    }
    uint32_t magic = get_u32(fixed + 8);
    uint32_t keysLen = get_u32(fixed + 12);
    uint32_t contentLen = get_u32(fixed + 16);
    if (magic != WIRO_FRAME_MAGIC || keysLen > WIRO_KEYS_MAX || contentLen > WIRO_CONTENT_MAX) {
        errno = EPROTO;
        return -1;
    }

    uint8_t* keySection = NULL;
    if (keysLen != 0) {
        keySection = malloc(keysLen);
        if (keySection == NULL) {
            errno = ENOMEM;
            return -1;
        }
    }
    uint8_t* content = NULL;
    if (contentLen != 0) {
        content = malloc(contentLen);
        if (content == NULL) {
            free(keySection);
            errno = ENOMEM;
            return -1;
        }
    }
    wiro_key_t* keys = NULL;
    size_t keyCount = 0;
    if (read_all(fd, keySection, keysLen, deadline) != 0 || read_all(fd, content, contentLen, deadline) != 0 ||
        parse_keys(keySection, keysLen, &keys, &keyCount) != 0) {
        int savedErrno = errno;
        free(keySection);
        free(content);
        errno = savedErrno;
        return -1;
    }
    free(keySection);

    /* The whole frame is in: only now does the message change. */
    free_keys(msg->keys, msg->key_count);
    free(msg->content);
    memcpy(&msg->header_storage, fixed, sizeof(wiro_header_t));
    msg->header = &msg->header_storage;
    msg->keys = keys;
    msg->key_count = keyCount;
    msg->content = content;
    msg->content_len = contentLen;
    return (int)(WIRO_FRAME_FIXED + keysLen + contentLen);
}

int wiro_message_recvfd(wiro_message_t* msg, int fd) { return wiro_message_recvfd_timeout(msg, fd, -1); }
