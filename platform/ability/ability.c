#include "ability.h"

#include <pthread.h>
#include <stddef.h>
#include <string.h>

_Static_assert(sizeof(DEVICE_ABILITY_S) == DEVICE_ABILITY_LEN, "the ability record is 4832 bytes");
_Static_assert(DEVICE_ABILITY_RANGES_OFFSET + ABILITY_RANGE_COUNT * sizeof(ABILITY_RANGE_S) <= DEVICE_ABILITY_LEN,
               "the ranges lie inside the record");

/* Brightness, contrast, saturation, hue, sharpness: 0 to 100 each. */
static const ABILITY_PROFILE_S g_defaults = {{{0, 100}, {0, 100}, {0, 100}, {0, 100}, {0, 100}}};

static pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
static ABILITY_PROFILE_S g_profile = {{{0, 100}, {0, 100}, {0, 100}, {0, 100}, {0, 100}}};

int GetDeviceAbility(DEVICE_ABILITY_S* pstAbility)
{
    if (pstAbility == NULL || pstAbility->uiChannel < DEVICE_ABILITY_FIRST_CHANNEL || pstAbility->uiQuery != 0) {
        return -1;
    }
    pthread_mutex_lock(&g_lock);
    const ABILITY_PROFILE_S profile = g_profile;
    pthread_mutex_unlock(&g_lock);
    memcpy((uint8_t*)pstAbility + DEVICE_ABILITY_RANGES_OFFSET, profile.astRange, sizeof(profile.astRange));
    return 0;
}

void SetDeviceAbilityProfile(const ABILITY_PROFILE_S* pstProfile)
{
    pthread_mutex_lock(&g_lock);
    g_profile = pstProfile != NULL ? *pstProfile : g_defaults;
    pthread_mutex_unlock(&g_lock);
}

void GetDefaultAbilityProfile(ABILITY_PROFILE_S* pstProfile)
{
    if (pstProfile != NULL) {
        *pstProfile = g_defaults;
    }
}
