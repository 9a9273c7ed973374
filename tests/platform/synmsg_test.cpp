// The synchronous command channel's client against a control process played
// by a thread on a real Unix socket.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "kxapi_common.h"
#include "table.h"

namespace {

// How the peer answers a whole request: a reply head with replyLen, then
// replyBytes of reply whose bytes are their offset modulo 251; with a
// time-out, nothing until the client gives up.
struct PeerCase {
    const char* name;
    uint32_t replyLen;
    size_t replyBytes;
    uint64_t timeoutMs;
    uint64_t result;
    bool held = false;  // the client holds a connected socket instead of connecting for the command
};

const PeerCase kPeers[] = {
    {"Whole", VW_MSG_DATA_LEN, VW_MSG_DATA_LEN, 0, 0},
    {"HeldSocket", VW_MSG_DATA_LEN, VW_MSG_DATA_LEN, 0, 0, true},
    {"ShortReply", VW_MSG_DATA_LEN, 3, 0, VW_SYN_ERR_REPLY},
    {"WrongLength", 100, VW_MSG_DATA_LEN, 0, VW_SYN_ERR_REPLY},
    {"SilentWithinTimeOut", VW_MSG_DATA_LEN, 0, 50, VW_SYN_ERR_TIMEOUT},
};

class SynMsg : public testing::TestWithParam<PeerCase> {};

// The request frame as sent, and the client's result for each way the peer answers.
TEST_P(SynMsg, OneCommand)
{
    const PeerCase& c = GetParam();
    const std::string path = "/tmp/ispiaas-synmsg-" + std::to_string(getpid()) + "-" + c.name;
    unlink(path.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    tagUNIX_SOCKET_S sock{c.held ? socket(AF_UNIX, SOCK_STREAM, 0) : -1, {}};
    ASSERT_TRUE(!c.held || connect(sock.iFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0);

    std::vector<uint8_t> request(VW_SYN_REQUEST_HEAD + VW_CMD_BODY_LEN);
    std::thread server([&] {
        const int fd = accept(listener, nullptr, nullptr);
        std::vector<uint8_t> answer(VW_SYN_REPLY_HEAD + c.replyBytes);
        const uint32_t answerHead[2] = {VW_SYN_MAGIC, c.replyLen};
        std::memcpy(answer.data(), answerHead, sizeof(answerHead));
        for (size_t i = 0; i < c.replyBytes; ++i) {
            answer[VW_SYN_REPLY_HEAD + i] = static_cast<uint8_t>(i % 251);
        }
        (void)recv(fd, request.data(), request.size(), MSG_WAITALL);
        if (c.timeoutMs != 0) {
            (void)read(fd, answer.data(), 1);  // returns when the client closes
        } else {
            (void)send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);  // the client's result tells how it went
        }
        close(fd);
    });

    vwCmdBody cmd{};
    cmd.aucData[0] = 101;
    cmd.aucData[VW_CMD_BODY_LEN - 1] = 0x7e;
    MSG_DATA reply{};
    const char* target = c.held ? "/nonexistent/A" : path.c_str();
    EXPECT_EQ(RestSendSynUnixMsg(target, VW_MSG_WRITE, VW_CMD_AWB, &cmd, &sock, &reply, c.timeoutMs), c.result);
    if (c.held) {
        EXPECT_NE(fcntl(sock.iFd, F_GETFD), -1) << "the held socket stays open";
        close(sock.iFd);
    }
    server.join();
    close(listener);
    unlink(path.c_str());

    std::vector<uint32_t> head(4);
    std::memcpy(head.data(), request.data(), VW_SYN_REQUEST_HEAD);
    EXPECT_EQ(head, (std::vector<uint32_t>{VW_SYN_MAGIC, VW_MSG_WRITE, VW_CMD_AWB, VW_CMD_BODY_LEN}));
    EXPECT_EQ(std::memcmp(request.data() + VW_SYN_REQUEST_HEAD, cmd.aucData, VW_CMD_BODY_LEN), 0);
    if (c.result == 0) {
        EXPECT_EQ(reply.aucData[176], 176 % 251);
        EXPECT_EQ(reply.aucData[VW_MSG_DATA_LEN - 1], (VW_MSG_DATA_LEN - 1) % 251);
    }
}

INSTANTIATE_TEST_SUITE_P(Peers, SynMsg, testing::ValuesIn(kPeers), RowName);

// With no socket held and nothing listening at the path, the command is not sent.
TEST(SynMsgSocket, UnreachablePathAndBadArguments)
{
    vwCmdBody cmd{};
    MSG_DATA reply{};
    tagUNIX_SOCKET_S none{-1, {}};
    EXPECT_EQ(RestSendSynUnixMsg("/nonexistent/A", VW_MSG_READ, VW_CMD_AWB, &cmd, &none, &reply, 0),
              static_cast<uint64_t>(VW_SYN_ERR_CONNECT));
    EXPECT_EQ(RestSendSynUnixMsg(nullptr, VW_MSG_READ, VW_CMD_AWB, &cmd, nullptr, &reply, 0),
              static_cast<uint64_t>(VW_SYN_ERR_ARG));
}

}  // namespace
