// Whatever arrives on a socket, the runtime answers with an error or drops that connection;
// the service keeps serving everyone else and nothing piles up. Peers that hold on (idle, half
// a message sent, replies never read) cost the others nothing. (A reply cut short fails the
// call as a read past a parcel's end does: ParcelTest.)
#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include "../../hostbinder/src/parcel.h"
#include "../../hostbinder/src/wire.h"
#include "FakeVela.h"
#include "ServiceHarness.h"
#include "Waiter.h"

using aidl::vendor::norvo::hardware::vela::IVela;
using namespace paxtest;

namespace {

class Malformed : public ::testing::Test {
protected:
    void SetUp() override {
        service = ndk::SharedRefBase::make<FakeVela>();
        ASSERT_TRUE(declareVela());
        ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    }

    int rawConnect() {
        std::string path = std::string(HostBinder_getDirectory()) +
                           "/vendor.norvo.hardware.vela.IVela@default.sock";
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(0, connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
        timeval tv{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
        return fd;
    }

    // Sends raw bytes; true when the service closed the connection afterwards.
    bool closedAfter(const std::vector<uint8_t>& bytes) {
        int fd = rawConnect();
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        shutdown(fd, SHUT_WR);
        const bool closed = closedByPeer(fd);
        close(fd);
        return closed;
    }

    // A transaction's bytes; `type` and `claimedSize` lie about them when given.
    static std::vector<uint8_t> frame(uint32_t code, const std::vector<uint8_t>& data,
                                      const std::vector<uint32_t>& offsets = {},
                                      uint32_t type = kWireTransact, int64_t claimedSize = -1) {
        WireHeader h{};
        h.magic = kWireMagic;
        h.type = type;
        h.txId = 1;
        h.target = 0;
        h.code = code;
        h.objectCount = static_cast<uint32_t>(offsets.size());
        h.dataSize = static_cast<uint32_t>(claimedSize < 0 ? data.size() : claimedSize);
        std::vector<uint8_t> bytes(sizeof(h));
        memcpy(bytes.data(), &h, sizeof(h));
        for (uint32_t o : offsets) {
            bytes.insert(bytes.end(), reinterpret_cast<uint8_t*>(&o),
                         reinterpret_cast<uint8_t*>(&o) + 4);
        }
        bytes.insert(bytes.end(), data.begin(), data.end());
        return bytes;
    }

    // A well-formed transaction carrying `data`; returns the reply's status.
    int32_t transactRaw(uint32_t code, const std::vector<uint8_t>& data,
                        const std::vector<uint32_t>& offsets = {}) {
        int fd = rawConnect();
        std::vector<uint8_t> bytes = frame(code, data, offsets);
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        WireHeader reply{};
        ssize_t n = recv(fd, &reply, sizeof(reply), MSG_WAITALL);
        close(fd);
        if (n != static_cast<ssize_t>(sizeof(reply))) return INT32_MIN;
        EXPECT_EQ(kWireReply, reply.type);
        return reply.status;
    }

    // The bytes of a parcel holding the interface token (policy, work source, partition, name),
    // then `text` if given, then `words`.
    static std::vector<uint8_t> tokenThen(std::vector<int32_t> words, const char* text = nullptr) {
        ndk::ScopedAParcel p(AParcel_create());
        for (int32_t word : {INT32_MIN, -1, 0x564e4452}) AParcel_writeInt32(p.get(), word);  // VNDR
        ndk::AParcel_writeString(p.get(), std::string(IVela::descriptor));
        if (text != nullptr) ndk::AParcel_writeString(p.get(), std::string(text));
        for (int32_t w : words) AParcel_writeInt32(p.get(), w);
        std::vector<uint8_t> out(AParcel_getDataSize(p.get()));
        AParcel_setDataPosition(p.get(), 0);
        for (size_t i = 0; i < out.size(); i += 4) {
            AParcel_readInt32(p.get(), reinterpret_cast<int32_t*>(out.data() + i));
        }
        return out;
    }

    // A client that connects now is answered; a watchdog keeps a stalled service from hanging
    // the test, and the time it took is printed, not judged.
    void expectServiceStillWorks(const char* while_ = "") {
        auto call = std::async(std::launch::async, [this] {
            const auto start = std::chrono::steady_clock::now();
            auto vela =
                    IVela::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kVelaInstance)));
            int32_t out = -1;
            ON_CALL(*service, resCtlRelease).WillByDefault(reply(2));
            bool ok = vela != nullptr && vela->resCtlRelease(1, &out).isOk() && out == 2;
            return std::make_pair(ok, std::chrono::steady_clock::now() - start);
        });
        ASSERT_EQ(std::future_status::ready, call.wait_for(std::chrono::seconds(5)));
        auto [ok, took] = call.get();
        EXPECT_TRUE(ok);
        if (while_[0] != '\0') {
            printf("answered a new client %s in %.2f ms\n", while_,
                   std::chrono::duration<double, std::milli>(took).count());
        }
    }

    // True when the peer closes `fd` (reading, and dropping, what it sent before).
    static bool closedByPeer(int fd, size_t* received = nullptr) {
        uint8_t sink[4096];
        ssize_t n;
        size_t total = 0;
        while ((n = recv(fd, sink, sizeof(sink), 0)) > 0) total += static_cast<size_t>(n);
        if (received != nullptr) *received = total;
        return n == 0;
    }

    std::shared_ptr<FakeVela> service;
};

}  // namespace

TEST_F(Malformed, GarbageAndLiesAboutSizesCloseOnlyThatConnection) {
    EXPECT_TRUE(closedAfter({'G', 'E', 'T', ' ', '/', '\n'}));
    // An absurd length, a truncated message (more promised than sent), an unknown message
    // type, and a reply nobody asked for.
    const std::pair<uint32_t, uint32_t> lies[] = {
            {kWireTransact, 0xfffffff0u}, {kWireTransact, 64}, {99, 0}, {kWireReply, 0}};
    for (auto [type, size] : lies) {
        EXPECT_TRUE(closedAfter(frame(0, {}, {}, type, size)))
                << "type " << type << ", size " << size;
    }
    // Nothing piles up: every connection that was closed is gone.
    EXPECT_TRUE(waitUntil([] { return HostBinder_connectionCount() == 0; }))
            << HostBinder_connectionCount() << " connections left";
    expectServiceStillWorks();
}

TEST_F(Malformed, BadContentsFailTheTransactionNotTheService) {
    // No interface token at all.
    EXPECT_EQ(STATUS_BAD_TYPE, transactRaw(FIRST_CALL_TRANSACTION + 2, {}));
    // resCtlRelease whose handle is missing.
    EXPECT_NE(STATUS_OK, transactRaw(FIRST_CALL_TRANSACTION + 2, tokenThen({})));
    // An object reference to something the service never exported.
    std::vector<uint8_t> data = tokenThen({kObjectReceiverLocal, 0, 12345, 0});
    uint32_t objectAt = static_cast<uint32_t>(data.size()) - 16;
    EXPECT_EQ(STATUS_BAD_VALUE, transactRaw(FIRST_CALL_TRANSACTION, data, {objectAt}));
    // Object offsets outside the data, or misaligned.
    EXPECT_EQ(STATUS_BAD_VALUE, transactRaw(FIRST_CALL_TRANSACTION, data, {4096}));
    EXPECT_EQ(STATUS_BAD_VALUE, transactRaw(FIRST_CALL_TRANSACTION, data, {objectAt + 1}));
    // A transaction to an object that does not exist.
    EXPECT_EQ(STATUS_OK, transactRaw(0x5f504e47 /* ping */, {}));
    EXPECT_CALL(*service, resCtlRelease(1, testing::_));  // only the well-formed call
    expectServiceStillWorks();
    testing::Mock::VerifyAndClearExpectations(service.get());
}

TEST_F(Malformed, IdleAndHalfSentConnectionsCostOthersNothing) {
    std::vector<int> idle, half, extra;
    for (int i = 0; i < 64; ++i) idle.push_back(rawConnect());
    std::vector<uint8_t> partial = frame(FIRST_CALL_TRANSACTION, tokenThen({1, 2, 3}));
    partial.resize(sizeof(WireHeader) + 10);
    for (int i = 0; i < 16; ++i) {
        half.push_back(rawConnect());
        send(half.back(), partial.data(), partial.size(), MSG_NOSIGNAL);
    }
    expectServiceStillWorks("beside 64 idle connections and 16 half messages");

    // Past the per-service limit, connections are closed at once; those inside it stay.
    for (int i = 0; i < 60; ++i) extra.push_back(rawConnect());
    EXPECT_TRUE(closedByPeer(extra.back()));
    expectServiceStillWorks("at the connection limit");

    // Half a message is not waited for beyond a few seconds.
    EXPECT_TRUE(closedByPeer(half.front()));
    for (auto* fds : {&idle, &half, &extra}) {
        for (int fd : *fds) close(fd);
    }
}

TEST_F(Malformed, APeerThatNeverReadsIsDisconnectedWhileOthersAreAnswered) {
    const std::string big(64 * 1024, 'x');
    constexpr int kRequests = 64;  // 4 MiB of replies: more than socket and queue together hold
    std::atomic<int> answered{0};
    std::promise<void> allButLastSent;
    ON_CALL(*service, propertyGet).WillByDefault([&](const std::string&, std::string* out) {
        // Filled before the signal: once signalled, the test may end and take `big` with it.
        *out = big;
        if (++answered == kRequests) allButLastSent.set_value();
        return Status::ok();
    });
    std::vector<uint8_t> requests;
    for (int i = 0; i < kRequests; ++i) {
        std::vector<uint8_t> one = frame(FIRST_CALL_TRANSACTION + 6, tokenThen({}, "key"));
        requests.insert(requests.end(), one.begin(), one.end());
    }
    int hog = rawConnect();
    ASSERT_EQ(static_cast<ssize_t>(requests.size()),
              send(hog, requests.data(), requests.size(), MSG_NOSIGNAL));
    expectServiceStillWorks("while another peer leaves 4 MiB of replies unread");
    // Reading starts only once the service has answered (nearly) everything.
    ASSERT_EQ(std::future_status::ready,
              allButLastSent.get_future().wait_for(std::chrono::seconds(20)));

    size_t received = 0;
    EXPECT_TRUE(closedByPeer(hog, &received));
    EXPECT_LT(received, kRequests * big.size());
    close(hog);
    expectServiceStillWorks();
}
