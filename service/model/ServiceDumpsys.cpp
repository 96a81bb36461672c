#include "ServiceDumpsys.h"

#include <android/binder_ibinder.h>
#include <android/log.h>
#include <json/json.h>

#include <algorithm>
#include <chrono>

#include "BoundedWrite.h"
#include "DumpsysTables.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

namespace {

// How long the asker may leave its end unread before the dump is given up.
constexpr std::chrono::seconds kDumpsysStall{5};

constexpr size_t index(DumpsysTable table) {
    return static_cast<size_t>(table);
}

std::string tableNames() {
    std::string names;
    for (const DumpsysTableName& row : kDumpsysTables) names += std::string(" ") + row.name;
    return names;
}

}  // namespace

std::optional<DumpsysRequest> parseDumpsysArgs(const char** args, uint32_t numArgs,
                                               std::string* error) {
    DumpsysRequest request;
    for (uint32_t i = 0; i < numArgs; ++i) {
        const std::string arg = args[i] == nullptr ? "" : args[i];
        if (arg == "-h" || arg == "--help") {
            request.help = true;
            continue;
        }
        if (arg == "--json") {
            request.json = true;
            continue;
        }
        // The platform's dump of every service passes -a; it means what no argument means.
        if (arg == "-a") continue;
        const auto row = std::find_if(std::begin(kDumpsysTables), std::end(kDumpsysTables),
                                      [&arg](const DumpsysTableName& r) { return arg == r.name; });
        if (row == std::end(kDumpsysTables)) {
            // Quoted in part only: an argument can be as long as the asker likes.
            *error = "dumpsys: unknown table '" + arg.substr(0, 64) + "'; tables:" + tableNames() +
                     " (and --json, -h)";
            return std::nullopt;
        }
        request.tables[index(row->table)] = true;
        request.named = true;
    }
    return request;
}

std::string dumpsysHelp() {
    std::string text =
            "dumpsys [--json] [TABLE...]: the service's tables, every one (history only while "
            "recording, why and declared only when named) when none is named\n";
    for (const DumpsysTableName& row : kDumpsysTables) {
        std::string name = row.name;
        name.resize(std::max<size_t>(name.size(), 12), ' ');
        text += "  " + name + row.what + "\n";
    }
    text += "  --json      one JSON object, a member per table\n";
    return text;
}

std::string dumpsysTextLocked(const ServiceState& state, const DumpsysRequest& request) {
    std::string text;
    Json::Value json(Json::objectValue);
    for (const DumpsysTableName& row : kDumpsysTables) {
        const bool wanted =
                request.named ? request.tables[index(row.table)] : shownUnasked(state, row.table);
        if (!wanted) continue;
        DumpTable table = buildDumpsysTable(state, row.table);
        text += table.text();
        json[row.name] = std::move(table.json);
    }
    if (!request.json) return text;
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, json) + "\n";
}

binder_status_t answerDumpsys(int fd, const char** args, uint32_t numArgs, std::mutex& lock,
                              const ServiceState& state) {
    std::string text;
    const auto request = parseDumpsysArgs(args, numArgs, &text);
    if (!request) {
        writeBounded(fd, text + "\n", kDumpsysStall);
        return STATUS_BAD_VALUE;
    }
    if (request->help) {
        text = dumpsysHelp();
    } else {
        std::lock_guard<std::mutex> locked(lock);
        text = dumpsysTextLocked(state, *request);
    }
    // Written unlocked: an asker that never reads must not hold up every other client.
    if (writeBounded(fd, text, kDumpsysStall)) return STATUS_OK;
    serviceLog(ANDROID_LOG_WARN, "dumpsys from pid %d: the reader went away or stopped reading",
               AIBinder_getCallingPid());
    return STATUS_FAILED_TRANSACTION;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
