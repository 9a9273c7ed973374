#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "wiro.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Everything a receive may change, to check that a failure changed nothing.
struct Snapshot {
    Bytes header;
    std::map<int, std::string> keys;
    std::string content;
    bool operator==(const Snapshot&) const = default;
};

Snapshot Take(const wiro_message_t* m)
{
    Snapshot s{Bytes((const uint8_t*)m->header, (const uint8_t*)m->header + sizeof(wiro_header_t)),
               {},
               std::string((const char*)m->content, m->content_len)};
    for (size_t i = 0; i < m->key_count; i++)
        s.keys[m->keys[i].key] = std::string((const char*)m->keys[i].value, m->keys[i].len);
    return s;
}

// A raw frame: fixed part with the given lengths, then the body bytes.
Bytes Frame(uint32_t magic, uint32_t keysLen, uint32_t contentLen, const Bytes& body)
{
    Bytes f(WIRO_FRAME_FIXED + body.size(), 0);
    f[0] = WIRO_VERSION;
    memcpy(&f[8], &magic, 4);
    memcpy(&f[12], &keysLen, 4);
    memcpy(&f[16], &contentLen, 4);
    std::copy(body.begin(), body.end(), f.begin() + WIRO_FRAME_FIXED);
    return f;
}

class WiroTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds_));
        msg_ = wiro_message_new(0);
        ASSERT_NE(nullptr, msg_);
        // A message with earlier contents, to see that receiving replaces them.
        msg_->header->op = 2;
        ASSERT_EQ(0, wiro_header_set(msg_, 1, "old1", 4));
        ASSERT_EQ(0, wiro_header_set(msg_, 2, "old2", 4));
        ASSERT_EQ(0, wiro_content_add(msg_, "old content", 11, 0));
    }
    void TearDown() override
    {
        wiro_message_put(msg_);
        for (int fd : fds_) {
            if (fd >= 0) close(fd);
        }
    }
    void Write(const Bytes& b) { ASSERT_EQ(ssize_t(b.size()), write(fds_[0], b.data(), b.size())); }
    void ClosePeer()
    {
        close(fds_[0]);
        fds_[0] = -1;
    }
    int fds_[2];
    wiro_message_t* msg_;
};

TEST_F(WiroTest, RoundTripKeepsHeaderKeysAndContent)
{
    wiro_message_t* out = wiro_message_new(0);
    *out->header = {WIRO_VERSION, 0, 0, WIRO_OP_REPLY | 3, 0x1234, 200};
    ASSERT_EQ(0, wiro_header_set(out, 7, "x", 1));
    ASSERT_EQ(0, wiro_header_set(out, 7, "abc", 3));  // replaces
    ASSERT_EQ(0, wiro_header_set(out, 9, "", 0));
    ASSERT_EQ(0, wiro_header_set(out, 65535, "a\0b", 3));
    const std::string content = "{\"Gain\":10}\0tail";
    ASSERT_EQ(0, wiro_content_add(out, content.data(), 5, 0));
    ASSERT_EQ(0, wiro_content_add(out, content.data() + 5, content.size() - 5, 0));
    const int frameLen = 20 + 7 + 4 + 7 + int(content.size());
    ASSERT_EQ(frameLen, wiro_message_sendfd(out, fds_[0]));

    ASSERT_EQ(frameLen, wiro_message_recvfd_timeout(msg_, fds_[1], 1000));
    EXPECT_EQ(&msg_->header_storage, msg_->header);
    EXPECT_EQ(Take(out), Take(msg_));
    EXPECT_EQ(WIRO_OP_REPLY | 3, msg_->header->op);
    EXPECT_EQ(0x1234, msg_->header->command);
    EXPECT_EQ(200, msg_->header->code);
    size_t len = 99;
    EXPECT_NE(nullptr, wiro_header_get(msg_, 9, &len));
    EXPECT_EQ(0u, len);
    EXPECT_EQ(nullptr, wiro_header_get(msg_, 1, &len));  // replaced with the frame's keys
    EXPECT_EQ(0u, len);
    wiro_message_put(out);

    // content_copy: exact, short and long buffers.
    for (size_t size : {content.size(), content.size() - 1, content.size() + 10}) {
        std::string buf(size, '#');
        int rc = wiro_content_copy(msg_, buf.data(), size);
        if (size < content.size()) {
            EXPECT_EQ(-1, rc);
            EXPECT_EQ(std::string(size, '#'), buf);
        } else {
            EXPECT_EQ(int(content.size()), rc);
            EXPECT_EQ(content, buf.substr(0, content.size()));
        }
    }
    EXPECT_EQ(-1, wiro_content_copy(msg_, nullptr, 100));
}

TEST_F(WiroTest, FrameIsOneWriteInWireLayout)
{
    int sp[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sp));  // one write = one packet
    msg_->header->command = 0x0102;
    ASSERT_EQ(47, wiro_message_sendfd_timeout(msg_, sp[0], 1000));
    uint8_t pkt[256];
    ASSERT_EQ(47, recv(sp[1], pkt, sizeof(pkt), 0));
    const uint8_t head[] = {WIRO_VERSION, 0, 0, 2, 0x02, 0x01, 0, 0, 'W', 'I', 'R', 'O', 16, 0, 0, 0, 11, 0, 0, 0};
    EXPECT_EQ(0, memcmp(head, pkt, sizeof(head)));
    const uint8_t key1[] = {1, 0, 4, 0, 'o', 'l', 'd', '1'};
    EXPECT_EQ(0, memcmp(key1, pkt + 20, sizeof(key1)));
    EXPECT_EQ(0, memcmp("old content", pkt + 36, 11));
    close(sp[0]);
    close(sp[1]);
}

TEST_F(WiroTest, LargestContentRoundTrip)
{
    wiro_message_t* out = wiro_message_new(0);
    Bytes big(WIRO_CONTENT_MAX);
    for (size_t i = 0; i < big.size(); i++) big[i] = uint8_t(i * 31);
    ASSERT_EQ(0, wiro_content_add(out, big.data(), big.size(), 0));
    EXPECT_EQ(-1, wiro_content_add(out, "x", 1, 0));
    // The frame exceeds the socket buffer: both sides go through partial writes and reads.
    std::thread sender([&] { EXPECT_EQ(int(20 + big.size()), wiro_message_sendfd_timeout(out, fds_[0], 5000)); });
    EXPECT_EQ(int(20 + big.size()), wiro_message_recvfd(msg_, fds_[1]));
    sender.join();
    EXPECT_EQ(Take(out), Take(msg_));
    wiro_message_put(out);
}

TEST_F(WiroTest, NewMessageAndKeyLimits)
{
    wiro_message_t* out = wiro_message_new(0);
    EXPECT_EQ(&out->header_storage, out->header);
    EXPECT_EQ((Snapshot{{WIRO_VERSION, 0, 0, 0, 0, 0, 0, 0}, {}, ""}), Take(out));
    std::string v(WIRO_KEYS_MAX - 4, 'k');
    ASSERT_EQ(0, wiro_header_set(out, 1, v.data(), v.size()));
    EXPECT_EQ(int(20 + WIRO_KEYS_MAX), wiro_message_sendfd(out, fds_[0]));
    ASSERT_EQ(0, wiro_header_set(out, 2, "", 0));
    EXPECT_EQ(-1, wiro_message_sendfd(out, fds_[0]));
    EXPECT_EQ(EMSGSIZE, errno);
    EXPECT_EQ(int(20 + WIRO_KEYS_MAX), wiro_message_recvfd(msg_, fds_[1]));
    EXPECT_EQ(-1, wiro_header_set(out, 3, v.data(), 65536));
    EXPECT_EQ(-1, wiro_header_set(out, 65536, "a", 1));
    EXPECT_EQ(-1, wiro_header_set(out, -1, "a", 1));
    EXPECT_EQ(-1, wiro_header_set(out, 3, nullptr, 0));
    wiro_message_put(out);
}

struct FailCase {
    const char* name;
    Bytes bytes;  // written before the receive
    bool closePeer;
    int err;
};

void PrintTo(const FailCase& c, std::ostream* os) { *os << c.name; }

class WiroFailTest : public WiroTest, public testing::WithParamInterface<FailCase> {};

TEST_P(WiroFailTest, RefusedAndMessageUnchanged)
{
    const FailCase& c = GetParam();
    Write(c.bytes);
    if (c.closePeer) {
        ClosePeer();
    }
    Snapshot before = Take(msg_);
    errno = 0;
    EXPECT_EQ(-1, wiro_message_recvfd_timeout(msg_, fds_[1], 50));
    EXPECT_EQ(c.err, errno);
    EXPECT_EQ(before, Take(msg_));
    EXPECT_EQ(&msg_->header_storage, msg_->header);
}

const Bytes kKey = {5, 0, 2, 0, 'h', 'i'};

INSTANTIATE_TEST_SUITE_P(
    Wiro, WiroFailTest,
    testing::Values(FailCase{"Nothing", {}, false, ETIMEDOUT},
                    FailCase{"FixedPartOnly", Frame(WIRO_FRAME_MAGIC, 0, 10, {'a', 'b'}), false, ETIMEDOUT},
                    FailCase{"ClosedBeforeFrame", {}, true, ECONNRESET},
                    FailCase{"ClosedInFixedPart", Bytes(10, 0), true, ECONNRESET},
                    FailCase{"ClosedInContent", Frame(WIRO_FRAME_MAGIC, 6, 10, kKey), true, ECONNRESET},
                    FailCase{"BadMagic", Frame(0x4f524958, 0, 0, {}), false, EPROTO},
                    FailCase{"KeysTooLong", Frame(WIRO_FRAME_MAGIC, WIRO_KEYS_MAX + 1, 0, {}), false, EPROTO},
                    FailCase{"ContentTooLong", Frame(WIRO_FRAME_MAGIC, 0, WIRO_CONTENT_MAX + 1, {}), false, EPROTO},
                    FailCase{"PartialKeyEntry", Frame(WIRO_FRAME_MAGIC, 3, 0, {5, 0, 2}), false, EPROTO},
                    FailCase{"KeyValuePastSection", Frame(WIRO_FRAME_MAGIC, 5, 1, {5, 0, 2, 0, 'h', 'i'}), false,
                             EPROTO}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(WiroTest, RepeatedKeyInFrameTakesLastValue)
{
    Bytes body = kKey;
    body.insert(body.end(), {5, 0, 1, 0, 'z', 'n', 'e', 'w'});
    Write(Frame(WIRO_FRAME_MAGIC, 11, 3, body));
    ASSERT_EQ(34, wiro_message_recvfd(msg_, fds_[1]));
    EXPECT_EQ((Snapshot{{WIRO_VERSION, 0, 0, 0, 0, 0, 0, 0}, {{5, "z"}}, "new"}), Take(msg_));
}

TEST_F(WiroTest, SendToClosedPeerFailsWithoutSignal)
{
    ClosePeer();
    EXPECT_EQ(-1, wiro_message_sendfd(msg_, fds_[1]));
    EXPECT_EQ(EPIPE, errno);
}

TEST_F(WiroTest, SendTimesOutWhenPeerDoesNotRead)
{
    ASSERT_EQ(0, fcntl(fds_[0], F_SETFL, O_NONBLOCK));
    Bytes chunk(4096);
    while (write(fds_[0], chunk.data(), chunk.size()) > 0 || errno == EINTR) {
    }
    ASSERT_EQ(EAGAIN, errno);
    EXPECT_EQ(-1, wiro_message_sendfd_timeout(msg_, fds_[0], 50));
    EXPECT_EQ(ETIMEDOUT, errno);
}

}  // namespace
