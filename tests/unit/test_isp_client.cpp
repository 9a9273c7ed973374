// The ISP service client against the scripted service: every step, its
// diagnostic, and that each exchange releases its message and descriptor.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "doubles.h"
#include "qtnapi_isp_srv.h"

namespace {

using doubles::Isp;
using doubles::SrvStep;

class IspClient : public testing::Test {
protected:
    void SetUp() override { doubles::ResetAll(); }
    void TearDown() override
    {
        EXPECT_EQ(Isp().opens, Isp().closes) << "descriptor left open";
        EXPECT_EQ(Isp().messagesLive, 0) << "message not put";
    }
};

TEST_F(IspClient, ReadSendsTheRequestAndTakesTheReply)
{
    uint8_t stored[40];
    for (int i = 0; i < 40; ++i) {
        stored[i] = static_cast<uint8_t>(i + 1);
    }
    Isp().Store(5, 0, stored);
    uint8_t block[40] = {0};
    ASSERT_EQ(GetIspSrvData(5, 0, block, sizeof(block)), 0);
    EXPECT_EQ(std::memcmp(block, stored, sizeof(block)), 0);

    ASSERT_EQ(Isp().requests.size(), 1u);
    const doubles::SrvRequest& r = Isp().requests[0];
    EXPECT_EQ(r.op, 2);
    EXPECT_EQ(r.opTopBit, 0x80) << "the library's top bit must be kept";
    EXPECT_EQ(r.reserved, 0);
    EXPECT_EQ(r.command, 5);
    EXPECT_TRUE(r.hasChannel);
    EXPECT_EQ(r.channel, 0u);
    EXPECT_EQ(r.content, std::vector<uint8_t>(40, 0));
    EXPECT_TRUE(r.timed);
    EXPECT_EQ(r.timeout, 15000);
    EXPECT_TRUE(doubles::Diags().empty());
}

TEST_F(IspClient, WriteSendsTheBlockAndTakesTheServiceCopy)
{
    Isp().answer = [](const doubles::SrvRequest& r) {
        doubles::SrvReply reply;
        reply.content = r.content;
        reply.content[0] = 0xee;  // the service's copy differs from what was sent
        return reply;
    };
    uint8_t block[16] = {1, 2, 3};
    ASSERT_EQ(SetIspSrvData(7, 3, block, sizeof(block)), 0);
    EXPECT_EQ(block[0], 0xee);
    ASSERT_EQ(Isp().requests.size(), 1u);
    EXPECT_EQ(Isp().requests[0].op, 3);
    EXPECT_EQ(Isp().requests[0].command, 7);
    EXPECT_EQ(Isp().requests[0].channel, 3u);
    EXPECT_EQ(Isp().requests[0].content[1], 2);
}

struct FailCase {
    const char* name;
    bool write;
    SrvStep step;
    int replyStatus;   // with SrvStep::None
    int replyExtra;    // bytes added to (or, negative, taken from) the reply content
    const char* text;  // the diagnostic, formatted
    friend void PrintTo(const FailCase& c, std::ostream* os) { *os << c.name; }
};

class IspClientFailure : public IspClient, public testing::WithParamInterface<FailCase> {};

TEST_P(IspClientFailure, ReportsTheStepAndFails)
{
    const FailCase& c = GetParam();
    Isp().failStep = c.step;
    Isp().failErrno = ETIMEDOUT;
    Isp().answer = [&c](const doubles::SrvRequest& r) {
        doubles::SrvReply reply;
        reply.status = static_cast<uint16_t>(c.replyStatus);
        reply.content.assign(r.content.size() + c.replyExtra, 7);
        return reply;
    };
    uint8_t block[16] = {0};
    const int rc = c.write ? SetIspSrvData(17, 1, block, sizeof(block)) : GetIspSrvData(17, 1, block, sizeof(block));
    EXPECT_EQ(rc, -1);
    ASSERT_EQ(doubles::Diags().size(), 1u);
    EXPECT_EQ(doubles::Diags()[0].text, c.text);
    EXPECT_EQ(doubles::Diags()[0].level, 3);
}

const std::string kOpenFail =
    std::string("[KXAPI]:open /mnt/srvfs/isp.iaas.qtn srv fail, Error: 110, ") + std::strerror(ETIMEDOUT) + "\n";

INSTANTIATE_TEST_SUITE_P(
    Steps, IspClientFailure,
    testing::Values(
        FailCase{"ReadOpen", false, SrvStep::Open, 200, 0, kOpenFail.c_str()},
        FailCase{"ReadNew", false, SrvStep::New, 200, 0, "[KXAPI]:wiro_message_new failed \n"},
        FailCase{"WriteNew", true, SrvStep::New, 200, 0, "[KXAPI]:new send msg failed \n"},
        FailCase{"HeaderSet", false, SrvStep::HeaderSet, 200, 0, "[KXAPI]:wiro_header_set failed \n"},
        FailCase{"ContentAdd", true, SrvStep::ContentAdd, 200, 0, "[KXAPI]:wiro_content_append failed \n"},
        FailCase{"ReadSend", false, SrvStep::Send, 200, 0,
                 "[KXAPI]:wiro_message_sendfd_timeout failed,fd:9000,err:110,ret:-1\n"},
        FailCase{"WriteSend", true, SrvStep::Send, 200, 0,
                 "[KXAPI]:wiro_message_sendfd_timeout failed,fd:9000,err:110,ret:-1 \n"},
        FailCase{"ReadTimeOut", false, SrvStep::Recv, 200, 0,
                 "[KXAPI]:wiro_message_recvfd_timeout failed,fd:9000,err:110,ret:-1\n"},
        FailCase{"WriteTimeOut", true, SrvStep::Recv, 200, 0,
                 "[KXAPI]:wiro_message_recvfd_timeout failed,fd:9000,err:110,ret:-1 \n"},
        FailCase{"ShortContent", false, SrvStep::None, 200, -1, "[KXAPI]:wiro_content_copy failed \n"},
        FailCase{"LongContent", true, SrvStep::None, 200, 1, "[KXAPI]:wiro_content_copy failed \n"},
        FailCase{"Status404", false, SrvStep::None, 404, 0, "[KXAPI]:wiro_code failed \n"},
        FailCase{"Status0", true, SrvStep::None, 0, 0, "[KXAPI]:wiro_code failed \n"}),
    [](const testing::TestParamInfo<FailCase>& info) { return std::string(info.param.name); });

TEST_F(IspClient, MissingNodeCreatesNoMessage)
{
    Isp().failStep = SrvStep::Open;
    uint8_t block[4];
    EXPECT_EQ(GetIspSrvData(28, 0, block, sizeof(block)), -1);
    EXPECT_EQ(Isp().requests.size(), 0u);
    EXPECT_EQ(Isp().opens, 0);
}

TEST_F(IspClient, StatusFailureStillLeavesTheContentInTheBlock)
{
    Isp().answer = [](const doubles::SrvRequest& r) {
        return doubles::SrvReply{500, std::vector<uint8_t>(r.content.size(), 9)};
    };
    uint8_t block[4] = {0};
    EXPECT_EQ(GetIspSrvData(28, 0, block, sizeof(block)), -1);
    EXPECT_EQ(block[3], 9);
}

// An untimed exchange names a failed receive without the time-out's values.
TEST_F(IspClient, UntimedReceiveFailure)
{
    Isp().failStep = SrvStep::Recv;
    EXPECT_EQ(IspSrvExchange({ISP_OP_RESET, 25, nullptr, nullptr, 0, false, IspNewText::MessageNew}), -1);
    ASSERT_EQ(doubles::Diags().size(), 1u);
    EXPECT_EQ(doubles::Diags()[0].text, "[KXAPI]:wiro_message_recvfd failed \n");
}

}  // namespace
