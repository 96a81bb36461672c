#include "ServiceNames.h"

#include "ServiceDumpReader.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;

void useServiceNames(Context& ctx) {
    if (ctx.namesSettled) return;
    ctx.namesSettled = true;
    // Each row of the service's table is a resource as a configuration declares one: the
    // configuration's own reader checks them, and a row it refuses names nothing.
    const auto rows = readServiceTable("declared");
    std::string error;
    std::optional<ScenarioConfig> config;
    if (rows && rows->isArray() && !rows->empty()) {
        Json::Value doc(Json::objectValue);
        doc["resources"] = *rows;
        config = ScenarioConfig::parse(Json::writeString(Json::StreamWriterBuilder(), doc), &error);
    }
    if (config) {
        ctx.config = std::move(*config);
        return;
    }
    // Names from elsewhere could name other resources than the service's: better none.
    ctx.config = ScenarioConfig();
    ctx.out.error(
            "the service does not list its resources (dumpsys declared): give opcodes or "
            "paths, not names");
}

}  // namespace velactl
