// Image tuning resources.
#include "qtnapi_isp_tuning.h"

#include <cstring>

#include "qtnapi_isp_frame.h"
#include "qtnapi_isp_srv.h"

template KXAPI_EXPORT char* json_encode<_FakeRatio>(_FakeRatio const&);
template KXAPI_EXPORT int FormatCommonResponse<_FakeRatio>(tagHTTP_HEADER_S*, VW_RESULT_TYPE, tagHTTP_CNTENT_INTER_S*,
                                                           tagHTTP_BUF_S*);

// ---- Fake ratio: read-only, no operation log ----

// The ratio is read from the service's channel 0 whatever the request's
// channel; it is passed on unchecked.
KXAPI_STAGE int RunGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, tagHTTP_CLIENT_S* client,
                                       tagHTTP_CNTENT_INTER_S* ctIn)
{
    if (IspArgsMissing(IspArgs::Run, header, client, ctIn)) {
        return VW_ERR_PARAM;
    }
    const IspStage stage(__func__, header, ctIn);
    return IspReadResult<_FakeRatio, FAKE_RATIO_BLOCK_SIZE>(
        stage, ISP_CMD_FAKE_RATIO, 0, [](const uint8_t* block, _FakeRatio& record) {
            std::memcpy(&record.fakeRatio, block + FAKE_RATIO_OFFSET, sizeof(record.fakeRatio));
        });
}

KXAPI_STAGE int FormatGetIspIaasFakeRatio(tagHTTP_HEADER_S* header, VW_RESULT_TYPE result,
                                          tagHTTP_CNTENT_INTER_S* ctIn, tagHTTP_BUF_S* buf)
{
    return FormatCommonResponse<_FakeRatio>(header, result, ctIn, buf);
}
