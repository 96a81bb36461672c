// Calls reach the right method with their arguments and results; callbacks travel back over
// the same connection, nested inside a call or later from a service thread, but only to a
// process that started its binder threads. The service manager trusts only what we made.
#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>
#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "ExecProgram.h"
#include "FakeVela.h"
#include "ServiceHarness.h"

using aidl::vendor::norvo::hardware::vela::BnVelaCallback;
using aidl::vendor::norvo::hardware::vela::IVela;
using namespace paxtest;

namespace {

class CountingCallback : public BnVelaCallback {
public:
    ndk::ScopedAStatus onCallback(const std::vector<VelaRequestData>& items) override {
        onBinderThread = HostBinder_isBinderThread();
        std::lock_guard<std::mutex> lock(mutex);
        received.insert(received.end(), items.begin(), items.end());
        ++calls;
        cv.notify_all();
        return ndk::ScopedAStatus::ok();
    }
    bool waitForCalls(int n) {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, std::chrono::seconds(10), [&] { return calls >= n; });
    }
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<VelaRequestData> received;
    int calls = 0;
    std::atomic<bool> onBinderThread{false};
};

class Transport : public ::testing::Test {
protected:
    void SetUp() override {
        service = ndk::SharedRefBase::make<FakeVela>();
        ASSERT_EQ(STATUS_OK, HostBinder_declareService(kVelaInstance));
        ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
        vela = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance)));
        ASSERT_NE(nullptr, vela);
    }
    std::shared_ptr<FakeVela> service;
    std::shared_ptr<IVela> vela;
};

VelaRequestData item(int32_t id) {
    VelaRequestData d{};
    d.id = id;
    return d;
}

// The child of PoolTest: a client that registers a callback before it has binder threads.
// Exit status 0: the callback waited for the pool and then arrived; 1: it came before; 2: never.
constexpr const char* kNoPoolChildEnv = "HOSTBINDER_NOPOOL_CHILD";
[[maybe_unused]] const int noPoolChild = [] {
    if (getenv(kNoPoolChildEnv) == nullptr) return 0;
    auto vela = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance)));
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    VelaRequestParcel p{};
    int32_t out = -1;
    if (vela == nullptr || !vela->resListeningRegister(p, cb, &out).isOk()) _exit(3);
    // The service sends the callback before it answers this call, so the callback has been
    // read by the time the call returns.
    if (!vela->init().isOk()) _exit(3);
    if (cb->calls != 0) _exit(1);
    ABinderProcess_startThreadPool();
    _exit(cb->waitForCalls(1) ? 0 : 2);
}();

}  // namespace

TEST_F(Transport, EveryMethodReachesItsImplementationWithArgumentsAndResult) {
    VelaRequestParcel p{};
    p.requestType = 2;
    p.requestDatas = {item(5)};
    int32_t out = -1;
    std::string text;
    std::vector<VelaRequestData> items;
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    using testing::_;
    testing::InSequence order;
    EXPECT_CALL(*service, init());
    EXPECT_CALL(*service, resCtlRequest(testing::Field(&VelaRequestParcel::requestType, 2), _));
    EXPECT_CALL(*service, resCtlRelease(41, _)).WillOnce(reply(42));
    EXPECT_CALL(*service, resStateRequest).WillOnce(reply(Items{makeItem(5, 0, "five")}));
    EXPECT_CALL(*service, resListeningRegister(_, testing::NotNull(), _));
    EXPECT_CALL(*service, resListeningUnregister(7, _));
    EXPECT_CALL(*service, propertyGet("k", _)).WillOnce(reply(std::string("v")));
    EXPECT_CALL(*service, propertySet("k", "v2", _));
    EXPECT_CALL(*service, thermalListeningRegister(std::vector<int32_t>{1, -2}, _, _));
    EXPECT_CALL(*service, thermalListeningUnregister(9, _));
    EXPECT_CALL(*service, reserved).WillOnce(exception(EX_UNSUPPORTED_OPERATION));
    EXPECT_CALL(*service, setRelatedSysInfo(3, -4000000000LL, _));
    EXPECT_CALL(*service, ruleCtl(5, 1, testing::SizeIs(2), _)).WillOnce(serviceSpecific(6));

    EXPECT_TRUE(vela->init().isOk());
    EXPECT_TRUE(vela->resCtlRequest(p, &out).isOk());
    EXPECT_EQ(1, out);
    EXPECT_TRUE(vela->resCtlRelease(41, &out).isOk());
    EXPECT_EQ(42, out);
    EXPECT_TRUE(vela->resStateRequest(p, &items).isOk());
    EXPECT_EQ("five", items.at(0).value);
    EXPECT_TRUE(vela->resListeningRegister(p, cb, &out).isOk());
    EXPECT_EQ(2, out);
    EXPECT_TRUE(vela->resListeningUnregister(7, &out).isOk());
    EXPECT_TRUE(vela->propertyGet("k", &text).isOk());
    EXPECT_EQ("v", text);
    EXPECT_TRUE(vela->propertySet("k", "v2", &out).isOk());
    EXPECT_TRUE(vela->thermalListeningRegister({1, -2}, cb, &out).isOk());
    EXPECT_TRUE(vela->thermalListeningUnregister(9, &out).isOk());
    EXPECT_EQ(EX_UNSUPPORTED_OPERATION, vela->reserved(&out).getExceptionCode());
    EXPECT_TRUE(vela->setRelatedSysInfo(3, -4000000000LL, &out).isOk());
    ndk::ScopedAStatus specific = vela->ruleCtl(5, 1, {item(1), item(2)}, &out);
    EXPECT_EQ(EX_SERVICE_SPECIFIC, specific.getExceptionCode());
    EXPECT_EQ(6, specific.getServiceSpecificError());

    testing::Mock::VerifyAndClearExpectations(service.get());
}

// A bare class under the interface's descriptor sees the raw transaction codes.
TEST(TransportCodes, MethodsUseConsecutiveCodesInDeclarationOrder) {
    static std::vector<transaction_code_t> codes;
    static std::mutex codesMutex;
    AIBinder_Class* clazz = AIBinder_Class_define(
            IVela::descriptor, [](void* a) { return a; }, [](void*) {},
            [](AIBinder*, transaction_code_t code, const AParcel*, AParcel* out) {
                std::lock_guard<std::mutex> lock(codesMutex);
                codes.push_back(code);
                ndk::ScopedAStatus st = ndk::ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
                return AParcel_writeStatusHeader(out, st.get());
            });
    ndk::SpAIBinder raw(AIBinder_new(clazz, nullptr));
    ASSERT_EQ(EX_NONE, AServiceManager_addService(raw.get(), kVelaInstance));
    auto vela = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kVelaInstance)));
    ASSERT_NE(nullptr, vela);
    ASSERT_TRUE(vela->isRemote());

    VelaRequestParcel p{};
    int32_t out;
    std::string s;
    std::vector<VelaRequestData> v;
    vela->init();
    vela->resCtlRequest(p, &out);
    vela->resCtlRelease(0, &out);
    vela->resStateRequest(p, &v);
    vela->resListeningRegister(p, nullptr, &out);
    vela->resListeningUnregister(0, &out);
    vela->propertyGet("", &s);
    vela->propertySet("", "", &out);
    vela->thermalListeningRegister({}, nullptr, &out);
    vela->thermalListeningUnregister(0, &out);
    vela->reserved(&out);
    vela->setRelatedSysInfo(0, 0, &out);
    vela->ruleCtl(0, 0, {}, &out);
    std::lock_guard<std::mutex> lock(codesMutex);
    ASSERT_EQ(13u, codes.size());
    for (size_t i = 0; i < codes.size(); ++i) EXPECT_EQ(FIRST_CALL_TRANSACTION + i, codes[i]);
}

TEST_F(Transport, CallbackRunsOnBinderThreadWhileTheCallIsInFlight) {
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    std::atomic<bool> callReturned{false};
    std::atomic<bool> returnedBeforeCallback{true};
    EXPECT_CALL(*service, resCtlRequest).WillOnce([&](const VelaRequestParcel& in, int32_t* out) {
        const std::shared_ptr<IVelaCallback>& callback = in.callback;
        EXPECT_TRUE(callback != nullptr && callback->isRemote());
        if (callback != nullptr) {
            EXPECT_TRUE(callback->onCallback({item(11)}).isOk());
        }
        returnedBeforeCallback = callReturned.load();
        *out = 1;
        return Status::ok();
    });
    VelaRequestParcel p{};
    p.callback = cb;
    int32_t out = -1;
    ASSERT_TRUE(vela->resCtlRequest(p, &out).isOk());
    callReturned = true;
    EXPECT_FALSE(returnedBeforeCallback);
    ASSERT_EQ(1, cb->calls);
    EXPECT_EQ(11, cb->received[0].id);
    EXPECT_TRUE(cb->onBinderThread);
}

TEST_F(Transport, CallbackLaterFromAServiceThreadReachesTheSameObject) {
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    VelaRequestParcel p{};
    int32_t out = -1;
    ASSERT_TRUE(vela->resListeningRegister(p, cb, &out).isOk());
    std::shared_ptr<IVelaCallback> held = service->callbackAt(0);
    ASSERT_NE(nullptr, held);
    std::thread([held] {
        held->onCallback({item(1)});
        held->onCallback({item(2), item(3)});
    }).join();
    ASSERT_TRUE(cb->waitForCalls(2));
    EXPECT_EQ(3u, cb->received.size());
    EXPECT_TRUE(cb->onBinderThread);
}

TEST_F(Transport, ServiceDropsCallbackAndClientObjectIsFreed) {
    std::weak_ptr<CountingCallback> watch;
    {
        auto cb = ndk::SharedRefBase::make<CountingCallback>();
        watch = cb;
        VelaRequestParcel p{};
        p.callback = cb;
        int32_t out;
        ASSERT_TRUE(vela->resCtlRequest(p, &out).isOk());
    }
    // The service still holds its proxy: the object must stay alive until it lets go.
    EXPECT_FALSE(watch.expired());
    service->forgetCallbacks();
    for (int i = 0; i < 200 && !watch.expired(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(watch.expired());
}

TEST(ServiceManager, UndeclaredAndUnservedInstancesAreNotFound) {
    const char* name = "vendor.norvo.hardware.vela.IVela/other";
    EXPECT_FALSE(AServiceManager_isDeclared(name));
    EXPECT_EQ(nullptr, AServiceManager_checkService(name));
    ASSERT_EQ(STATUS_OK, HostBinder_declareService(name));
    EXPECT_TRUE(AServiceManager_isDeclared(name));  // declared, though nothing serves it
    EXPECT_EQ(nullptr, AServiceManager_checkService(name));
}

TEST(ServiceManager, WaitForServiceReturnsOnceTheServiceAppears) {
    auto service = ndk::SharedRefBase::make<FakeVela>();
    auto waiter = std::async(std::launch::async, [] {
        return ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance));
    });
    EXPECT_EQ(std::future_status::timeout, waiter.wait_for(std::chrono::milliseconds(100)));
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    ndk::SpAIBinder binder = waiter.get();
    ASSERT_NE(nullptr, binder.get());
    EXPECT_EQ(STATUS_OK, AIBinder_ping(binder.get()));
}

TEST(ServiceManager, AWrongInterfaceIsRefused) {
    AIBinder_Class* other = AIBinder_Class_define(
            "some.other.IThing", [](void* a) { return a; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    ndk::SpAIBinder raw(AIBinder_new(other, nullptr));
    ASSERT_EQ(EX_NONE, AServiceManager_addService(raw.get(), kVelaInstance));
    ndk::SpAIBinder remote(AServiceManager_checkService(kVelaInstance));
    ASSERT_NE(nullptr, remote.get());
    EXPECT_EQ(nullptr, IVela::fromBinder(remote));
}

TEST(PoolTest, CallbacksWaitUntilTheProcessStartsItsPool) {
    auto service = ndk::SharedRefBase::make<FakeVela>();
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    EXPECT_CALL(*service, init).WillOnce([&]() -> Status {
        // One way, so the service need not wait for a process that cannot answer yet.
        ndk::SpAIBinder callback = service->callbackAt(0)->asBinder();
        AParcel* in = nullptr;
        AParcel* reply = nullptr;
        EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(callback.get(), &in));
        ndk::AParcel_writeVector(in, std::vector<VelaRequestData>{item(4)});
        EXPECT_EQ(STATUS_OK, AIBinder_transact(callback.get(), FIRST_CALL_TRANSACTION, &in, &reply,
                                               FLAG_ONEWAY));
        AParcel_delete(reply);
        return Status::ok();
    });
    const paxtest::ChildCommand command("/proc/self/exe", {"hostbinder_nopool"},
                                        {std::string(kNoPoolChildEnv) + "=1"});
    pid_t child = fork();
    if (child == 0) {
        command.exec();
    }
    ASSERT_GT(child, 0);
    auto exited = std::async(std::launch::async, [child] {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    });
    if (exited.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        kill(child, SIGKILL);
        FAIL() << "the child hung";
    }
    EXPECT_EQ(0, exited.get());
}

namespace {
// Points the runtime at `dir` for the life of the object.
class DirectoryOverride {
public:
    explicit DirectoryOverride(const std::string& dir) : mOld(getenv("HOSTBINDER_DIR")) {
        setenv("HOSTBINDER_DIR", dir.c_str(), 1);
    }
    ~DirectoryOverride() { setenv("HOSTBINDER_DIR", mOld.c_str(), 1); }

private:
    std::string mOld;
};

// What the runtime says of `dir`, and whether a client and a service are refused at once.
std::string refusal(const std::string& dir) {
    DirectoryOverride use(dir);
    auto service = ndk::SharedRefBase::make<FakeVela>();
    EXPECT_EQ(EX_SECURITY, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    auto wait = std::async(std::launch::async, [] {
        return ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance));
    });
    EXPECT_EQ(std::future_status::ready, wait.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(nullptr, wait.get().get());
    EXPECT_FALSE(AServiceManager_isDeclared(kVelaInstance));
    return hostbinder::directoryProblem();
}
}  // namespace

TEST(ServiceManager, DirectoriesWeDidNotMakeOurOwnAreRefused) {
    const std::string base = HostBinder_getDirectory();
    const std::string open = base + "/open";
    ASSERT_EQ(0, mkdir(open.c_str(), 0700));
    ASSERT_EQ(0, chmod(open.c_str(), 0777));
    EXPECT_NE(std::string::npos, refusal(open).find("writable by group or others (mode 0777)"));

    const std::string good = base + "/good";
    const std::string link = base + "/link";
    ASSERT_EQ(0, mkdir(good.c_str(), 0700));
    ASSERT_EQ(0, symlink(good.c_str(), link.c_str()));
    EXPECT_NE(std::string::npos, refusal(link).find("symbolic link"));

    if (geteuid() == 0) {  // only root can hand a directory to someone else
        const std::string foreign = base + "/foreign";
        ASSERT_EQ(0, mkdir(foreign.c_str(), 0700));
        ASSERT_EQ(0, chown(foreign.c_str(), 4242, 4242));
        EXPECT_NE(std::string::npos, refusal(foreign).find("owned by uid 4242"));
    }
    DirectoryOverride use(good);
    EXPECT_EQ("", hostbinder::directoryProblem());
}

TEST(ServiceManager, DeclarationListIsReadSafely) {
    const std::string declared = std::string(HostBinder_getDirectory()) + "/declared";
    ASSERT_EQ(0, mkfifo(declared.c_str(), 0600));
    auto lookup = std::async(std::launch::async,
                             [] { return AServiceManager_isDeclared(kVelaInstance); });
    ASSERT_EQ(std::future_status::ready, lookup.wait_for(std::chrono::seconds(5)));
    EXPECT_FALSE(lookup.get());
    EXPECT_NE(STATUS_OK, HostBinder_declareService(kVelaInstance));

    // A list whose last line has no end: ours goes on a line of its own.
    unlink(declared.c_str());
    std::ofstream(declared) << "some.other.IThing/default";
    ASSERT_EQ(STATUS_OK, HostBinder_declareService(kVelaInstance));
    EXPECT_TRUE(AServiceManager_isDeclared("some.other.IThing/default"));
    EXPECT_TRUE(AServiceManager_isDeclared(kVelaInstance));
    std::stringstream text;
    text << std::ifstream(declared).rdbuf();
    EXPECT_EQ(std::string("some.other.IThing/default\n") + kVelaInstance + "\n", text.str());
}
