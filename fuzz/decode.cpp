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

namespace {

struct Zeroed {
    FUZZ_RECORD record;
    Zeroed() { std::memset(static_cast<void*>(&record), 0, sizeof(record)); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    Zeroed first;
    if (json_decode<FUZZ_RECORD>(text.c_str(), nullptr, first.record) != 0) {
        return 0;
    }
    char* encoded = json_encode<FUZZ_RECORD>(first.record);
    if (encoded == nullptr) {
        std::abort();
    }
    Zeroed again;
    if (json_decode<FUZZ_RECORD>(encoded, nullptr, again.record) != 0 ||
        std::memcmp(&first.record, &again.record, sizeof(FUZZ_RECORD)) != 0) {
        std::abort();
    }
    std::free(encoded);
    return 0;
}
