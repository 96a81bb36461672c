// velactl: drives every entry point of the client library from a shell.
//
//   velactl [OPTIONS] COMMAND [ARGS...]
//
// The global options may stand anywhere on the line.
#include <android/binder_process.h>
#include <android/log.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "CallDeadline.h"
#include "Commands.h"
#include "Completion.h"
#include "Embedded.h"
#include "ExitCodes.h"
#include "Interrupt.h"
#include "LogLevel.h"
#include "ManPage.h"
#include "ResourceArgs.h"
#include "Version.h"

using namespace velactl;

namespace {

const char kUsage[] =
        "Usage: velactl [OPTIONS] COMMAND [ARGS...]\n"
        "Drives the resource-control service from a shell: every entry point of the client\n"
        "library, against a running vela-service or one embedded in velactl.\n"
        "\n"
        "Options (anywhere on the line):\n"
        "  --json            print each result as one JSON object on a line of its own\n"
        "  -v, --verbose     show the library's own log lines (none by default): info, then\n"
        "                    debug (-vv), then all (-vvv)\n"
        "  -q, --quiet       show none of the library's lines, whatever VELA_LOG_LEVEL says\n"
        "  --embedded        start a reference service inside velactl, in a private directory\n"
        "  --config FILE     scenario configuration: the embedded service's or a replay's, and\n"
        "                    resource names\n"
        "  --sysfs-root DIR  the embedded service mirrors path resources as files under DIR\n"
        "  --trace FILE      the embedded service (or a replay) writes a timeline to FILE\n"
        "                    (trace-event JSON, which ui.perfetto.dev opens)\n"
        "  --record FILE     the embedded service records every call that changes state to\n"
        "                    FILE, one JSON object a line, for velactl replay\n"
        "  --timeout SECONDS before the command: give each call to the service this long before\n"
        "                    velactl gives up on it with exit code 69 (default 5; after the\n"
        "                    command, --timeout is the command's own, in ms)\n"
        "  -h, --help        show this help; COMMAND --help shows a command's own\n"
        "  --version         show the version\n"
        "\n"
        "Numbers are decimal, or hexadecimal after 0x; so are the values of resources the\n"
        "service declares as integers (velactl sends them in decimal). Resource names are the\n"
        "service's own (its dumpsys declared table), or --config's, or with --embedded the\n"
        "built-in configuration's.\n"
        "\n"
        "A record of calls (--record) plays again on a virtual clock with\n"
        "velactl [--config A] replay RECORD [--against B]: see velactl replay --help.\n"
        "\n"
        "Commands:\n";

const char kEnvironment[] =
        "\n"
        "Environment:\n"
        "  HOSTBINDER_DIR    where the service is looked for (see velactl status)\n"
        "  HOSTBINDER_VINTF_DIR  the manifest fragments that declare it (default: beside\n"
        "                    the library, etc/vintf/manifest)\n"
        "  VELA_LOG_LEVEL    verbose|debug|info|warn|error|fatal|silent: the library's log level\n"
        "                    (-v and -q on the command line win over it)\n"
        "  VELACTL_TIMEOUT   seconds, as --timeout (the option wins over it)\n"
        "\n";

Context* gContext = nullptr;  // for the call watchdog's way out

[[noreturn]] void finish(Context& ctx, int rc) {
    // Leave without stopping an embedded service or running static destructors: binder
    // threads may still be reading them, and a service stopped under the library's feet would
    // read to it as the service dying. The process ending takes everything with it.
    if (ctx.embedded) ctx.embedded->removeDirectory();
    if (ctx.trace) ctx.trace->close();  // no destructor runs: the array is closed here
    fflush(stdout);
    fflush(stderr);
    _exit(rc);
}

struct Globals {
    bool json = false, embedded = false, help = false, version = false, man = false;
    int louder = 0, quieter = 0;
    std::string configFile, sysfsRoot, traceFile, recordFile, completion, complete, timeout;
    std::vector<std::string> rest;
};

// -1 when velactl goes on, else the exit code.
int readGlobals(const std::vector<std::string>& args, Globals* g) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& word = args[i];
        bool missing = false;
        auto value = [&](const std::string& option, std::string* out) {
            if (word.rfind(option + "=", 0) == 0) {
                *out = word.substr(option.size() + 1);
                return true;
            }
            if (word != option) return false;
            if (i + 1 >= args.size()) {
                missing = true;
                return true;
            }
            *out = args[++i];
            return true;
        };
        if (word == "--") {
            // After the command's own words it stays: a holding command runs what follows.
            if (!g->rest.empty()) g->rest.push_back(word);
            g->rest.insert(g->rest.end(), args.begin() + i + 1, args.end());
            break;
        } else if (word == "--json") {
            g->json = true;
        } else if (word == "--verbose") {
            ++g->louder;
        } else if (word == "--quiet") {
            ++g->quieter;
        } else if (word.size() > 1 && word[0] == '-' && word[1] != '-' &&
                   word.find_first_not_of('v', 1) == std::string::npos) {
            g->louder += static_cast<int>(word.size() - 1);  // -v, -vv, -vvv
        } else if (word == "-q" || word == "-qq") {
            g->quieter += static_cast<int>(word.size() - 1);
        } else if (word == "--embedded") {
            g->embedded = true;
        } else if (word == "--version") {
            g->version = true;
        } else if (word == "--man") {
            g->man = true;
        } else if (g->rest.empty() && value("--timeout", &g->timeout)) {
            // Only before the command: after it, --timeout is a command's own wait in ms.
            if (missing) {
                fprintf(stderr, "velactl: --timeout needs a value in seconds\n");
                return kExitUsage;
            }
        } else if (value("--config", &g->configFile) || value("--sysfs-root", &g->sysfsRoot) ||
                   value("--trace", &g->traceFile) || value("--record", &g->recordFile) ||
                   value("--completion", &g->completion) || value("--complete", &g->complete)) {
            if (missing) {
                fprintf(stderr, "velactl: %s needs a value\n", word.c_str());
                return kExitUsage;
            }
        } else if (g->rest.empty() && (word == "-h" || word == "--help")) {
            g->help = true;
        } else {
            g->rest.push_back(word);
        }
    }
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    installInterruptHandler();
    Globals g;
    if (int rc = readGlobals(std::vector<std::string>(argv + 1, argv + argc), &g); rc >= 0) {
        return rc;
    }
    if (g.version) {
        printf("velactl %s\n", vela_version::kVersion);
        return kExitOk;
    }

    // The command line wins over the environment.
    const char* envTimeout = getenv("VELACTL_TIMEOUT");
    const bool fromEnvironment = g.timeout.empty() && envTimeout != nullptr && *envTimeout != '\0';
    if (!g.timeout.empty() || fromEnvironment) {
        const std::string text = fromEnvironment ? envTimeout : g.timeout;
        std::chrono::milliseconds timeout{};
        if (!parseTimeoutSeconds(text, &timeout)) {
            fprintf(stderr, "velactl: %s%s: write the timeout in seconds (0.001 to 86400)\n",
                    fromEnvironment ? "VELACTL_TIMEOUT=" : "--timeout ", text.c_str());
            return kExitData;
        }
        setCallTimeout(timeout);
    }

    std::string logWarning;
    // The library's lines are its developers' view, some of them at error priority for events
    // that are normal (an empty history, say): by default velactl reports in its own words
    // and shows none of them. -v shows them from info, and each further v a level more.
    int display = ANDROID_LOG_SILENT;
    if (g.louder > 0) {
        display = g.louder == 1   ? ANDROID_LOG_INFO
                  : g.louder == 2 ? ANDROID_LOG_DEBUG
                                  : ANDROID_LOG_VERBOSE;
    } else if (g.quieter == 0) {
        display = vela_log::choosePriority(ANDROID_LOG_SILENT, 0, 0, &logWarning);
    }
    installLogger(display, g.embedded);
    Context ctx;
    gContext = &ctx;
    setDeadlineExit([](int rc) { finish(*gContext, rc); });
    ctx.commandLine.assign(argv, argv + argc);
    ctx.out.setJson(g.json);
    if (!logWarning.empty()) ctx.out.error(logWarning);
    if (!g.configFile.empty()) {
        std::string error;
        auto config = ScenarioConfig::load(g.configFile, &error);
        if (!config) {
            ctx.out.error(error);
            finish(ctx, access(g.configFile.c_str(), R_OK) != 0 ? kExitNoInput : kExitData);
        }
        ctx.config = std::move(*config);
        ctx.namesSettled = true;  // the user's word over the service's
    }
    if (!g.sysfsRoot.empty() && !g.embedded) {
        ctx.out.error("--sysfs-root is for the embedded service: add --embedded");
        finish(ctx, kExitUsage);
    }
    ctx.traceFile = g.traceFile;
    // A replay writes --trace from a service of its own, on a virtual clock; an embedded
    // service beside it would write to the same file.
    const bool replaying = !g.rest.empty() && g.rest[0] == "replay";
    if (replaying && g.embedded) {
        ctx.out.error("replay runs a service of its own: leave out --embedded");
        finish(ctx, kExitUsage);
    }
    if (!g.traceFile.empty() && !g.embedded && !replaying) {
        ctx.out.error("--trace is for the embedded service: add --embedded");
        finish(ctx, kExitUsage);
    }
    if (!g.recordFile.empty() && !g.embedded) {
        ctx.out.error("--record is for the embedded service: add --embedded");
        finish(ctx, kExitUsage);
    }

    Commands commands(ctx, Commands::Mode::kTopLevel);
    // Not in --help: the build runs `velactl --completion bash` to write the installed script.
    if (!g.completion.empty()) {
        if (g.completion != "bash") {
            ctx.out.error("--completion takes bash");
            finish(ctx, kExitUsage);
        }
        fputs(bashCompletion(commands).c_str(), stdout);
        finish(ctx, kExitOk);
    }
    // Not in --help: the build runs `velactl --man` to write the installed man page.
    if (g.man) {
        fputs(manPage(commands, kUsage, kEnvironment).c_str(), stdout);
        finish(ctx, kExitOk);
    }
    // Not in --help either: the completion script asks for the names that fit a word.
    if (!g.complete.empty()) finish(ctx, printCandidates(ctx, g.complete));
    if (g.help || g.rest.empty()) {
        FILE* to = g.help ? stdout : stderr;
        fputs(kUsage, to);
        fputs(commands.overview().c_str(), to);
        fputs(kEnvironment, to);
        fputs(vela_exit::kTable, to);
        finish(ctx, g.help ? kExitOk : kExitUsage);
    }

    ABinderProcess_startThreadPool();  // callbacks and death notices need binder threads
    if (g.embedded) {
        ctx.namesSettled = true;  // the service is velactl's own, with velactl's configuration
        aidl::vendor::norvo::hardware::vela::impl::VelaService::Options options;
        options.config = ctx.config;
        options.sysfsRoot = g.sysfsRoot;
        std::string error;
        // 66 as for vela-service --trace and --record: the path named is what to fix. The
        // record is written a line at a time and unbuffered: the _exit at the end loses nothing.
        if (!options.openFiles(g.traceFile, g.recordFile, &error)) {
            ctx.out.error(error);
            finish(ctx, kExitNoInput);
        }
        ctx.trace = options.trace;
        ctx.embedded = EmbeddedService::start(std::move(options), &error);
        if (!ctx.embedded) {
            ctx.out.error("cannot start the embedded service: " + error);
            finish(ctx, kExitSoftware);
        }
    }
    finish(ctx, commands.execute(g.rest));
}
