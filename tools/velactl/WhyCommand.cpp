#include "WhyCommand.h"

#include <cinttypes>
#include <cstdio>
#include <sstream>

#include "ResourceArgs.h"
#include "ServiceDumpReader.h"

namespace velactl {

namespace {

// The name the service's rows give a resource: "0x01010010", or the path.
std::string keyText(const ResourceArg& arg) {
    if (arg.isPath()) return arg.path;
    char text[16];
    snprintf(text, sizeof(text), "0x%08" PRIx32, arg.opcode);
    return text;
}

bool rowIs(const Json::Value& row, const std::string& key) {
    return row["id"].asString() == key || row["path"].asString() == key;
}

// The service's own lines for the resources asked for: each block starts at a line indented
// by two with the resource's key, and runs to the next such line.
std::string blocksFor(const std::string& text, const std::vector<std::string>& keys) {
    std::istringstream lines(text);
    std::string out, line;
    bool keep = false;
    while (std::getline(lines, line)) {
        if (line.size() > 2 && line.compare(0, 2, "  ") == 0 && line[2] != ' ') {
            keep = keys.empty();
            for (const std::string& key : keys) {
                keep = keep || line.compare(2, key.size() + 1, key + " ") == 0;
            }
        }
        if (keep) out += line.substr(2) + "\n";
    }
    return out;
}

}  // namespace

void bindWhy(CLI::App& app, WhyOptions& o) {
    app.add_option("RESOURCE", o.resources, "OPCODE, NAME or /PATH (every one when none)")
            ->type_name("");
}

int runWhy(Context& ctx, WhyOptions& o) {
    std::vector<std::string> keys;
    for (const ResourceArg& arg : parseResources(o.resources, ctx.config, ValueRule::kForbidden)) {
        keys.push_back(keyText(arg));
    }
    std::vector<std::string> args = {"why"};
    if (ctx.out.json()) args.insert(args.begin(), "--json");
    std::string error;
    const auto dump = readServiceDump(args, &error);
    if (!dump || !dump->found || dump->status != STATUS_OK) {
        ctx.out.error("why: the service does not say (dumpsys why)" +
                      (error.empty() ? std::string() : ": " + error));
        return kExitUnavailable;
    }
    std::vector<std::string> missing;
    if (ctx.out.json()) {
        Json::Value doc;
        std::istringstream in(dump->text);
        if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &doc, nullptr) ||
            !doc["why"].isArray()) {
            ctx.out.error("why: the service's answer is not JSON");
            return kExitSoftware;
        }
        Json::Value rows(Json::arrayValue);
        for (const Json::Value& row : doc["why"]) {
            bool wanted = keys.empty();
            for (const std::string& key : keys) wanted = wanted || rowIs(row, key);
            if (wanted) rows.append(row);
        }
        for (const std::string& key : keys) {
            bool found = false;
            for (const Json::Value& row : rows) found = found || rowIs(row, key);
            if (!found) missing.push_back(key);
        }
        Json::Value json;
        json["why"] = rows;
        ctx.out.result("", json);
    } else {
        for (const std::string& key : keys) {
            if (blocksFor(dump->text, {key}).empty()) missing.push_back(key);
        }
        const std::string text = blocksFor(dump->text, keys);
        if (!text.empty()) ctx.out.result(text.substr(0, text.size() - 1), Json::Value());
    }
    for (const std::string& key : missing) {
        ctx.out.error("why: " + key + " has no value, no claim and no recent change");
    }
    return missing.empty() ? kExitOk : kExitNoValue;
}

}  // namespace velactl
