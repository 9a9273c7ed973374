// The synchronous command channel's client against a control process played
// by a thread on a real Unix socket.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kxapi_common.h"

namespace {

bool ReadAll(int fd, void* data, size_t len)
{
    auto* p = static_cast<uint8_t*>(data);
    while (len > 0) {
        const ssize_t n = read(fd, p, len);
        if (n <= 0) {
            return false;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

void WriteAll(int fd, const void* data, size_t len) { ASSERT_EQ(write(fd, data, len), static_cast<ssize_t>(len)); }

// What the peer does once it has read a whole request.
using Peer = std::function<void(int fd)>;

struct PeerCase {
    const char* name;
    Peer peer;
    uint64_t timeoutMs;
    uint64_t result;
};

const uint32_t kReplyHead[2] = {VW_SYN_MAGIC, VW_MSG_DATA_LEN};

// A whole reply whose bytes are their offset modulo 251.
void AnswerWhole(int fd)
{
    std::vector<uint8_t> reply(VW_MSG_DATA_LEN);
    for (size_t i = 0; i < reply.size(); ++i) {
        reply[i] = static_cast<uint8_t>(i % 251);
    }
    WriteAll(fd, kReplyHead, sizeof(kReplyHead));
    WriteAll(fd, reply.data(), reply.size());
}

const PeerCase kPeers[] = {
    {"Whole", AnswerWhole, 0, 0},
    {"ClosesWithoutAnswer", [](int) {}, 0, VW_SYN_ERR_REPLY},
    {"ShortReply",
     [](int fd) {
         WriteAll(fd, kReplyHead, sizeof(kReplyHead));
         WriteAll(fd, "abc", 3);
     },
     0, VW_SYN_ERR_REPLY},
    {"WrongLength",
     [](int fd) {
         const uint32_t head[2] = {VW_SYN_MAGIC, 100};
         WriteAll(fd, head, sizeof(head));
     },
     0, VW_SYN_ERR_REPLY},
    {"SilentWithinTimeOut", [](int fd) { char c; (void)read(fd, &c, 1); }, 50, VW_SYN_ERR_TIMEOUT},
};

class SynMsg : public testing::TestWithParam<PeerCase> {};

// Over a connection made for the command: the request frame as sent, and the
// client's result for each way the peer answers.
TEST_P(SynMsg, OneCommandOverItsOwnConnection)
{
    const std::string path = "/tmp/ispiaas-synmsg-" + std::to_string(getpid()) + "-" + GetParam().name;
    unlink(path.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ASSERT_EQ(listen(listener, 1), 0);

    uint32_t head[4] = {};
    std::vector<uint8_t> body(VW_CMD_BODY_LEN);
    std::thread server([&] {
        const int fd = accept(listener, nullptr, nullptr);
        if (ReadAll(fd, head, sizeof(head)) && ReadAll(fd, body.data(), body.size())) {
            GetParam().peer(fd);
        }
        close(fd);
    });

    vwCmdBody cmd{};
    cmd.aucData[0] = 101;
    cmd.aucData[VW_CMD_BODY_LEN - 1] = 0x7e;
    MSG_DATA reply{};
    tagUNIX_SOCKET_S sock{-1, {}};
    EXPECT_EQ(RestSendSynUnixMsg(path.c_str(), VW_MSG_WRITE, VW_CMD_AWB, &cmd, &sock, &reply, GetParam().timeoutMs),
              GetParam().result);
    server.join();
    close(listener);
    unlink(path.c_str());

    EXPECT_EQ((std::vector<uint32_t>(head, head + 4)),
              (std::vector<uint32_t>{VW_SYN_MAGIC, VW_MSG_WRITE, VW_CMD_AWB, VW_CMD_BODY_LEN}));
    EXPECT_EQ(std::memcmp(body.data(), cmd.aucData, body.size()), 0);
    if (GetParam().result == 0) {
        EXPECT_EQ(reply.aucData[176], 176 % 251);
        EXPECT_EQ(reply.aucData[VW_MSG_DATA_LEN - 1], (VW_MSG_DATA_LEN - 1) % 251);
    }
}

INSTANTIATE_TEST_SUITE_P(Peers, SynMsg, testing::ValuesIn(kPeers),
                         [](const testing::TestParamInfo<PeerCase>& info) { return std::string(info.param.name); });

// A socket the connection already holds is used as it is and stays open;
// with none and nothing listening at the path, the command is not sent.
TEST(SynMsgSocket, HeldSocketIsUsedAndUnreachablePathRefused)
{
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    std::thread server([&] {
        std::vector<uint8_t> request(VW_SYN_REQUEST_HEAD + VW_CMD_BODY_LEN);
        if (ReadAll(pair[1], request.data(), request.size())) {
            AnswerWhole(pair[1]);
        }
    });
    vwCmdBody cmd{};
    MSG_DATA reply{};
    tagUNIX_SOCKET_S held{pair[0], {}};
    EXPECT_EQ(RestSendSynUnixMsg("/nonexistent/A", VW_MSG_READ, VW_CMD_EXTRE_COLOR, &cmd, &held, &reply, 0), 0u);
    server.join();
    EXPECT_EQ(write(pair[0], "x", 1), 1) << "the held socket stays open";
    close(pair[0]);
    close(pair[1]);

    tagUNIX_SOCKET_S none{-1, {}};
    EXPECT_EQ(RestSendSynUnixMsg("/nonexistent/A", VW_MSG_READ, VW_CMD_AWB, &cmd, &none, &reply, 0),
              static_cast<uint64_t>(VW_SYN_ERR_CONNECT));
    EXPECT_EQ(RestSendSynUnixMsg(nullptr, VW_MSG_READ, VW_CMD_AWB, &cmd, nullptr, &reply, 0),
              static_cast<uint64_t>(VW_SYN_ERR_ARG));
}

}  // namespace
