// velactl: drives every entry point of the client library from a shell.
//
//   velactl [--json] [-v] [--embedded [--config FILE] [--sysfs-root DIR]] COMMAND [ARGS...]
//
// The global options may stand anywhere on the line.
#include <android/binder_process.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Commands.h"
#include "Embedded.h"
#include "ResourceArgs.h"

using namespace velactl;

namespace {

const char kUsage[] =
        "Usage: velactl [--json] [-v] [--embedded [--config FILE] [--sysfs-root DIR]] COMMAND "
        "[ARGS...]\n"
        "\n"
        "Global options:\n"
        "  --json           one JSON document per result\n"
        "  -v, --verbose    show the library's (and an embedded service's) log\n"
        "  --embedded       start a reference service inside velactl, in a private directory\n"
        "  --config FILE    scenario configuration: the embedded service's, and resource names\n"
        "  --sysfs-root DIR the embedded service mirrors path resources as files under DIR\n"
        "\n"
        "Exit codes: 0 ok, 1 refused or failed, 2 unknown command or name, 3 malformed input,\n"
        "4 service not running.\n"
        "\n"
        "The service is looked for in $HOSTBINDER_DIR (see `velactl status`).\n\n";

[[noreturn]] void finish(Context& ctx, int rc) {
    // The embedded service goes first: its threads must not outlive what they use. Then leave
    // without running static destructors, which binder threads may still be reading.
    ctx.embedded.reset();
    fflush(stdout);
    fflush(stderr);
    _exit(rc);
}

}  // namespace

int main(int argc, char** argv) {
    ABinderProcess_startThreadPool();  // callbacks and death notices need binder threads
    Context ctx;
    bool json = false, verbose = false, embedded = false, help = false;
    std::string configFile, sysfsRoot;
    std::vector<std::string> rest;

    std::vector<std::string> args(argv + 1, argv + argc);
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& word = args[i];
        auto value = [&](const std::string& option, std::string* out) {
            if (word.rfind(option + "=", 0) == 0) {
                *out = word.substr(option.size() + 1);
                return true;
            }
            if (word != option) return false;
            if (i + 1 >= args.size()) {
                fprintf(stderr, "velactl: %s needs a value\n", option.c_str());
                _exit(kExitUnknownName);
            }
            *out = args[++i];
            return true;
        };
        if (word == "--") {
            rest.insert(rest.end(), args.begin() + i + 1, args.end());
            break;
        } else if (word == "--json") {
            json = true;
        } else if (word == "-v" || word == "--verbose") {
            verbose = true;
        } else if (word == "--embedded") {
            embedded = true;
        } else if (value("--config", &configFile) || value("--sysfs-root", &sysfsRoot)) {
        } else if (rest.empty() && (word == "-h" || word == "--help")) {
            help = true;
        } else {
            rest.push_back(word);
        }
    }

    installLogger(verbose);
    ctx.verbose = verbose;
    ctx.out.setJson(json);
    if (!configFile.empty()) {
        std::string error;
        auto config = ScenarioConfig::load(configFile, &error);
        if (!config) {
            ctx.out.error(error);
            finish(ctx, kExitMalformed);
        }
        ctx.config = std::move(*config);
    }
    if (!sysfsRoot.empty() && !embedded) {
        ctx.out.error("--sysfs-root is for the embedded service: add --embedded");
        finish(ctx, kExitUnknownName);
    }

    Commands commands(ctx, Commands::Mode::kTopLevel);
    if (help || rest.empty()) {
        fputs(kUsage, help ? stdout : stderr);
        fputs(commands.app().help().c_str(), help ? stdout : stderr);
        finish(ctx, help ? kExitOk : kExitUnknownName);
    }

    if (embedded) {
        aidl::vendor::norvo::hardware::vela::impl::VelaService::Options options;
        options.config = ctx.config;
        options.sysfsRoot = sysfsRoot;
        std::string error;
        ctx.embedded = EmbeddedService::start(std::move(options), &error);
        if (!ctx.embedded) {
            ctx.out.error("cannot start the embedded service: " + error);
            finish(ctx, kExitFailed);
        }
    }
    finish(ctx, commands.execute(rest));
}
