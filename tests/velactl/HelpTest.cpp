// The help that knows the domain: the bash completion offers the word that fits where the
// cursor is (run in bash as bash runs it), and the man page has a section per command.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "RunProgram.h"

namespace {

using namespace paxtest;

class CompletionTest : public ::testing::Test {
protected:
    std::string script = ::testing::TempDir() + "velactl-completion-" + std::to_string(getpid());

    void SetUp() override {
        const Outcome made = finish(*launch(VELACTL_PATH, {"--completion", "bash"}));
        ASSERT_EQ(made.exitCode, 0) << made;
        std::ofstream(script) << made.out;
    }
    void TearDown() override { unlink(script.c_str()); }

    // What bash offers for the line `words` with the cursor at the end of its last word.
    std::string offered(const std::vector<std::string>& words) {
        std::string array;
        for (const auto& word : words) array += " '" + word + "'";
        const std::string program = "source '" + script + "'; COMP_WORDS=(" + array +
                                    "); COMP_CWORD=" + std::to_string(words.size() - 1) +
                                    "; _velactl; printf '%s\\n' \"${COMPREPLY[@]}\"";
        // The script calls velactl by the name on the line: the first word is this build's.
        const Outcome run = finish(*launch("/bin/bash", {"-c", program}));
        EXPECT_EQ(run.exitCode, 0) << run;
        return run.out;
    }
};

TEST_F(CompletionTest, OffersTheKindOfWordThatFitsWhereTheCursorIs) {
    const std::string velactl = kernelRunnable(VELACTL_PATH);
    const struct {
        std::vector<std::string> words;
        std::string offers;
    } cases[] = {
            {{velactl, "acq"}, "acquire\n"},
            {{velactl, "--js"}, "--json\n"},
            {{velactl, "state", "--p"}, "--pax\n"},
            {{velactl, "acquire", "camera_preview_v"}, "camera_preview_video_eis\n"},
            {{velactl, "acquire", "ACTION_LAUNCHER_G"}, "ACTION_LAUNCHER_GPU_BOOST\n"},
            // No service in the test's directory: the shipped configuration's names.
            {{velactl, "state", "cpu.little.freq_m"}, "cpu.little.freq_max\ncpu.little.freq_min\n"},
            {{velactl, "dumpsys", "li"}, "listeners\n"},
            {{velactl, "dump", "run"}, "run-map\n"},
            {{velactl, "history", "o"}, "on\noff\n"},
            {{velactl, "release", "--via", "w"}, "wrapper\n"},
            {{velactl, "repl"}, "replay\n"},
    };
    for (const auto& c : cases) EXPECT_EQ(offered(c.words), c.offers) << c.words.back();
}

TEST(ManPageTest, EveryCommandHasItsSectionWithSynopsisAndOptions) {
    const Outcome page = finish(*launch(VELACTL_PATH, {"--man"}));
    ASSERT_EQ(page.exitCode, 0) << page;
    for (const char* command :
         {"acquire", "state", "listen", "dumpsys", "top", "run", "status", "replay"}) {
        const size_t at = page.out.find(std::string(".SS ") + command + "\n");
        ASSERT_NE(at, std::string::npos) << command;
        EXPECT_NE(page.out.find(std::string(".B velactl [OPTIONS] ") + command, at),
                  std::string::npos)
                << command;
    }
    EXPECT_NE(page.out.find("\\-\\-follow"), std::string::npos);
    EXPECT_NE(page.out.find("Examples:\n.PP\n.nf\n# the launch scenario"), std::string::npos);
    EXPECT_NE(page.out.find(".SH EXIT STATUS"), std::string::npos);
}

}  // namespace
