// The service manager's rules, as servicemanager and libvintf hold a device to them: only what
// the manifest fragments declare is served, names are checked, a later registration replaces
// an earlier one, and a manifest that cannot be read whole declares nothing.
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <string>

#include "Probe.h"
#include "ServiceHarness.h"
#include "Waiter.h"

using namespace paxtest;

namespace {

// A binder that answers every call with the number it was made with.
ndk::SpAIBinder who(int32_t number) {
    return hbtest::newProbe([number](transaction_code_t, const AParcel*, AParcel* out) {
        return AParcel_writeInt32(out, number);
    });
}

// Which `who` binder answers under `instance` for a new lookup; -1 when none does.
int32_t whoAnswers(const std::string& instance) {
    ndk::SpAIBinder binder(AServiceManager_checkService(instance.c_str()));
    int32_t number = -1;
    if (!hbtest::asProbe(binder)) return -1;
    return hbtest::callProbe(binder, FIRST_CALL_TRANSACTION, nullptr, &number) == STATUS_OK ? number
                                                                                            : -1;
}

void writeFragment(const std::string& name, const std::string& text) {
    mkdir(HostBinder_getManifestDirectory(), 0700);
    std::ofstream(std::string(HostBinder_getManifestDirectory()) + "/" + name) << text;
}

std::string fragmentFor(const std::string& package, const std::string& body) {
    return "<?xml version=\"1.0\"?>\n<manifest version=\"1.0\" type=\"device\">\n"
           "  <hal format=\"aidl\"><name>" +
           package + "</name>" + body + "</hal>\n</manifest>\n";
}

// What the process writes to stderr while it lives (hostbinder's lines go there).
class StderrCapture {
public:
    StderrCapture() {
        char path[] = "/tmp/hostbinder-stderr-XXXXXX";
        mFile = mkstemp(path);
        unlink(path);
        fflush(stderr);
        mSaved = dup(STDERR_FILENO);
        dup2(mFile, STDERR_FILENO);
    }
    ~StderrCapture() {
        fflush(stderr);
        dup2(mSaved, STDERR_FILENO);
        close(mSaved);
        close(mFile);
    }
    std::string text() const {
        std::string all;
        char buffer[4096];
        for (off_t at = 0;;) {
            const ssize_t n = pread(mFile, buffer, sizeof(buffer), at);
            if (n <= 0) return all;
            all.append(buffer, static_cast<size_t>(n));
            at += n;
        }
    }
    bool says(const std::string& what) const { return text().find(what) != std::string::npos; }

private:
    int mFile = -1;
    int mSaved = -1;
};

}  // namespace

// servicemanager: addService of an instance no manifest declares is EX_ILLEGAL_ARGUMENT, and
// isDeclared answers from the manifest alone, never from what is served; a second
// registration replaces the first for new lookups.
TEST(Registration, OnlyWhatTheManifestDeclaresIsServed) {
    std::error_code ignored;
    std::filesystem::remove_all(HostBinder_getManifestDirectory(), ignored);
    ndk::SpAIBinder binder = who(1);
    EXPECT_FALSE(AServiceManager_isDeclared(kVelaInstance));
    EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(binder.get(), kVelaInstance));
    EXPECT_EQ(nullptr, AServiceManager_checkService(kVelaInstance));

    ASSERT_TRUE(declareVela());  // the fragment the build installs
    EXPECT_TRUE(AServiceManager_isDeclared(kVelaInstance));
    EXPECT_FALSE(AServiceManager_isDeclared("vendor.norvo.hardware.vela.IVela/other"));
    EXPECT_EQ(EX_NONE, AServiceManager_addService(binder.get(), kVelaInstance));
    EXPECT_EQ(1, whoAnswers(kVelaInstance));
    ndk::SpAIBinder second = who(2);
    ASSERT_EQ(EX_NONE, AServiceManager_addService(second.get(), kVelaInstance));
    EXPECT_EQ(2, whoAnswers(kVelaInstance));

    // The other spelling of an AIDL declaration, <interface><name>/<instance>.
    writeFragment("other.xml", fragmentFor("some.pkg",
                                           "<interface><name>IThing</name>"
                                           "<instance>a</instance><instance>b</instance>"
                                           "</interface>"));
    EXPECT_TRUE(AServiceManager_isDeclared("some.pkg.IThing/b"));
    EXPECT_FALSE(AServiceManager_isDeclared("some.pkg.IThing"));
}

// What a lookup read may be kept, but an edit in place or a fragment added is seen at once.
TEST(Registration, AChangedManifestIsSeenAtTheNextLookup) {
    const std::string dir = HostBinder_getManifestDirectory();
    const timespec longAgo[2] = {{1000000000, 0}, {1000000000, 0}};
    auto age = [&](const std::string& path) {
        ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), longAgo, 0)) << path;
    };
    writeFragment("thing.xml", fragmentFor("some.pkg", "<fqname>IThing/a</fqname>"));
    age(dir);
    age(dir + "/thing.xml");
    EXPECT_TRUE(AServiceManager_isDeclared("some.pkg.IThing/a"));
    // Rewritten in place, to the same size.
    writeFragment("thing.xml", fragmentFor("some.pkg", "<fqname>IThing/b</fqname>"));
    EXPECT_FALSE(AServiceManager_isDeclared("some.pkg.IThing/a"));
    EXPECT_TRUE(AServiceManager_isDeclared("some.pkg.IThing/b"));
    age(dir);
    age(dir + "/thing.xml");
    EXPECT_TRUE(AServiceManager_isDeclared("some.pkg.IThing/b"));
    ASSERT_EQ(STATUS_OK, HostBinder_declareService("some.pkg.IOther/c"));
    EXPECT_TRUE(AServiceManager_isDeclared("some.pkg.IOther/c"));
}

// isValidServiceName: 1 to 127 characters of [A-Za-z0-9_./-]; anything else is refused
// whatever the manifest says, and never waited for.
TEST(Registration, NamesOutsideTheRulesAreRefused) {
    const std::string prefix = "vendor.test.ILong/";
    const std::string longest = prefix + std::string(127 - prefix.size(), 'x');
    const std::string tooLong = longest + "x";
    ASSERT_EQ(STATUS_OK, HostBinder_declareService(longest.c_str()));
    writeFragment("too-long.xml",
                  fragmentFor("vendor.test",
                              "<fqname>ILong/" + tooLong.substr(prefix.size()) + "</fqname>"));
    writeFragment("spaced.xml", fragmentFor("vendor.test", "<fqname>ILong/a+b</fqname>"));
    ndk::SpAIBinder binder = who(7);
    for (const std::string& bad : {tooLong, std::string("vendor.test.ILong/a+b"), std::string()}) {
        EXPECT_FALSE(AServiceManager_isDeclared(bad.c_str())) << bad;
        EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(binder.get(), bad.c_str()));
        auto wait = std::async(std::launch::async, [&] {
            return ndk::SpAIBinder(AServiceManager_waitForService(bad.c_str()));
        });
        ASSERT_EQ(std::future_status::ready, wait.wait_for(std::chrono::seconds(5))) << bad;
        EXPECT_EQ(nullptr, wait.get().get());
    }
    // 127 characters are served, however long the socket directory makes the path.
    EXPECT_TRUE(AServiceManager_isDeclared(longest.c_str()));
    ASSERT_EQ(EX_NONE, AServiceManager_addService(binder.get(), longest.c_str()));
    EXPECT_EQ(7, whoAnswers(longest));
}

// libvintf: a fragment that cannot be read whole makes the manifest unreadable; nothing is
// declared, and a line says why.
TEST(Registration, AManifestThatCannotBeReadWholeDeclaresNothing) {
    ASSERT_TRUE(declareVela());
    ASSERT_TRUE(AServiceManager_isDeclared(kVelaInstance));
    const std::string dir = HostBinder_getManifestDirectory();
    const struct {
        const char* name;
        std::string text;
        const char* says;
    } broken[] = {
            {"open.xml", "<manifest>\n<hal format=\"aidl\"><name>p</name>\n",
             "open.xml is not a manifest: line 3: <hal> is not closed"},
            {"mismatch.xml", "<manifest><hal format=\"aidl\"></manifest>",
             "</manifest> closes <hal>"},
            {"root.xml", "<compatibility-matrix/>", "the root element is <compatibility-matrix>"},
            {"entity.xml", "<manifest>&nbsp;</manifest>", "an unknown entity"},
            {"huge.xml", "<manifest>" + std::string(70000, ' ') + "</manifest>",
             "huge.xml is larger than 65536 bytes"},
    };
    for (const auto& fragment : broken) {
        StderrCapture err;
        writeFragment(fragment.name, fragment.text);
        EXPECT_FALSE(AServiceManager_isDeclared(kVelaInstance)) << fragment.name;
        EXPECT_TRUE(err.says(fragment.says)) << err.text();
        unlink((dir + "/" + fragment.name).c_str());
        EXPECT_TRUE(AServiceManager_isDeclared(kVelaInstance))
                << "after removing " << fragment.name;
    }
    // A fragment that is a pipe is refused without waiting for a writer.
    ASSERT_EQ(0, mkfifo((dir + "/pipe.xml").c_str(), 0600));
    auto lookup = std::async(std::launch::async,
                             [] { return AServiceManager_isDeclared(kVelaInstance); });
    ASSERT_EQ(std::future_status::ready, lookup.wait_for(std::chrono::seconds(5)));
    EXPECT_FALSE(lookup.get());
}

// IServiceManager.cpp, waitForService: "Waited one second for <name>" after each second.
TEST(Registration, WaitingForAServiceSaysSoOnceASecond) {
    ASSERT_TRUE(declareVela());
    StderrCapture err;
    auto wait = std::async(std::launch::async, [] {
        return ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance));
    });
    const std::string line = std::string("]: Waited one second for ") + kVelaInstance;
    EXPECT_TRUE(waitUntil([&] { return err.says(line); }, std::chrono::seconds(20))) << err.text();
    ndk::SpAIBinder binder = who(3);
    ASSERT_EQ(EX_NONE, AServiceManager_addService(binder.get(), kVelaInstance));
    ASSERT_EQ(std::future_status::ready, wait.wait_for(std::chrono::seconds(20)));
    EXPECT_NE(nullptr, wait.get().get());
    EXPECT_TRUE(err.says("hostbinder[" + std::to_string(getpid()) + line)) << err.text();
}
