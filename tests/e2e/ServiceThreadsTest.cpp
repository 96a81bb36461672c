// vela-service in a process of its own serves calls on more than one binder thread, as a
// device service that starts its pool does: a call that is held up does not hold up the next.
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "E2eSupport.h"
#include "vela_protocol.h"

namespace e2e {
namespace {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

TEST(ServiceThreadsTest, ADumpStalledOnItsReaderDoesNotHoldUpAnotherCall) {
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH));
    // Properties make the dump longer than the smallest pipe, so its write stalls until read.
    for (int i = 0; i < 40; ++i) {
        ASSERT_EQ(velaHalclient::velaPropertySet("vendor.test.p" + std::to_string(i),
                                                 std::string(200, 'x')),
                  0);
    }
    ndk::SpAIBinder binder(AServiceManager_checkService(protocol::instanceName().c_str()));
    ASSERT_NE(binder.get(), nullptr);

    int fds[2];
    ASSERT_EQ(0, pipe2(fds, O_CLOEXEC));
    ASSERT_GT(fcntl(fds[1], F_SETPIPE_SZ, 4096), 0);
    std::atomic<bool> dumped{false};
    std::thread dump([&] {
        const char* args[] = {"properties"};
        AIBinder_dump(binder.get(), fds[1], args, 1);
        dumped = true;
    });
    // The dump now sits on one of the service's threads, writing into a pipe nobody reads
    // (it gives up only after seconds). Another call must be answered meanwhile.
    char first;
    ASSERT_EQ(read(fds[0], &first, 1), 1);  // the dump has begun writing
    std::unique_ptr<char[]> version(velaHalclient::velaPropertyGet("ro.vendor.vela.version"));
    ASSERT_NE(version, nullptr);
    EXPECT_STREQ(version.get(), "1");
    EXPECT_FALSE(dumped) << "the dump ended before the other call was answered";

    // Drained until the dump has returned; our own write end keeps the pipe from ending.
    fcntl(fds[0], F_SETFL, O_NONBLOCK);
    char buffer[4096];
    while (!dumped) {
        if (read(fds[0], buffer, sizeof(buffer)) <= 0) usleep(1000);
    }
    dump.join();
    close(fds[0]);
    close(fds[1]);
}

}  // namespace
}  // namespace e2e
