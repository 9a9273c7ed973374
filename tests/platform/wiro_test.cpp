#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <numeric>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

#include "table.h"
#include "wiro.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Everything a receive may change (header bytes, keys, content), to check that a failure changed nothing.
using Snapshot = std::tuple<Bytes, std::multimap<int, std::string>, std::string>;

Snapshot Take(const wiro_message_t* m)
{
    Snapshot s{Bytes((const uint8_t*)m->header, (const uint8_t*)m->header + sizeof(wiro_header_t)),
               {},
               std::string((const char*)m->content, m->content_len)};
    for (size_t i = 0; i < m->key_count; i++) {
        std::get<1>(s).emplace(m->keys[i].key, std::string((const char*)m->keys[i].value, m->keys[i].len));
    }
    return s;
}

// A raw frame: the fixed part (a header of the version and zeros, the magic, the given lengths; host byte order,
// which is little-endian), then the body bytes.
Bytes Frame(uint32_t magic, uint32_t keysLen, uint32_t contentLen, Bytes body)
{
    const uint32_t fixed[5] = {WIRO_VERSION, 0, magic, keysLen, contentLen};
    body.insert(body.begin(), (const uint8_t*)fixed, (const uint8_t*)fixed + sizeof(fixed));
    return body;
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
        close(fds_[0]);
        close(fds_[1]);
    }
    void ClosePeer() { close(std::exchange(fds_[0], -1)); }
    int fds_[2];
    wiro_message_t* msg_;
};

// A new message, filled to the limits with every kind of key, goes through
// the socket whole; the frame exceeds the socket buffer, so both sides go
// through partial writes and reads. Then the ways sending it fails.
TEST_F(WiroTest, LargestFrameRoundTripAndSendFailures)
{
    wiro_message_t* out = wiro_message_new(0);
    EXPECT_EQ((Snapshot{{WIRO_VERSION, 0, 0, 0, 0, 0, 0, 0}, {}, ""}), Take(out));
    *out->header = {WIRO_VERSION, 0, 0, WIRO_OP_REPLY | 3, 0x1234, 200};
    ASSERT_EQ(0, wiro_header_set(out, 7, "x", 1));
    ASSERT_EQ(0, wiro_header_set(out, 7, "abc", 3));  // replaces
    ASSERT_EQ(0, wiro_header_set(out, 9, "", 0));
    ASSERT_EQ(0, wiro_header_set(out, 65535, "a\0b", 3));
    const std::string filler(WIRO_KEYS_MAX - 22, 'k');  // the key section: 7 + 4 + 7 + 4 + filler
    ASSERT_EQ(0, wiro_header_set(out, 1, filler.data(), filler.size()));
    std::string content(WIRO_CONTENT_MAX, '\0');
    std::iota(content.begin(), content.end(), '\0');
    ASSERT_EQ(0, wiro_content_add(out, content.data(), 5, 0));
    ASSERT_EQ(0, wiro_content_add(out, content.data() + 5, content.size() - 5, 0));
    EXPECT_EQ(-1, wiro_content_add(out, "x", 1, 0));

    const int frameLen = int(WIRO_FRAME_FIXED + WIRO_KEYS_MAX + WIRO_CONTENT_MAX);
    ASSERT_EQ(0, fcntl(fds_[0], F_SETFL, O_NONBLOCK));  // so that the send time-outs hold
    std::thread sender([&] { EXPECT_EQ(frameLen, wiro_message_sendfd_timeout(out, fds_[0], 5000)); });
    EXPECT_EQ(frameLen, wiro_message_recvfd_timeout(msg_, fds_[1], 5000));
    sender.join();
    EXPECT_TRUE(Take(out) == Take(msg_));
    size_t len = 99;
    EXPECT_NE(nullptr, wiro_header_get(msg_, 9, &len));
    EXPECT_EQ(0u, len);
    EXPECT_EQ(nullptr, wiro_header_get(msg_, 2, &len));  // the earlier key is gone

    std::string buf(content.size() + 1, '#');
    EXPECT_EQ(-1, wiro_content_copy(msg_, buf.data(), content.size() - 1));
    EXPECT_TRUE(buf == std::string(buf.size(), '#'));
    EXPECT_EQ(int(content.size()), wiro_content_copy(msg_, buf.data(), content.size()));
    EXPECT_TRUE(buf == content + "#");
    EXPECT_EQ(-1, wiro_content_copy(msg_, nullptr, buf.size()));

    // No one reads: the frame does not fit into the socket buffer.
    EXPECT_EQ(-1, wiro_message_sendfd_timeout(out, fds_[0], 50));
    EXPECT_EQ(ETIMEDOUT, errno);
    // One more key is a frame the receiver would refuse, so it is not sent.
    ASSERT_EQ(0, wiro_header_set(out, 2, "", 0));
    EXPECT_EQ(-1, wiro_message_sendfd_timeout(out, fds_[0], 50));
    EXPECT_EQ(EMSGSIZE, errno);
    // A vanished peer gives EPIPE, not a signal that ends the process.
    ClosePeer();
    EXPECT_EQ(-1, wiro_message_sendfd(msg_, fds_[1]));
    EXPECT_EQ(EPIPE, errno);
    EXPECT_EQ(-1, wiro_header_set(out, 3, filler.data(), 65536));
    EXPECT_EQ(-1, wiro_header_set(out, 65536, "a", 1));
    EXPECT_EQ(-1, wiro_header_set(out, -1, "a", 1));
    EXPECT_EQ(-1, wiro_header_set(out, 3, nullptr, 0));
    wiro_message_put(out);
}

TEST_F(WiroTest, FrameIsOneWriteInWireLayout)
{
    int sp[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sp));  // one write = one packet
    msg_->header->command = 0x0102;
    ASSERT_EQ(47, wiro_message_sendfd_timeout(msg_, sp[0], 1000));
    uint8_t pkt[256];
    ASSERT_EQ(47, recv(sp[1], pkt, sizeof(pkt), 0));
    // Header (version 1, flags, reserved, op, command), magic, key and content lengths, the keys, the content.
    const std::string expect(
        "\x01\0\0\x02\x02\x01\0\0WIRO\x10\0\0\0\x0b\0\0\0\x01\0\x04\0old1\x02\0\x04\0old2old content", 47);
    EXPECT_EQ(expect, std::string((const char*)pkt, 47));
    close(sp[0]);
    close(sp[1]);
}

// The bytes are written before the receive; for the rows that expect
// ECONNRESET the peer then closes.
struct FailCase {
    const char* name;
    Bytes bytes;
    int err;
};

class WiroFailTest : public WiroTest, public testing::WithParamInterface<FailCase> {};

TEST_P(WiroFailTest, RefusedAndMessageUnchanged)
{
    const FailCase& c = GetParam();
    ASSERT_EQ(ssize_t(c.bytes.size()), write(fds_[0], c.bytes.data(), c.bytes.size()));
    if (c.err == ECONNRESET) {
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
    testing::Values(FailCase{"Nothing", {}, ETIMEDOUT},
                    FailCase{"FixedPartOnly", Frame(WIRO_FRAME_MAGIC, 0, 10, {'a', 'b'}), ETIMEDOUT},
                    FailCase{"ClosedInFixedPart", Bytes(10, 0), ECONNRESET},
                    FailCase{"ClosedInContent", Frame(WIRO_FRAME_MAGIC, 6, 10, kKey), ECONNRESET},
                    FailCase{"BadMagic", Frame(0x4f524958, 0, 0, {}), EPROTO},
                    FailCase{"KeysTooLong", Frame(WIRO_FRAME_MAGIC, WIRO_KEYS_MAX + 1, 0, {}), EPROTO},
                    FailCase{"ContentTooLong", Frame(WIRO_FRAME_MAGIC, 0, WIRO_CONTENT_MAX + 1, {}), EPROTO},
                    FailCase{"PartialKeyEntry", Frame(WIRO_FRAME_MAGIC, 3, 0, {5, 0, 2}), EPROTO},
                    FailCase{"KeyValuePastSection", Frame(WIRO_FRAME_MAGIC, 5, 1, kKey), EPROTO}),
    RowName);

TEST_F(WiroTest, RepeatedKeyInFrameTakesLastValue)
{
    Bytes body = kKey;
    body.insert(body.end(), {5, 0, 1, 0, 'z', 'n', 'e', 'w'});
    body = Frame(WIRO_FRAME_MAGIC, 11, 3, body);
    ASSERT_EQ(ssize_t(body.size()), write(fds_[0], body.data(), body.size()));
    ASSERT_EQ(34, wiro_message_recvfd(msg_, fds_[1]));
    EXPECT_EQ((Snapshot{{WIRO_VERSION, 0, 0, 0, 0, 0, 0, 0}, {{5, "z"}}, "new"}), Take(msg_));
}

}  // namespace
