#include "ManPage.h"

#include <cstring>

#include "ExitCodes.h"
#include "Version.h"

namespace velactl {

namespace {

// Worked lines for the commands people reach for first; the rest are plain enough from their
// options.
struct Example {
    const char* command;
    const char* lines;  // one example a line, each a comment then the line to type
};
constexpr Example kExamples[] = {
        {"acquire",
         "# the launch scenario for two seconds, by its short name\n"
         "velactl acquire launch --duration 2000\n"},
        {"request",
         "# raise the little cores' floor until released; wait for the service's answer\n"
         "velactl request cpu.little.freq_min=1804800 --callback\n"},
        {"release", "# end the request that printed handle 3\nvelactl release 3\n"},
        {"state",
         "# the values in force, by name and by opcode\n"
         "velactl state cpu.little.freq_min 0x010100c0\n"},
        {"listen",
         "# print changes to the floor, with their time, until Ctrl-C; follow a restart\n"
         "velactl listen cpu.little.freq_min --follow\n"},
        {"dumpsys",
         "# who holds each value, as JSON\n"
         "velactl dumpsys --json resources requests\n"},
        {"top", "# the live view, kept across restarts of the service\nvelactl top --follow\n"},
        {"history", "# record, then read the records\nvelactl history on\nvelactl history get\n"},
        {"prop", "velactl prop set vendor.vela.mode game\nvelactl prop get vendor.vela.mode\n"},
        {"actions", "# the action table's entries about the camera\nvelactl actions camera\n"},
        {"status",
         "# where velactl looks, and whether the service answers within 2 s\n"
         "velactl --timeout 2 status\n"},
        {"run",
         "# a script from standard input\n"
         "printf 'listen cpu.little.freq_min\\nrequest cpu.little.freq_min=1 -d 50\\nawait 2\\n' "
         "| velactl --embedded run -\n"},
        {"demo", "velactl --embedded demo\n"},
        {"replay",
         "# record a run, then see what it does with configuration B\n"
         "velactl --embedded --record /tmp/run.jsonl run script.vela\n"
         "velactl --trace /tmp/replay.json replay /tmp/run.jsonl --against b.json\n"},
        {"init", "velactl init --pax\n"},
        {"res-acquire", "velactl res-acquire cpu.big.freq_min=1804800\n"},
        {"platform-acquire", "velactl platform-acquire gpu.freq_min=220000000\n"},
        {"sa-request", "velactl sa-request 3\n"},
        {"unlisten", "# stop the listener that printed \"listener 2\"\nvelactl unlisten 2\n"},
        {"thermal", "# subsystem 1 at level 3, subsystem 2 back to 0\nvelactl thermal 1=3 2=0\n"},
        {"notify", "velactl notify 5 1 0\n"},
        {"rule",
         "velactl rule 7 on sched.little.target_load=60\n"
         "velactl rule 7 off\n"},
        {"sysinfo", "velactl sysinfo 1 0x10\n"},
        {"dump",
         "# with --embedded the tables print here; otherwise in the service's log\n"
         "velactl --embedded dump run-map requests\n"},
        {"dataset", "velactl --json dataset\n"},
        {"power", "velactl power\n"},
        {"pm", "velactl pm 0\n"},
};

// Text as roff reads it: backslashes doubled, and a line that starts with a dot or an
// apostrophe escaped, lest it be read as a request.
std::string roff(const std::string& text) {
    std::string out;
    bool lineStart = true;
    for (char c : text) {
        if (lineStart && (c == '.' || c == '\'')) out += "\\&";
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
        lineStart = c == '\n';
    }
    return out;
}

std::string preformatted(const std::string& text) {
    return ".PP\n.nf\n" + roff(text) + (text.empty() || text.back() == '\n' ? "" : "\n") + ".fi\n";
}

std::string commandSection(const CLI::App& sub) {
    std::string synopsis = "velactl [OPTIONS] " + sub.get_name();
    std::string options;
    for (const CLI::Option* option : sub.get_options()) {
        if (option->get_positional()) {
            const std::string name = option->get_name(true);
            const bool many = option->get_items_expected_max() > 1;
            std::string word = name + (many ? "..." : "");
            synopsis += option->get_required() ? " " + word : " [" + word + "]";
            options += ".TP\n.B " + roff(name) + "\n" + roff(option->get_description()) + "\n";
            continue;
        }
        std::string names = option->get_name(false, true);
        const std::string type = option->get_type_name();
        if (!type.empty() && option->get_items_expected_max() > 0) names += " " + type;
        options += ".TP\n.B " + roff(names) + "\n" + roff(option->get_description()) + "\n";
    }
    std::string text = ".SS " + roff(sub.get_name()) + "\n" + roff(sub.get_description()) +
                       "\n.PP\n.B " + roff(synopsis) + "\n";
    if (!options.empty()) text += ".RS\n" + options + ".RE\n";
    const std::string footer = sub.get_footer();
    if (!footer.empty()) text += ".PP\n" + roff(footer) + "\n";
    for (const Example& example : kExamples) {
        if (sub.get_name() == example.command) {
            text += ".PP\nExamples:\n" + preformatted(example.lines);
        }
    }
    return text;
}

}  // namespace

std::string manPage(Commands& commands, const std::string& usage, const std::string& environment) {
    std::string page = ".TH VELACTL 1 \"\" \"velactl " + std::string(vela_version::kVersion) +
                       "\" \"User Commands\"\n"
                       ".SH NAME\nvelactl \\- drive the resource-control service from a shell\n"
                       ".SH SYNOPSIS\n.B velactl\n[OPTIONS] COMMAND [ARGS...]\n"
                       ".SH DESCRIPTION\n";
    // The usage text up to its list of commands, which the sections below replace.
    const size_t commandsAt = usage.find("Commands:");
    const std::string head = usage.substr(usage.find('\n') + 1, commandsAt - usage.find('\n') - 1);
    page += preformatted(head);
    page += ".SH COMMANDS\nEach command's own options follow it on the line; velactl COMMAND "
            "\\-\\-help shows them too.\n";
    for (const CLI::App* sub : commands.app().get_subcommands({})) page += commandSection(*sub);
    page += ".SH ENVIRONMENT\n" + preformatted(environment.substr(environment.find('\n', 1) + 1));
    page += ".SH EXIT STATUS\n" + preformatted(vela_exit::kTable);
    page += ".SH SEE ALSO\n.BR vela-service (1)\n";
    return page;
}

}  // namespace velactl
