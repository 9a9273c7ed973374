// A Parse stage on any body, over a current-settings block of the resource's
// size in slot 0, as its PreProc stage would have hung it. The stage either
// hangs a request record and answers 0, or refuses the body with 4 and hangs
// nothing. Built once per stage: FUZZ_PARSE_STAGE names it and
// FUZZ_CURRENT_SIZE the size of its current-settings record.
#include <cstdlib>

#include "fuzz_host.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzQuietLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzRequest req(data, size);
    auto* current = static_cast<uint8_t*>(std::malloc(FUZZ_CURRENT_SIZE));
    for (size_t i = 0; i < FUZZ_CURRENT_SIZE; ++i) {
        current[i] = static_cast<uint8_t>(i * 37 + 11);
    }
    req.ctx.apvSlot[KXAPI_SLOT_CURRENT] = current;

    const int rc = FUZZ_PARSE_STAGE(&req.header, &req.content, &req.ctx);
    const bool hung = req.ctx.apvSlot[KXAPI_SLOT_REQUEST] != nullptr;
    if ((rc != VW_SUCCESS && rc != VW_ERR_BODY) || hung != (rc == VW_SUCCESS) ||
        req.ctx.apvSlot[KXAPI_SLOT_CURRENT] != current || req.ctx.apvSlot[KXAPI_SLOT_RESULT] != nullptr) {
        std::abort();
    }
    return 0;
}
