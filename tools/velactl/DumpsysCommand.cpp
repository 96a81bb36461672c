#include "DumpsysCommand.h"

#include <cstdio>

#include "ServiceDumpReader.h"
#include "ServiceDumpsys.h"
#include "ToolCommands.h"

namespace velactl {

void bindDumpsys(CLI::App& app, DumpsysOptions& o) {
    // The names are the service's own; it refuses what it does not know, with the list.
    std::string names;
    for (const auto& row : aidl::vendor::norvo::hardware::vela::impl::kDumpsysTables) {
        names += std::string(names.empty() ? "" : ", ") + row.name;
    }
    app.add_option("tables", o.tables, names + " (all when none; history only while recording)");
    app.add_flag("--json", o.json, "one JSON object, a member per table");
}

int runDumpsys(Context& ctx, DumpsysOptions& o) {
    std::vector<std::string> args;
    if (ctx.out.json() || o.json) args.push_back("--json");
    args.insert(args.end(), o.tables.begin(), o.tables.end());

    std::string error;
    const std::optional<ServiceDump> dump = readServiceDump(args, &error);
    if (!dump) {
        ctx.out.error("dumpsys: " + error);
        return kExitSoftware;
    }
    if (!dump->found) {
        const int rc = requireService(ctx);            // says where it looked
        return rc == kExitOk ? kExitUnavailable : rc;  // it came up just now: ask again
    }
    if (dump->status == STATUS_BAD_VALUE) {
        // The service's own line: what it did not know, and the tables it has.
        ctx.out.error(dump->text.substr(0, dump->text.find('\n')));
        return kExitUsage;
    }
    fwrite(dump->text.data(), 1, dump->text.size(), stdout);
    fflush(stdout);
    if (dump->cut)
        ctx.out.error("dumpsys: output cut at " + std::to_string(kMaxDumpBytes) + " bytes");
    if (dump->status == STATUS_OK) return dump->cut ? kExitSoftware : kExitOk;
    if (dump->status == STATUS_DEAD_OBJECT) {
        ctx.out.error("dumpsys: the service died");
        return kExitUnavailable;
    }
    ctx.out.error("dumpsys: the service answered status " + std::to_string(dump->status));
    return kExitSoftware;
}

}  // namespace velactl
