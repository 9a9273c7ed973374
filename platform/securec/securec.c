/*
 * Bounds-checked memory and string calls. Every call validates its arguments
 * completely before it writes anything, so a refused call never leaves a
 * partial result behind (apart from the empty string the string calls leave
 * in a usable destination).
 */
#define _POSIX_C_SOURCE 200809L

#include "securec.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

/* A destination size the calls accept: neither 0 nor implausibly large. */
static int dest_size_ok(size_t destMax) { return destMax != 0 && destMax <= SECUREC_MEM_MAX_LEN; }

/* Whether [a, a + alen) and [b, b + blen) share a byte. */
static int ranges_overlap(const void* a, size_t alen, const void* b, size_t blen)
{
    uintptr_t pa = (uintptr_t)a;
    uintptr_t pb = (uintptr_t)b;
    if (alen == 0 || blen == 0) {
        return 0;
    }
    return pa < pb + blen && pb < pa + alen;
}

errno_t memset_s(void* dest, size_t destMax, int c, size_t count)
{
    if (dest == NULL) {
        return SECUREC_EINVAL;
    }
    if (!dest_size_ok(destMax) || count > destMax) {
        return SECUREC_ERANGE;
    }
    memset(dest, c, count);
    return EOK;
}

errno_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count)
{
    if (dest == NULL) {
        return SECUREC_EINVAL;
    }
    if (!dest_size_ok(destMax)) {
        return SECUREC_ERANGE;
    }
    if (src == NULL) {
        return SECUREC_EINVAL;
    }
    if (count > destMax) {
        return SECUREC_ERANGE;
    }
    if (ranges_overlap(dest, count, src, count)) {
        return SECUREC_EOVERLAP;
    }
    if (count != 0) {
        memcpy(dest, src, count);
    }
    return EOK;
}

errno_t strncpy_s(char* dest, size_t destMax, const char* src, size_t count)
{
    if (dest == NULL) {
        return SECUREC_EINVAL;
    }
    if (!dest_size_ok(destMax)) {
        return SECUREC_ERANGE;
    }
    if (src == NULL) {
        dest[0] = '\0';
        return SECUREC_EINVAL;
    }
    if (count > destMax) {
        dest[0] = '\0';
        return SECUREC_ERANGE;
    }
    /* Never look further into src than the caller allows us to take. */
    size_t len = strnlen(src, count);
    if (len >= destMax) {
        dest[0] = '\0';
        return SECUREC_ERANGE;
    }
    /* dest receives len + 1 bytes; src supplies len bytes. */
    if (ranges_overlap(dest, len + 1, src, len == 0 ? 1 : len)) {
        dest[0] = '\0';
        return SECUREC_EOVERLAP;
    }
    memcpy(dest, src, len);
    dest[len] = '\0';
    return EOK;
}

int snprintf_s(char* dest, size_t destMax, size_t count, const char* format, ...)
{
    if (dest == NULL || !dest_size_ok(destMax)) {
        return -1;
    }
    if (format == NULL || count > destMax) {
        dest[0] = '\0';
        return -1;
    }
    /* Room for at most count characters and the NUL, never past destMax. */
    size_t limit = count < destMax ? count + 1 : destMax;

    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(dest, limit, format, ap);
    va_end(ap);

    if (n < 0 || (size_t)n >= limit) {
        dest[0] = '\0';
        return -1;
    }
    return n;
}
