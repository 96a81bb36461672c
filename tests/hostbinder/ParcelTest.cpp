// The request parcel round-trips with every field present and absent (crossing the wire is
// seen through the library's tests, which send every parcel), and the parcel refuses to read
// what is not there.
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include "FakeVela.h"

using namespace paxtest;

namespace {

VelaRequestParcel fullParcel() {
    VelaRequestParcel p{};
    p.requestType = 8;
    VelaRequestData top{};
    top.id = static_cast<int32_t>(0x80000001u);  // top bit set travels as a negative int
    top.param = -5;
    top.value = "";
    top.value2 = "/dev/path";
    top.value3 = std::nullopt;
    VelaRequestData plain{};
    plain.id = 0x010108a0;
    p.requestDatas = {top, plain};
    p.optionFlag = true;
    p.param4 = -1;
    p.param6 = 42;
    p.param2 = -1;
    p.paths = std::vector<std::optional<std::string>>{"zdbdebug", std::nullopt, ""};
    p.param1 = 3;
    // Texts of every length modulo 4 (with the 9 and 0 above): padding must realign each time.
    p.packageName = "pk";
    p.identity = "ide";
    p.extraValues = std::vector<int64_t>{INT64_MIN, 0, INT64_MAX};
    return p;
}

VelaRequestParcel roundTrip(const VelaRequestParcel& in) {
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(STATUS_OK, in.writeToParcel(parcel.get()));
    AParcel_setDataPosition(parcel.get(), 0);
    VelaRequestParcel out{};
    EXPECT_EQ(STATUS_OK, out.readFromParcel(parcel.get()));
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
    return out;
}

}  // namespace

TEST(Parcel, RequestParcelRoundTripsWithFieldsPresentAbsentAndEmpty) {
    VelaRequestParcel empty{};
    empty.paths = std::vector<std::optional<std::string>>{};
    empty.packageName = "";
    empty.extraValues = std::vector<int64_t>{};
    EXPECT_EQ(describe(empty), "0 0 0 0 0 pkg: paths: extras:");  // absent ones are not shown
    for (const VelaRequestParcel& p : {fullParcel(), VelaRequestParcel{}, empty}) {
        EXPECT_EQ(describe(roundTrip(p)), describe(p));
    }
}

TEST(Parcel, ReadsPastTheEndFailAndLeaveTheOutputAsItWas) {
    ndk::ScopedAParcel parcel(AParcel_create());
    AParcel_writeInt32(parcel.get(), 5);
    AParcel_setDataPosition(parcel.get(), 0);
    int32_t a = -1;
    int64_t b = -1;
    bool flag = true;
    std::vector<int64_t> list{7};
    EXPECT_EQ(STATUS_OK, AParcel_readInt32(parcel.get(), &a));
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt64(parcel.get(), &b));
    EXPECT_EQ(-1, b);
    EXPECT_NE(STATUS_OK, AParcel_readBool(parcel.get(), &flag));
    EXPECT_TRUE(flag);
    AParcel_writeInt32(parcel.get(), 1);  // one 64-bit element promised,
    AParcel_writeInt32(parcel.get(), 9);  // half of it there
    AParcel_setDataPosition(parcel.get(), 4);
    EXPECT_NE(STATUS_OK, ndk::AParcel_readVector(parcel.get(), &list));
    EXPECT_EQ(std::vector<int64_t>{7}, list);
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_setDataPosition(parcel.get(), 5000));
}

TEST(Parcel, HostileCountsAreRefusedBeforeAllocating) {
    ndk::ScopedAParcel parcel(AParcel_create());
    AParcel_writeInt32(parcel.get(), 0x7fffffff);  // element count
    AParcel_setDataPosition(parcel.get(), 0);
    std::vector<VelaRequestData> items;
    EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_readVector(parcel.get(), &items));
}

TEST(Parcel, StatusHeaderCarriesExceptionsButNotTransactionErrors) {
    ndk::ScopedAParcel parcel(AParcel_create());
    ndk::ScopedAStatus specific = ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(9, "m");
    ASSERT_EQ(STATUS_OK, AParcel_writeStatusHeader(parcel.get(), specific.get()));
    AParcel_setDataPosition(parcel.get(), 0);
    ndk::ScopedAStatus back;
    ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(parcel.get(), back.getR()));
    EXPECT_EQ(EX_SERVICE_SPECIFIC, back.getExceptionCode());
    EXPECT_EQ(9, back.getServiceSpecificError());
    EXPECT_STREQ("m", back.getMessage());

    ndk::ScopedAStatus dead = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_EQ(STATUS_DEAD_OBJECT, AParcel_writeStatusHeader(parcel.get(), dead.get()));
    EXPECT_FALSE(AStatus_isOk(nullptr));
}
