// json_decode of one record type on any text, from a zeroed record. What it
// accepts must survive a round trip: the record encoded and decoded again
// into a zeroed record is the same record. Built once per instance:
// FUZZ_RECORD names the record type.
#include <cstdlib>
#include <cstring>
#include <string>

#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    // Zeroed whole, padding too, since the round trip compares bytes.
    FUZZ_RECORD first;
    FUZZ_RECORD again;
    std::memset(static_cast<void*>(&first), 0, sizeof(first));
    std::memset(static_cast<void*>(&again), 0, sizeof(again));
    if (json_decode<FUZZ_RECORD>(text.c_str(), nullptr, first) != 0) {
        return 0;
    }
    char* encoded = json_encode<FUZZ_RECORD>(first);
    if (encoded == nullptr) {
        std::abort();
    }
    if (json_decode<FUZZ_RECORD>(encoded, nullptr, again) != 0 ||
        std::memcmp(&first, &again, sizeof(FUZZ_RECORD)) != 0) {
        std::abort();
    }
    std::free(encoded);
    return 0;
}
