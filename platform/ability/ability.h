/*
 * The device ability library: what this camera model can do, as one record.
 *
 * GetDeviceAbility fills a 4832-byte record. The caller zeroes it and sets
 * its two input words: the channel (ChannelId numbering, from 101) and a
 * query word that must be 0. Everything after the input words is output.
 * This stand-in fills only the image adjustment ranges, from the device
 * profile: built-in defaults until the host installs its own profile.
 */
#ifndef ABILITY_H
#define ABILITY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ABILITY_API __attribute__((visibility("default")))

#define DEVICE_ABILITY_LEN 4832
#define DEVICE_ABILITY_FIRST_CHANNEL 101
/* The image adjustment ranges: five ranges of two 64-bit integers (begin,
 * end) from this byte on. */
#define DEVICE_ABILITY_RANGES_OFFSET 888

/* The order of the ranges in the record. */
typedef enum {
    ABILITY_RANGE_BRIGHTNESS = 0,
    ABILITY_RANGE_CONTRAST = 1,
    ABILITY_RANGE_SATURATION = 2,
    ABILITY_RANGE_HUE = 3,
    ABILITY_RANGE_SHARPNESS = 4,
    ABILITY_RANGE_COUNT = 5
} ABILITY_RANGE_E;

typedef struct {
    uint32_t uiChannel; /* input: 101 for the first channel */
    uint32_t uiQuery;   /* input: 0 */
    uint8_t aucData[DEVICE_ABILITY_LEN - 8];
} DEVICE_ABILITY_S;

typedef struct {
    int64_t llBegin;
    int64_t llEnd;
} ABILITY_RANGE_S;

/* The device profile as this library keeps it: the ranges, in record order. */
typedef struct {
    ABILITY_RANGE_S astRange[ABILITY_RANGE_COUNT];
} ABILITY_PROFILE_S;

/* 0 with the record filled; -1 for a null record, a channel below 101 or a
 * query word other than 0 (the record is then unchanged). Safe to call from
 * several threads. */
ABILITY_API int GetDeviceAbility(DEVICE_ABILITY_S* pstAbility);

/* Installs the profile that later calls report; null restores the built-in
 * defaults. Safe while other threads call GetDeviceAbility. */
ABILITY_API void SetDeviceAbilityProfile(const ABILITY_PROFILE_S* pstProfile);

/* The built-in defaults. */
ABILITY_API void GetDefaultAbilityProfile(ABILITY_PROFILE_S* pstProfile);

#ifdef __cplusplus
}
#endif

#endif /* ABILITY_H */
