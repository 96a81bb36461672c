// Strings cross the parcel as the device's libbinder_ndk carries them: UTF-8 in the API, UTF-16
// on the wire, converted by libutils' rules. Each case is something a caller would see differ
// on a device if the host kept the bytes as given.
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

// What `text` comes back as after a trip through a parcel, or the write's failure.
std::string roundTrip(const std::string& text) {
    ndk::ScopedAParcel parcel(AParcel_create());
    if (ndk::AParcel_writeString(parcel.get(), text) != STATUS_OK) return "<write failed>";
    AParcel_setDataPosition(parcel.get(), 0);
    std::string back = "<read failed>";
    EXPECT_EQ(STATUS_OK, ndk::AParcel_readString(parcel.get(), &back));
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), AParcel_getDataPosition(parcel.get()));
    return back;
}

// A parcel holding raw UTF-16 units as the device would have written them.
ndk::ScopedAParcel wideString(std::u16string units) {
    ndk::ScopedAParcel parcel(AParcel_create());
    AParcel_writeInt32(parcel.get(), static_cast<int32_t>(units.size()));
    units.push_back(u'\0');
    if (units.size() % 2 != 0) units.push_back(u'\0');
    for (size_t i = 0; i < units.size(); i += 2) {
        AParcel_writeInt32(parcel.get(), static_cast<int32_t>(units[i] | (units[i + 1] << 16)));
    }
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

}  // namespace

// libutils' conversion as a caller sees it after a round trip: a sequence that the end of the
// text cuts off is the only refusal (utf8_to_utf16_length), and nothing is written then; other
// invalid bytes decode into other characters; a surrogate that is not half of a pair vanishes
// on the way back (utf16_to_utf8).
TEST(StringRules, TextArrivesAsTheDeviceConvertsIt) {
    for (const char* text : {"\xe2\x82", "ok\xc3", "\xf0\x9f\x98"}) {
        ndk::ScopedAParcel parcel(AParcel_create());
        EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_writeString(parcel.get(), std::string(text)));
        EXPECT_EQ(0, AParcel_getDataSize(parcel.get()));
    }
    const std::pair<std::string, std::string> arrives[] = {
            {"\xe2\x82\xac", "\xe2\x82\xac"},  // the cut-off bytes above, complete
            {"\x80", "\xc2\x80"},              // a stray continuation byte is U+0080
            {"\xc0\xaf", "/"},                 // an overlong form is the character
            {"\xc1\x41", "A"},                 // a continuation is not checked: 0x41 is taken in
            {std::string("a\xff\x80\x80\x80") + "b", "ab"},  // past U+10FFFF: nothing
            {std::string("a\0b", 3), std::string("a\0b", 3)},
            {"\xf0\x9f\x98\x80 caf\xc3\xa9", "\xf0\x9f\x98\x80 caf\xc3\xa9"},
            {std::string("a\xed\xa0\x80") + "b", "ab"},  // U+D800 spelled in UTF-8
    };
    for (const auto& [sent, received] : arrives) EXPECT_EQ(received, roundTrip(sent)) << sent;
    for (const std::u16string& units : {std::u16string(u"x\xdc00y"), std::u16string(u"xy\xd800")}) {
        ndk::ScopedAParcel parcel = wideString(units);
        std::string text;
        ASSERT_EQ(STATUS_OK, ndk::AParcel_readString(parcel.get(), &text));
        EXPECT_EQ("xy", text);
    }
}

// AParcel_writeString / readString with null: -1 is the only length a null buffer may have;
// the allocator is asked for -1 with no buffer, and decides whether null is acceptable.
TEST(StringRules, NullStringsFollowTheNdkContract) {
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeString(parcel.get(), nullptr, 0));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeString(parcel.get(), "abc", -2));
    ASSERT_EQ(STATUS_OK, AParcel_writeString(parcel.get(), nullptr, -1));

    struct Seen {
        int32_t length = 0;
        bool bufferGiven = true;
    } seen;
    auto allocator = [](void* data, int32_t length, char** buffer) {
        auto* s = static_cast<Seen*>(data);
        s->length = length;
        s->bufferGiven = buffer != nullptr;
        return true;
    };
    AParcel_setDataPosition(parcel.get(), 0);
    EXPECT_EQ(STATUS_OK, AParcel_readString(parcel.get(), &seen, allocator));
    EXPECT_EQ(-1, seen.length);
    EXPECT_FALSE(seen.bufferGiven);

    std::string required = "kept";
    AParcel_setDataPosition(parcel.get(), 0);
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readString(parcel.get(), &required));
    EXPECT_EQ("kept", required);

    // Read where the parcel has ended: null, and for a nullable string that is fine.
    std::optional<std::string> nullable = "set";
    EXPECT_EQ(STATUS_OK, ndk::AParcel_readString(parcel.get(), &nullable));
    EXPECT_EQ(std::nullopt, nullable);
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readString(parcel.get(), &required));
}

// Parcel::writeString16: the unit count, the units and a zero unit, padded to four bytes. The
// size counts toward what a transaction may carry, so it must be the device's.
TEST(StringRules, TheWireCarriesUtf16SoAsciiTakesTwiceItsLength) {
    const std::pair<std::string, int32_t> cases[] = {
            {"", 8},         {"abc", 12},
            {"abcd", 16},    {std::string(1000, 'x'), 2008},
            {"\xc3\xa9", 8}, {"\xf0\x9f\x98\x80", 12}};  // one unit; a surrogate pair
    for (const auto& [text, bytes] : cases) {
        ndk::ScopedAParcel parcel(AParcel_create());
        ASSERT_EQ(STATUS_OK, ndk::AParcel_writeString(parcel.get(), text));
        EXPECT_EQ(bytes, AParcel_getDataSize(parcel.get())) << text.size() << " bytes of text";
    }
    // A length whose text (or its zero unit) is not all there reads as null.
    ndk::ScopedAParcel cut(AParcel_create());
    AParcel_writeInt32(cut.get(), 1000);
    AParcel_setDataPosition(cut.get(), 0);
    std::optional<std::string> text = "set";
    EXPECT_EQ(STATUS_OK, ndk::AParcel_readString(cut.get(), &text));
    EXPECT_EQ(std::nullopt, text);
}

// Status::writeToParcel converts the message when it writes it: one that does not convert
// travels as an empty message, and the reply still goes.
TEST(StringRules, AnExceptionMessageThatDoesNotConvertTravelsEmpty) {
    ndk::ScopedAParcel parcel(AParcel_create());
    ndk::ScopedAStatus status =
            ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, "bad \xe2\x82");
    ASSERT_EQ(STATUS_OK, AParcel_writeStatusHeader(parcel.get(), status.get()));
    AParcel_setDataPosition(parcel.get(), 0);
    ndk::ScopedAStatus back;
    ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(parcel.get(), back.getR()));
    EXPECT_EQ(EX_ILLEGAL_STATE, back.getExceptionCode());
    EXPECT_STREQ("", back.getMessage());
}
