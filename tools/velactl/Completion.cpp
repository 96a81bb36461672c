#include "Completion.h"

#include <PaxWrapper.h>

#include <cstdio>
#include <memory>
#include <set>

#include "CallDeadline.h"
#include "DumpsysTables.h"
#include "ServiceDumpReader.h"
#include "ServiceWatch.h"

namespace velactl {

namespace {

constexpr const char kGlobalOptions[] =
        "--json -v --verbose -q --quiet --embedded --config --sysfs-root --trace --record "
        "--timeout "
        "--help --version";

// A person waits on completion: a service that does not answer at once is left out.
constexpr std::chrono::milliseconds kCompletionWait{1000};

const char* const kDumpNames =
        "all todo run-map active requests res-info sa-info pid-fd pidfd-monitor records";

// What the bash function offers for the words after each command that are not options:
// a kind velactl prints candidates of, or a fixed list.
struct Positional {
    const char* command;
    const char* kind;   // for velactl --complete, or nullptr
    const char* words;  // a fixed list, or nullptr
};
constexpr Positional kPositionals[] = {
        {"acquire", "actions", nullptr},       {"actions", "actions", nullptr},
        {"state", "resources", nullptr},       {"listen", "resources", nullptr},
        {"top", "resources", nullptr},         {"request", "resources", nullptr},
        {"res-acquire", "resources", nullptr}, {"platform-acquire", "resources", nullptr},
        {"release", "handles", nullptr},       {"unlisten", "listeners", nullptr},
        {"dumpsys", "tables", nullptr},        {"dump", nullptr, kDumpNames},
        {"history", nullptr, "on off get"},    {"prop", nullptr, "get set"},
};

// The rows of one of the service's dumpsys tables, when it answers now.
Json::Value serviceTable(const char* table) {
    if (!serviceRunning() || pingService(kCompletionWait) != Ping::kAnswered) return Json::Value();
    setCallTimeout(kCompletionWait);
    CallDeadline bounded(std::string("dumpsys ") + table);
    return readServiceTable(table).value_or(Json::Value());
}

std::string member(const Json::Value& row, const char* key) {
    if (!row.isObject()) return std::string();
    const Json::Value& v = row[key];
    return v.isString() || v.isIntegral() ? v.asString() : std::string();
}

}  // namespace

int printCandidates(Context& ctx, const std::string& kind) {
    std::set<std::string> out;
    if (kind == "actions") {
        // As acquire reads them: the short form people type, and the full name.
        for (const std::string& name : gActionList) {
            out.insert(name);
            if (name.rfind("ACTION_", 0) == 0) {
                std::string shortName = name.substr(7);
                for (char& c : shortName) c = static_cast<char>(tolower(c));
                out.insert(shortName);
            }
        }
    } else if (kind == "resources") {
        // The running service's names first: it may run another configuration than velactl's.
        const Json::Value rows = serviceTable("resources");
        for (const Json::Value& row : rows) {
            const std::string name = member(row, "name");
            if (!name.empty()) out.insert(name);
        }
        if (out.empty()) {
            for (const auto& info : ctx.config.resources()) {
                out.insert(info.name.empty() ? info.key.toString() : info.name);
            }
        }
    } else if (kind == "handles" || kind == "listeners") {
        const Json::Value rows = serviceTable(kind == "handles" ? "requests" : "listeners");
        for (const Json::Value& row : rows) {
            const std::string handle = member(row, "handle");
            if (!handle.empty()) out.insert(handle);
        }
    } else if (kind == "tables") {
        for (const auto& row : aidl::vendor::norvo::hardware::vela::impl::kDumpsysTables) {
            out.insert(row.name);
        }
    } else {
        ctx.out.error("--complete takes actions, resources, handles, listeners or tables");
        return kExitUsage;
    }
    for (const std::string& word : out) printf("%s\n", word.c_str());
    return kExitOk;
}

std::string bashCompletion(Commands& commands) {
    std::string cases;
    std::string names;
    for (const auto* sub : commands.app().get_subcommands({})) {
        names += sub->get_name() + " ";
        std::string options = "--help";
        for (const CLI::Option* option : sub->get_options()) {
            for (const std::string& name : option->get_lnames()) options += " --" + name;
            for (const std::string& name : option->get_snames()) options += " -" + name;
        }
        std::string positional = "words=\"" + options + "\"";
        for (const Positional& p : kPositionals) {
            if (sub->get_name() != p.command) continue;
            positional += p.kind != nullptr ? std::string("; kind=") + p.kind
                                            : std::string("; fixed=\"") + p.words + "\"";
        }
        cases += "        " + sub->get_name() + ") " + positional + " ;;\n";
    }
    // Candidates that depend on the service are asked for when the user presses Tab, with the
    // same --config (and so the same names) as the line being typed.
    return "# bash completion for velactl\n"
           "_velactl() {\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command= i\n"
           "    local config=()\n"
           "    case $prev in\n"
           "        --config|--sysfs-root|--trace|--record|--against)\n"
           "            COMPREPLY=($(compgen -f -- \"$cur\")); return ;;\n"
           "        --timeout) return ;;\n"
           "        --via) COMPREPLY=($(compgen -W \"sa pax wrapper\" -- \"$cur\")); return ;;\n"
           "    esac\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        case ${COMP_WORDS[i]} in\n"
           "            --config) config=(--config \"${COMP_WORDS[i+1]}\"); ((i++)) ;;\n"
           "            --sysfs-root|--trace|--record|--timeout) ((i++)) ;;\n"
           "            -*) ;;\n"
           "            *) command=${COMP_WORDS[i]}; break ;;\n"
           "        esac\n"
           "    done\n"
           "    local words= kind= fixed=\n"
           "    case $command in\n"
           "        '') words=\"" +
           std::string(kGlobalOptions) + " " + names + "\" ;;\n" + cases +
           "    esac\n"
           "    [[ ($command == run || $command == replay) && $cur != -* ]] &&\n"
           "        { COMPREPLY=($(compgen -f -- \"$cur\")); return; }\n"
           "    if [[ $cur != -* && -n $command ]]; then\n"
           "        if [[ -n $kind ]]; then\n"
           "            words=$(\"${COMP_WORDS[0]}\" \"${config[@]}\" --complete \"$kind\" "
           "2>/dev/null)\n"
           "        else\n"
           "            words=$fixed\n"
           "        fi\n"
           "    fi\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
           "}\n"
           "complete -F _velactl velactl\n";
}

}  // namespace velactl
