// What must hold on the camera's 32-bit ARM as on the development host: the
// host records' layout, the widths of the service words, and 64-bit values
// and doubles passed through the variadic log calls after a 64-bit value.
// The suite runs cross-built under qemu-user (the armhf preset).
#include <gtest/gtest.h>

#include <cstring>

#include "doubles.h"
#include "qtnapi_isp_focus.h"

// Service blocks are read and written as 4-byte words and 8-byte doubles;
// the channel travels as a 4-byte header key.
static_assert(sizeof(unsigned int) == 4 && sizeof(int) == 4, "service words are 4 bytes");
static_assert(sizeof(double) == 8 && sizeof(unsigned long long) == 8, "doubles and 64-bit values are 8 bytes");
// 64-bit members are 8-aligned on the camera's ABI (ARM EABI) as on x86-64,
// so the host records have the same layout on both.
static_assert(offsetof(tagHTTP_HEADER_S, ullOpPort) == 1168, "the operation-log port follows the texts");
static_assert(offsetof(KXAPI_RESPONSE, ResponseStatus) == 8, "the envelope's status follows one 64-bit word");
static_assert(offsetof(KXAPI_RESPONSE_STATUS, StatusCode) == 256, "the status code follows the URL");
static_assert(sizeof(KXAPI_RESPONSE) == 400, "the envelope is 400 bytes");
static_assert(offsetof(_AfStatusInfo, calibrateState) == 24 && sizeof(_AfStatusInfo) == 32,
              "the focus status is three doubles and a word");
static_assert(sizeof(_AfCalibratePointAttr) == 40, "the plane calibration is a switch word and nine words");

namespace {

using doubles::Request;

struct WideValueCase {
    const char* name;
    KxapiRunStage run;
    KxapiFormatStage format;
    const char* url;
    uint32_t channel;
    const char* logged;  // the English entry after the identity
    friend void PrintTo(const WideValueCase& c, std::ostream* os) { *os << c.name; }
};

// A port above 32 bits; on a 32-bit target a value passed in the wrong width
// before the doubles and words would shift every value after it.
constexpr unsigned long long kWidePort = (1ull << 40) + 7;

const WideValueCase kWideValues[] = {
    {"AfStatus", RunGetIspIaasAfStatus, FormatGetIspIaasAfStatus, "/isp?ChannelId=101", 0,
     "Get ISP Af Status Param Successfully. HorDegree: -60.500000, VerDegree:34.250000, CurRatio:2.000000 "
     ",calibrateState:4294967295."},
    {"AfPlanePoint", RunGetIspIaasAfPlanePoint, FormatGetIspIaasAfPlanePoint, "/isp?ChannelId=102", 1,
     "Get ISP Af PlanePoint Param Successfully. Enable:1, pointMax: 4294967295, point1_x:1, point1_y:2, point2_x:3, "
     "point2_y:4, point3_x:5, point3_y:6, point4_x:7, point4_y:8."},
};

class WideValues : public testing::TestWithParam<WideValueCase> {
protected:
    void SetUp() override { doubles::ResetAll(); }
};

TEST_P(WideValues, LogEntriesKeepEveryValueAfterTheWidePort)
{
    const WideValueCase& c = GetParam();
    std::vector<uint8_t> block(AF_BLOCK_SIZE, 0);
    const auto put = [&block](size_t offset, auto value) { std::memcpy(block.data() + offset, &value, sizeof(value)); };
    put(AF_HOR_DEGREE_OFFSET, -60.5);
    put(AF_VER_DEGREE_OFFSET, 34.25);
    put(AF_ZOOM_RATIO_OFFSET, 2.0);
    put(AF_CALIBRATE_STATE_OFFSET, 0xffffffffu);
    block[AF_PLANE_ENABLE_OFFSET] = 1;
    put(AF_PLANE_POINT_MAX_OFFSET, 0xffffffffu);
    for (uint32_t i = 0; i < 8; ++i) {
        put(AF_PLANE_POINTS_OFFSET + 4 * i, i + 1);
    }
    doubles::Isp().blocks[{17, c.channel}] = block;

    Request req("GET", c.url);
    req.header.ullOpPort = kWidePort;
    ASSERT_EQ(c.run(&req.header, &req.client, &req.ctx), 0);
    ASSERT_EQ(c.format(&req.header, 0, &req.ctx, &req.buf), 0);
    ASSERT_EQ(doubles::OpLogs().size(), 2u);
    EXPECT_EQ(doubles::OpLogs()[0].en, std::string("admin[192.0.2.7:1099511627783] ") + c.logged);
    EXPECT_NE(doubles::OpLogs()[0].cn.find("admin[192.0.2.7:1099511627783] "), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Target, WideValues, testing::ValuesIn(kWideValues),
                         [](const testing::TestParamInfo<WideValueCase>& info) { return std::string(info.param.name); });

}  // namespace
