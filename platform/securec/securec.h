/*
 * Bounds-checked memory and string calls.
 *
 * Every call checks its destination against the size the caller says it has
 * and refuses, instead of overrunning, when the request does not fit.
 * memset_s, memcpy_s and strncpy_s return EOK (0) on success and one of the
 * error codes below otherwise; snprintf_s returns the number of characters
 * written, or -1 when the output was refused or truncated.
 */
#ifndef SECUREC_H
#define SECUREC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SECUREC_API __attribute__((visibility("default")))

#ifndef EOK
#define EOK 0
#endif
/* A null destination or source pointer. */
#define SECUREC_EINVAL 22
/* A destination size of 0 or above SECUREC_MEM_MAX_LEN, a count above the
 * destination size, or a source string that does not fit. */
#define SECUREC_ERANGE 34
/* Source and destination overlap. */
#define SECUREC_EOVERLAP 54

/* Largest destination size accepted; larger sizes are taken for a mistake. */
#define SECUREC_MEM_MAX_LEN ((size_t)0x7fffffffUL)

typedef int errno_t;

/* Fills count bytes of dest (which holds destMax bytes) with c. A refused
 * call (count above destMax included) writes nothing. */
SECUREC_API errno_t memset_s(void* dest, size_t destMax, int c, size_t count);

/* Copies count bytes from src into dest (which holds destMax bytes). A
 * refused call (count above destMax, overlap) writes nothing; a count of 0
 * succeeds without copying. */
SECUREC_API errno_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count);

/* Copies at most count characters of src into dest and terminates it; the
 * copied text and its NUL must fit into destMax bytes. src is read no further
 * than count characters, so it need not be terminated within them. A count
 * above destMax is refused even when src is shorter. On a refusal dest, when
 * usable (non-null, destMax accepted), is left as an empty string. */
SECUREC_API errno_t strncpy_s(char* dest, size_t destMax, const char* src, size_t count);

/* Formats at most count characters (and a NUL, within destMax bytes) into
 * dest. Returns the characters written, or -1 when the arguments are refused
 * (a count above destMax included) or the text did not fit (dest, when
 * usable, then holds an empty string). */
SECUREC_API int snprintf_s(char* dest, size_t destMax, size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif /* SECUREC_H */
