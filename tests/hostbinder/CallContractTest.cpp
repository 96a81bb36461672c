// The checks libbinder_ndk makes of its callers before a call leaves, and the pruning of codes
// outside the NDK's lists: a caller that breaks the contract fails here as on a device.
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>

#include <vector>

#include "ServiceHarness.h"

using namespace paxtest;

namespace {

constexpr transaction_code_t kReturnsUnlistedStatus = FIRST_CALL_TRANSACTION;
constexpr transaction_code_t kThrowsUnlistedException = FIRST_CALL_TRANSACTION + 1;
constexpr transaction_code_t kAnswers = FIRST_CALL_TRANSACTION + 2;

binder_status_t onTransact(AIBinder*, transaction_code_t code, const AParcel*, AParcel* out) {
    switch (code) {
        case kReturnsUnlistedStatus:
            return -5;
        case kThrowsUnlistedException:  // a status header as a foreign peer might write it
            AParcel_writeInt32(out, 42);
            return ndk::AParcel_writeString(out, std::string("odd"));
        default:
            return STATUS_OK;
    }
}

// Classes live as long as the process, as the NDK's do: each is kept reachable here.
AIBinder_Class* defineClass(const char* descriptor = "hostbinder.test.IContract") {
    static auto& defined = *new std::vector<AIBinder_Class*>;  // never destroyed, as they are
    defined.push_back(AIBinder_Class_define(
            descriptor, [](void* a) { return a; }, [](void*) {}, onTransact));
    return defined.back();
}

AIBinder_Class* contractClass() {
    static AIBinder_Class* clazz = defineClass();
    return clazz;
}

binder_status_t call(AIBinder* binder, transaction_code_t code, binder_flags_t flags = 0,
                     AParcel** reply = nullptr) {
    AParcel* in = nullptr;
    binder_status_t status = AIBinder_prepareTransaction(binder, &in);
    if (status != STATUS_OK) return status;
    AParcel* out = nullptr;
    status = AIBinder_transact(binder, code, &in, &out, flags);
    EXPECT_EQ(nullptr, in) << "the input parcel is always consumed";
    if (reply != nullptr) {
        *reply = out;
    } else {
        AParcel_delete(out);
    }
    return status;
}

// The contract binder served under the test instance, and a proxy to it with no class yet.
struct Served {
    ndk::SpAIBinder local{AIBinder_new(contractClass(), nullptr)};
    ndk::SpAIBinder proxy;
    Served() {
        EXPECT_TRUE(declareVela());
        EXPECT_EQ(EX_NONE, AServiceManager_addService(local.get(), kVelaInstance));
        proxy.set(AServiceManager_checkService(kVelaInstance));
    }
    ~Served() { HostBinder_stopService(kVelaInstance); }
};

}  // namespace

// AIBinder_prepareTransaction: a binder with no class has no interface token to send.
TEST(CallContract, PreparingACallOnABinderWithNoClassIsAnInvalidOperation) {
    Served served;
    ASSERT_NE(nullptr, served.proxy.get());
    AParcel* in = nullptr;
    EXPECT_EQ(STATUS_INVALID_OPERATION, AIBinder_prepareTransaction(served.proxy.get(), &in));
    EXPECT_EQ(nullptr, in);
    ASSERT_TRUE(AIBinder_associateClass(served.proxy.get(), contractClass()));
    EXPECT_EQ(STATUS_OK, call(served.proxy.get(), kAnswers));
}

// AIBinder_transact: only user codes; only known flags (FLAG_CLEAR_BUF among them); only a
// parcel prepared for this binder.
TEST(CallContract, TransactRefusesSystemCodesUnknownFlagsAndForeignParcels) {
    ndk::SpAIBinder binder(AIBinder_new(contractClass(), nullptr));
    ndk::SpAIBinder other(AIBinder_new(contractClass(), nullptr));
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(binder.get(), 0));
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(binder.get(), LAST_CALL_TRANSACTION + 1));
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(binder.get(), 0x5f504e47));  // ping's code
    EXPECT_EQ(STATUS_OK, call(binder.get(), LAST_CALL_TRANSACTION));
    EXPECT_EQ(STATUS_OK, call(binder.get(), kAnswers, FLAG_CLEAR_BUF));
    EXPECT_EQ(STATUS_BAD_VALUE, call(binder.get(), kAnswers, 0x04));

    for (AParcel* in : {AParcel_create(), static_cast<AParcel*>(nullptr)}) {
        if (in == nullptr) {
            ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(other.get(), &in));
        }
        AParcel* out = nullptr;
        EXPECT_EQ(STATUS_BAD_VALUE, AIBinder_transact(binder.get(), kAnswers, &in, &out, 0));
        EXPECT_EQ(nullptr, in);
        EXPECT_EQ(nullptr, out);
    }
}

// AIBinder::associateClass: a local binder keeps the one class it was made with; a proxy
// takes any class of its descriptor.
TEST(CallContract, ALocalBinderRefusesASecondClassOfTheSameDescriptor) {
    AIBinder_Class* twin = defineClass();
    ndk::SpAIBinder binder(AIBinder_new(contractClass(), nullptr));
    EXPECT_TRUE(AIBinder_associateClass(binder.get(), contractClass()));
    EXPECT_FALSE(AIBinder_associateClass(binder.get(), twin));

    Served served;
    ASSERT_TRUE(AIBinder_associateClass(served.proxy.get(), contractClass()));
    EXPECT_TRUE(AIBinder_associateClass(served.proxy.get(), twin));
    EXPECT_FALSE(
            AIBinder_associateClass(served.proxy.get(), defineClass("hostbinder.test.IOther")));
}

// PruneStatusT / PruneException: codes outside the NDK's lists never reach a caller as they
// are, whether made here or sent by a peer.
TEST(CallContract, UnlistedStatusesAndExceptionsArePruned) {
    EXPECT_EQ(STATUS_UNKNOWN_ERROR, AStatus_getStatus(ndk::ScopedAStatus::fromStatus(-5).get()));
    ndk::ScopedAStatus made(AStatus_fromExceptionCode(42));
    EXPECT_EQ(EX_TRANSACTION_FAILED, made.getExceptionCode());
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, made.getStatus());

    Served served;
    ASSERT_TRUE(AIBinder_associateClass(served.proxy.get(), contractClass()));
    EXPECT_EQ(STATUS_UNKNOWN_ERROR, call(served.proxy.get(), kReturnsUnlistedStatus));
    EXPECT_EQ(STATUS_UNKNOWN_ERROR, call(served.local.get(), kReturnsUnlistedStatus));

    AParcel* reply = nullptr;
    ASSERT_EQ(STATUS_OK, call(served.proxy.get(), kThrowsUnlistedException, 0, &reply));
    ndk::ScopedAParcel owned(reply);
    ndk::ScopedAStatus received;
    ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(reply, received.getR()));
    EXPECT_FALSE(received.isOk());
    EXPECT_EQ(EX_TRANSACTION_FAILED, received.getExceptionCode());
    EXPECT_EQ(STATUS_OK, received.getStatus());  // the device keeps no transaction error
    EXPECT_STREQ("odd", received.getMessage());
}
