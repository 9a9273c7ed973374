// A Parse stage on any body, over a current-settings block of the resource's
// size in slot 0, as its PreProc stage would have hung it. The stage either
// hangs a request record and answers 0, or refuses the body with 4 and hangs
// nothing. Built once per stage: FUZZ_PARSE_STAGE names it and
// FUZZ_CURRENT_SIZE the size of its current-settings record.
#include <cstdlib>
#include <cstring>
#include <string>

#include "kxapi_common.h"
#include "qtnapi_isp_focus.h"
#include "qtnapi_isp_thermal.h"
#include "qtnapi_isp_tuning.h"
#include "vw_log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The log formats each line as usual and hands it to a sink that drops it.
    VW_SetLogSink([](const VW_LOG_LINE_S*, void*) {}, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string body(reinterpret_cast<const char*>(data), size);
    tagHTTP_HEADER_S header{};
    std::strcpy(header.szMethod, "PUT");
    std::strcpy(header.szUrl, "/isp?ChannelId=102");
    std::strcpy(header.szOpUser, "fuzz");
    std::strcpy(header.szOpAddr, "192.0.2.1");
    tagHTTP_CONTENT_S content{};
    content.pcBody = body.data();
    content.ulContentLen = body.size();
    tagHTTP_CNTENT_INTER_S ctx{};
    auto* current = static_cast<uint8_t*>(std::malloc(FUZZ_CURRENT_SIZE));
    for (size_t i = 0; i < FUZZ_CURRENT_SIZE; ++i) {
        current[i] = static_cast<uint8_t>(i * 37 + 11);
    }
    ctx.apvSlot[KXAPI_SLOT_CURRENT] = current;

    const int rc = FUZZ_PARSE_STAGE(&header, &content, &ctx);
    const bool hung = ctx.apvSlot[KXAPI_SLOT_REQUEST] != nullptr;
    if ((rc != VW_SUCCESS && rc != VW_ERR_BODY) || hung != (rc == VW_SUCCESS) ||
        ctx.apvSlot[KXAPI_SLOT_CURRENT] != current || ctx.apvSlot[KXAPI_SLOT_RESULT] != nullptr) {
        std::abort();
    }
    for (void* slot : ctx.apvSlot) {
        std::free(slot);
    }
    return 0;
}
