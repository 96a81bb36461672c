// Whatever arrives on a socket, the runtime answers with an error or drops that connection;
// the service keeps serving everyone else and nothing piles up.
#include "../../hostbinder/src/parcel.h"
#include "../../hostbinder/src/wire.h"

#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>

#include "FakeVela.h"
#include "ServiceHarness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <vector>

using aidl::vendor::norvo::hardware::vela::IVela;
using namespace paxtest;


namespace {

class Malformed : public ::testing::Test {
protected:
    void SetUp() override {
        service = ndk::SharedRefBase::make<FakeVela>();
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
        timeval tv{5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
        return fd;
    }

    // Sends raw bytes; true when the service closed the connection afterwards.
    bool closedAfter(const std::vector<uint8_t>& bytes) {
        int fd = rawConnect();
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        shutdown(fd, SHUT_WR);
        uint8_t sink[256];
        ssize_t n;
        while ((n = recv(fd, sink, sizeof(sink), 0)) > 0) {
        }
        close(fd);
        return n == 0;
    }

    // A well-formed transaction carrying `data`; returns the reply's status.
    int32_t transactRaw(uint32_t code, const std::vector<uint8_t>& data,
                        const std::vector<uint32_t>& offsets = {}) {
        int fd = rawConnect();
        WireHeader h{};
        h.magic = kWireMagic;
        h.type = kWireTransact;
        h.txId = 1;
        h.target = 0;
        h.code = code;
        h.objectCount = static_cast<uint32_t>(offsets.size());
        h.dataSize = static_cast<uint32_t>(data.size());
        std::vector<uint8_t> bytes(sizeof(h));
        memcpy(bytes.data(), &h, sizeof(h));
        for (uint32_t o : offsets) {
            bytes.insert(bytes.end(), reinterpret_cast<uint8_t*>(&o),
                         reinterpret_cast<uint8_t*>(&o) + 4);
        }
        bytes.insert(bytes.end(), data.begin(), data.end());
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        WireHeader reply{};
        ssize_t n = recv(fd, &reply, sizeof(reply), MSG_WAITALL);
        close(fd);
        if (n != static_cast<ssize_t>(sizeof(reply))) return INT32_MIN;
        EXPECT_EQ(kWireReply, reply.type);
        return reply.status;
    }

    static std::vector<uint8_t> tokenThen(std::vector<int32_t> words) {
        ndk::ScopedAParcel p(AParcel_create());
        std::string token = IVela::descriptor;
        AParcel_writeString(p.get(), token.c_str(), static_cast<int32_t>(token.size()));
        for (int32_t w : words) AParcel_writeInt32(p.get(), w);
        std::vector<uint8_t> out(AParcel_getDataSize(p.get()));
        AParcel_setDataPosition(p.get(), 0);
        for (size_t i = 0; i < out.size(); i += 4) {
            int32_t w;
            AParcel_readInt32(p.get(), &w);
            memcpy(out.data() + i, &w, 4);
        }
        return out;
    }

    void expectServiceStillWorks() {
        auto vela = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kVelaInstance)));
        ASSERT_NE(nullptr, vela);
        int32_t out = -1;
        service->enqueue("resCtlRelease", Answer::ok(2));
        EXPECT_TRUE(vela->resCtlRelease(1, &out).isOk());
        EXPECT_EQ(2, out);
    }

    std::shared_ptr<FakeVela> service;
};

}  // namespace

TEST_F(Malformed, GarbageAndLiesAboutSizesCloseOnlyThatConnection) {
    EXPECT_TRUE(closedAfter({'G', 'E', 'T', ' ', '/', '\n'}));
    WireHeader h{};
    h.magic = kWireMagic;
    h.type = kWireTransact;
    h.dataSize = 0xfffffff0u;  // absurd length
    std::vector<uint8_t> bytes(sizeof(h));
    memcpy(bytes.data(), &h, sizeof(h));
    EXPECT_TRUE(closedAfter(bytes));
    h.dataSize = 64;  // truncated: promises more than it sends
    memcpy(bytes.data(), &h, sizeof(h));
    EXPECT_TRUE(closedAfter(bytes));
    h.dataSize = 0;
    h.type = 99;  // unknown message type
    memcpy(bytes.data(), &h, sizeof(h));
    EXPECT_TRUE(closedAfter(bytes));
    h.type = kWireReply;  // a reply nobody asked for
    memcpy(bytes.data(), &h, sizeof(h));
    EXPECT_TRUE(closedAfter(bytes));
    expectServiceStillWorks();
}

TEST_F(Malformed, BadContentsFailTheTransactionNotTheService) {
    // No interface token at all.
    EXPECT_EQ(STATUS_BAD_TYPE, transactRaw(FIRST_CALL_TRANSACTION + 2, {}));
    // resCtlRelease whose handle is missing.
    EXPECT_NE(STATUS_OK, transactRaw(FIRST_CALL_TRANSACTION + 2, tokenThen({})));
    // resCtlRequest whose parcelable claims a huge item count.
    EXPECT_NE(STATUS_OK,
              transactRaw(FIRST_CALL_TRANSACTION + 1, tokenThen({1, 100, 1, 0x7fffffff})));
    // An object reference to something the service never exported.
    std::vector<uint8_t> data = tokenThen({kObjectReceiverLocal, 0, 12345, 0});
    uint32_t objectAt = static_cast<uint32_t>(data.size()) - 16;
    EXPECT_EQ(STATUS_BAD_VALUE, transactRaw(FIRST_CALL_TRANSACTION, data, {objectAt}));
    // Object offsets outside the data, or misaligned.
    EXPECT_EQ(STATUS_BAD_VALUE, transactRaw(FIRST_CALL_TRANSACTION, data, {4096}));
    EXPECT_EQ(STATUS_BAD_VALUE, transactRaw(FIRST_CALL_TRANSACTION, data, {objectAt + 1}));
    // A transaction to an object that does not exist.
    EXPECT_EQ(STATUS_OK, transactRaw(0x5f504e47 /* ping */, {}));
    expectServiceStillWorks();
    ASSERT_EQ(1u, service->callCount());
    EXPECT_EQ(1, service->lastCall("resCtlRelease").handle);
}

TEST_F(Malformed, ConnectionsDoNotPileUp) {
    for (int i = 0; i < 50; ++i) closedAfter({1, 2, 3, 4});
    for (int i = 0; i < 100 && HostBinder_connectionCount() > 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(0, HostBinder_connectionCount());
}
