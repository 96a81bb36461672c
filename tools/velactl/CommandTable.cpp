// Every velactl command, one row each.
//
// To add a command: write its file (say TopCommand.h/.cpp) with an options struct, a
// `void bindTop(CLI::App&, TopOptions&)` that declares the options on the command's parser and
// an `int runTop(Context&, TopOptions&)` that acts on them and answers an exit code; then add
// one row below: {"top", "what it does", Needs::kService, Where::kAnywhere,
// attach<bindTop, runTop>}. A command without options uses attachPlain<runTop>. The file is
// picked up by the build on its own (tools/velactl/CMakeLists.txt globs *.cpp).
// Declare numbers with addNumber (NumberOptions.h) and a Range, so that they are decimal unless
// written 0x and checked before anything is sent; refuse other bad input by throwing
// UsageError; answer the exit codes of Context.h and print results with ctx.out.result, whose
// JSON form is one object. The man page and the bash completion follow the table.
#include "Command.h"
#include "Commands.h"
#include "ControlCommands.h"
#include "DiagnosticCommands.h"
#include "DumpsysCommand.h"
#include "PaxCommands.h"
#include "ReleaseCommands.h"
#include "ReplayCommand.h"
#include "ScriptCommands.h"
#include "StateCommands.h"
#include "ToolCommands.h"
#include "TopCommand.h"
#include "WhyCommand.h"
#include "WrapperCommands.h"

namespace velactl {

namespace {

constexpr Needs kService = Needs::kService;
constexpr Needs kLocal = Needs::kNothing;
constexpr Where kAnywhere = Where::kAnywhere;

// clang-format off
const CommandDef kCommands[] = {
    {"init", "connect and ask the service to initialise (vela_init, or paxInit with --pax)",
     kService, kAnywhere, attach<bindInit, runInit>},
    {"acquire", "report a usage scenario by action name or event id (PaxEventAcquireWrapper, "
                "or PaxEventAcquire for an id or with resources)",
     kService, kAnywhere, attach<bindAcquire, runAcquire>},
    {"res-acquire", "request resources without an event (PaxResAcquire)",
     kService, kAnywhere, attach<bindResAcquire, runResAcquire>},
    {"platform-acquire", "request platform resources for a package (PaxPlatformResAcquire)",
     kService, kAnywhere, attach<bindPlatformAcquire, runPlatformAcquire>},
    {"request", "set resources by opcode (velaResCtlRequest) or by path "
                "(vela_resctl_request_by_path); --callback waits for the service's answer",
     kService, kAnywhere, attach<bindRequest, runRequest>},
    {"sa-request", "SA control of one id (velaSACtlRequest)",
     kService, kAnywhere, attach<bindSaRequest, runSaRequest>},
    {"release", "end a request (velaResCtlRelease; --via sa: velaSACtlRelease, pax: PaxRelease, "
                "wrapper: PaxReleaseWapper)",
     kService, kAnywhere, attach<bindRelease, runRelease>},
    {"state", "values in force (velaResStateRequest; --pax: PaxMutiResStateRequest, --single: "
              "PaxResStateRequest; paths: vela_res_state_request_by_path, --map: by path map)",
     kService, kAnywhere, attach<bindState, runState>},
    {"listen", "hear changes (velaResListeningRegister; paths: "
               "vela_res_listening_register_by_path; --map: by path map; --thermal: "
               "velaThermalListeningRegister)",
     kService, kAnywhere, attach<bindListen, runListen>},
    {"unlisten", "stop listening (velaResListeningUnRegister; --thermal: "
                 "velaThermalListeningUnregister)",
     kService, kAnywhere, attach<bindUnlisten, runUnlisten>},
    {"thermal", "report thermal levels ID=LEVEL (velaThermalNotify)",
     kService, kAnywhere, attach<bindThermal, runThermal>},
    {"notify", "send a notification (PaxNotify)",
     kService, kAnywhere, attach<bindNotify, runNotify>},
    {"notify-source", "a notification by source and type, turned into rules (PaxNotifyWapper)",
     kService, kAnywhere, attach<bindNotifySource, runNotifySource>},
    {"rule", "switch a rule on or off with its resources (paxRuleCtl)",
     kService, kAnywhere, attach<bindRule, runRule>},
    {"sysinfo", "pass related system information (setRelatedSysInfo)",
     kService, kAnywhere, attach<bindSysinfo, runSysinfo>},
    {"dump", "make the service write a table to its log (velaDump...)",
     kService, kAnywhere, attach<bindDump, runDump>},
    {"dumpsys", "the service's tables (resources and their claims, requests, listeners, rules, "
                "history, properties) as it writes them for dumpsys",
     kService, kAnywhere, attach<bindDumpsys, runDumpsys>},
    {"why", "who holds each resource (process, package, action, handle, since, until) and what "
            "changed it lately, and why (the service's dumpsys why)",
     kService, kAnywhere, attach<bindWhy, runWhy>},
    {"history", "history recording on/off (velaHistoryRequestRecordOn/Off) or get "
                "(PaxGetHistory)",
     kService, kAnywhere, attach<bindHistory, runHistory>},
    {"prop", "read or write a service property (velaPropertyGet/Set)",
     kService, kAnywhere, attach<bindProp, runProp>},
    {"dataset", "the service's dataset (Pax_fetch_dataset)",
     kService, kAnywhere, attachPlain<runDataset>},
    {"power", "power consumption (PaxGetPowerConsis)",
     kService, kAnywhere, attachPlain<runPower>},
    {"pm", "power-mode status (PaxGetPMStatus)",
     kService, kAnywhere, attach<bindPm, runPm>},
    // Scenario list builders need no service; clearing game upgrade mode does.
    {"build", "show the resource list a scenario text makes (getTargetLoadList, "
              "getColocationList, getGameAdpList, getGameUpgradeList)",
     kLocal, kAnywhere, attach<bindBuild, runBuild>},
    {"game-upgrade-clear", "leave game upgrade mode (clrGameUpgradeMode)",
     kService, kAnywhere, attach<bindGameUpgradeClear, runGameUpgradeClear>},
    {"actions", "list the action table (event id, name, configured scenario)",
     kLocal, kAnywhere, attach<bindActions, runActions>},
    {"status", "where velactl looks for the service, and whether it answers",
     kLocal, kAnywhere, attachPlain<runStatus>},
    {"sleep", "pause the script for MS milliseconds",
     kLocal, Where::kScript, attach<bindSleep, runSleep>},
    {"await", "wait until N callbacks have been heard in this run",
     kLocal, Where::kScript, attach<bindAwait, runAwait>},
    {"echo", "print a line",
     kLocal, Where::kScript, attach<bindEcho, runEcho>},
    {"run", "run commands from FILE (- for standard input), one per line",
     kLocal, Where::kTopLevel, attach<bindRun, runRun>},
    {"top", "a live view of the values in force and the active requests, redrawn on change",
     kService, Where::kTopLevel, attach<bindTop, runTop>},
    {"demo", "a guided tour against the service (use with --embedded)",
     kService, Where::kTopLevel, attachPlain<runDemo>},
    // A replay runs a service of its own on a virtual clock: it needs none, and no --embedded.
    {"replay", "play a record of calls (--record) again on a virtual clock, with --config's "
               "configuration; --against B: where B's values would differ",
     kLocal, Where::kTopLevel, attach<bindReplay, runReplay>},
};
// clang-format on

}  // namespace

const std::vector<CommandDef>& commandTable() {
    static const std::vector<CommandDef> table(std::begin(kCommands), std::end(kCommands));
    return table;
}

}  // namespace velactl
