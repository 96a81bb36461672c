// The byte layer on a bare socket pair: whole messages come out whatever the socket took at a
// time, descriptors stay with the message they were sent with, and a peer that does not read
// is cut off at the queue's bound rather than growing it for ever.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "channel.h"

namespace {

struct Pair {
    Pair() {
        int fds[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds));
        mine = ndk::ScopedFileDescriptor(fds[0]);
        theirs = ndk::ScopedFileDescriptor(fds[1]);
    }
    ndk::ScopedFileDescriptor mine;
    ndk::ScopedFileDescriptor theirs;
};

// A send buffer as small as the kernel allows, so that a modest message is written in pieces.
void shrinkSendBuffer(int fd) {
    const int size = 4096;
    ASSERT_EQ(0, setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size)));
}

WireHeader transactHeader(uint64_t txId) {
    WireHeader h{};
    h.type = kWireTransact;
    h.txId = txId;
    return h;
}

std::vector<uint8_t> pattern(size_t size, uint8_t seed) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7);
    return bytes;
}

// Reads from `in` until a frame is complete, flushing `out` meanwhile; false on a protocol
// breach or the end of the connection.
bool receiveFrame(Channel& in, Channel& out, Frame* frame) {
    for (;;) {
        bool bad = false;
        if (in.takeFrame(frame, &bad)) return true;
        if (bad) return false;
        out.flush();
        if (in.readMore(false) == Channel::Read::kClosed) return false;
    }
}

ino_t inodeOf(int fd) {
    struct stat st {};
    return fstat(fd, &st) == 0 ? st.st_ino : 0;
}

}  // namespace

TEST(Channel, AMessageTheSocketTakesInPiecesArrivesWholeAndInOrder) {
    Pair p;
    shrinkSendBuffer(p.mine.get());
    Channel sender(std::move(p.mine), "sender");
    Channel receiver(std::move(p.theirs), "receiver");
    const std::vector<uint8_t> big = pattern(300 * 1024, 1);
    const std::vector<uint8_t> small = pattern(100, 2);
    Outgoing first;
    first.data = &big;
    Outgoing second;
    second.data = &small;
    EXPECT_EQ(Channel::Sent::kQueued, sender.send(transactHeader(1), first));
    // Behind a queue, even a message the socket could take waits its turn.
    EXPECT_EQ(Channel::Sent::kQueued, sender.send(transactHeader(2), second));
    EXPECT_TRUE(sender.wantsWrite());

    Frame frame;
    ASSERT_TRUE(receiveFrame(receiver, sender, &frame));
    EXPECT_EQ(1u, frame.header.txId);
    EXPECT_EQ(big, frame.data);
    ASSERT_TRUE(receiveFrame(receiver, sender, &frame));
    EXPECT_EQ(2u, frame.header.txId);
    EXPECT_EQ(small, frame.data);
    EXPECT_TRUE(sender.flush());
    EXPECT_FALSE(sender.wantsWrite());
    EXPECT_EQ(0u, sender.queuedBytes());
}

TEST(Channel, DescriptorsRideTheFirstByteOfTheirOwnMessage) {
    Pair p;
    shrinkSendBuffer(p.mine.get());
    Channel sender(std::move(p.mine), "sender");
    Channel receiver(std::move(p.theirs), "receiver");
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    ndk::ScopedFileDescriptor readEnd(pipeFds[0]);
    ndk::ScopedFileDescriptor writeEnd(pipeFds[1]);
    std::vector<ndk::ScopedFileDescriptor> carried;
    carried.push_back(readEnd.dup());
    carried.push_back(writeEnd.dup());

    // One message sent partly at once (descriptors with its first byte), one queued whole
    // behind it (descriptors copied, since the parcel keeps its own), one without any.
    const std::vector<uint8_t> big = pattern(200 * 1024, 3);
    Outgoing withFds;
    withFds.data = &big;
    withFds.fds = &carried;
    EXPECT_EQ(Channel::Sent::kQueued, sender.send(transactHeader(1), withFds));
    EXPECT_EQ(Channel::Sent::kQueued, sender.send(transactHeader(2), withFds));
    EXPECT_EQ(Channel::Sent::kQueued, sender.send(transactHeader(3), Outgoing{}));

    for (uint64_t id = 1; id <= 3; ++id) {
        Frame frame;
        ASSERT_TRUE(receiveFrame(receiver, sender, &frame));
        EXPECT_EQ(id, frame.header.txId);
        ASSERT_EQ(id == 3 ? 0u : 2u, frame.fds.size());
        if (id == 3) continue;
        EXPECT_EQ(inodeOf(readEnd.get()), inodeOf(frame.fds[0].get()));
        EXPECT_EQ(inodeOf(writeEnd.get()), inodeOf(frame.fds[1].get()));
    }
}

TEST(Channel, DescriptorsCutOffByTheControlBufferEndTheConnection) {
    Pair p;
    Channel receiver(std::move(p.theirs), "receiver");
    // More descriptors than any message may carry: the kernel truncates the control data, and
    // the receiver cannot tell which message lost which.
    std::vector<ndk::ScopedFileDescriptor> many;
    std::vector<int> raw;
    for (int i = 0; i < 64; ++i) {
        many.emplace_back(dup(STDERR_FILENO));
        raw.push_back(many.back().get());
    }
    alignas(cmsghdr) char control[CMSG_SPACE(64 * sizeof(int))];
    char byte = 0;
    iovec iov{&byte, 1};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    cmsghdr* c = CMSG_FIRSTHDR(&msg);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SCM_RIGHTS;
    c->cmsg_len = CMSG_LEN(raw.size() * sizeof(int));
    memcpy(CMSG_DATA(c), raw.data(), raw.size() * sizeof(int));
    ASSERT_EQ(1, sendmsg(p.mine.get(), &msg, 0));
    EXPECT_EQ(Channel::Read::kClosed, receiver.readMore(false));
}

TEST(Channel, AMessageClaimingDescriptorsThatDidNotComeIsABreach) {
    Pair p;
    Channel receiver(std::move(p.theirs), "receiver");
    WireHeader h = transactHeader(1);
    h.magic = kWireMagic;
    h.fdCount = 1;
    ASSERT_EQ(ssize_t(sizeof(h)), write(p.mine.get(), &h, sizeof(h)));
    ASSERT_EQ(Channel::Read::kMore, receiver.readMore(true));
    Frame frame;
    bool bad = false;
    EXPECT_FALSE(receiver.takeFrame(&frame, &bad));
    EXPECT_TRUE(bad);
}

TEST(Channel, APeerThatDoesNotReadIsCutOffAtTheQueueBound) {
    Pair p;
    Channel sender(std::move(p.mine), "sender");
    const std::vector<uint8_t> chunk = pattern(64 * 1024, 4);
    Outgoing out;
    out.data = &chunk;
    // The bound is checked when the next message comes, so a queue can hold one message past it.
    size_t sent = 0;
    Channel::Sent result = Channel::Sent::kAll;
    while (result != Channel::Sent::kFailed && sent < 64) {
        result = sender.send(transactHeader(++sent), out);
    }
    EXPECT_EQ(Channel::Sent::kFailed, result);
    EXPECT_TRUE(sender.isShut());
    EXPECT_EQ(0u, sender.queuedBytes());
    EXPECT_FALSE(sender.wantsWrite());
    EXPECT_EQ(Channel::Sent::kFailed, sender.send(transactHeader(++sent), out));
    // Not before the queue itself passed the bound.
    EXPECT_GT(sent * chunk.size(), Channel::kOutboundLimit);
}
