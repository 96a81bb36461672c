#include "Completion.h"

namespace velactl {

namespace {

constexpr const char kGlobalOptions[] =
        "--json -v --verbose -q --quiet --embedded --config --sysfs-root --trace --help "
        "--version";

}  // namespace

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
        cases += "        " + sub->get_name() + ") words=\"" + options + "\" ;;\n";
    }
    return "# bash completion for velactl\n"
           "_velactl() {\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command= i\n"
           "    case $prev in\n"
           "        --config|--sysfs-root|--trace) COMPREPLY=($(compgen -f -- \"$cur\")); return "
           ";;\n"
           "    esac\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        case ${COMP_WORDS[i]} in\n"
           "            --config|--sysfs-root|--trace) ((i++)) ;;\n"
           "            -*) ;;\n"
           "            *) command=${COMP_WORDS[i]}; break ;;\n"
           "        esac\n"
           "    done\n"
           "    local words\n"
           "    case $command in\n"
           "        '') words=\"" +
           std::string(kGlobalOptions) + " " + names + "\" ;;\n" + cases +
           "    esac\n"
           "    [[ $command == run && $cur != -* ]] && { COMPREPLY=($(compgen -f -- \"$cur\")); "
           "return; }\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
           "}\n"
           "complete -F _velactl velactl\n";
}

}  // namespace velactl
