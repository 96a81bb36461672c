// ANDROID_LOG_TAGS in a program of the user's own linked with the host runtime: logcat's filter
// syntax turns the library's lines down or off, as it does for a host program using libbase.
#include <gtest/gtest.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <cstdlib>
#include <string>

#include "RunProgram.h"

namespace {

TEST(LogTags, TurnTheLibrarysLinesDownOrOff) {
    constexpr char kRole[] = "HOSTBINDER_LOG_TAGS_CHILD";
    if (getenv(kRole) != nullptr) {
        // Nothing is declared here: the request logs an INFO line and an ERROR line.
        velaHalclient::velaPropertySet("vendor.key", "v");
        _exit(0);
    }
    const std::string info = "VELAFramework-lib-vendor I ";
    const std::string error = "VELAFramework-lib-vendor E ";
    const struct {
        const char* tags;
        bool infoShown;
        bool errorShown;
    } cases[] = {
            {"", true, true},  // unset: everything from INFO up, as before
            {"*:s", false, false},
            {"*:e", false, true},
            {"*:s VELAFramework-lib-vendor:i", true, true},
    };
    for (const auto& c : cases) {
        const paxtest::Outcome run = paxtest::finish(*paxtest::launch(
                "/proc/self/exe", {"--gtest_filter=LogTags.*"}, "",
                {std::string(kRole) + "=1", std::string("ANDROID_LOG_TAGS=") + c.tags}));
        EXPECT_EQ(0, run.exitCode) << run;
        EXPECT_EQ(c.infoShown, run.err.find(info) != std::string::npos) << c.tags << "\n" << run;
        EXPECT_EQ(c.errorShown, run.err.find(error) != std::string::npos) << c.tags << "\n" << run;
    }
}

}  // namespace
