#include "ResourceArgs.h"

#include <PaxWrapper.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "EditDistance.h"
#include "NumberOptions.h"
#include "ServiceLimits.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::impl::editDistance;
using aidl::vendor::norvo::hardware::vela::impl::isAcceptablePath;
using aidl::vendor::norvo::hardware::vela::impl::ServiceLimits;

namespace {

std::string upper(std::string text) {
    for (char& c : text) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
}

std::vector<std::string> resourceNames(const ScenarioConfig& config) {
    std::vector<std::string> names;
    for (const auto& info : config.resources()) {
        if (!info.key.isPath() && !info.name.empty()) names.push_back(info.name);
    }
    return names;
}

}  // namespace

ResourceArg parseResource(const std::string& text, const ScenarioConfig& config, ValueRule rule) {
    ResourceArg arg;
    std::string name = text;
    const size_t equals = text.find('=');
    if (equals != std::string::npos) {
        name = text.substr(0, equals);
        arg.value = text.substr(equals + 1);
    }
    if (name.empty()) throw UsageError{"missing resource before '=' in '" + text + "'"};

    if (name[0] == '/') {
        if (!isAcceptablePath(name)) {
            throw UsageError{"path '" + name +
                             "' is not acceptable (no \"..\" components, at "
                             "most 512 bytes)"};
        }
        arg.path = name;
    } else if (auto opcode = parseWhole(name); opcode && *opcode > 0 && *opcode <= UINT32_MAX) {
        arg.opcode = static_cast<uint32_t>(*opcode);
    } else if (auto named = config.opcodeNamed(name)) {
        arg.opcode = *named;
    } else {
        const bool looksNumeric = isdigit(static_cast<unsigned char>(name[0])) || name[0] == '-';
        throw UsageError{
                "malformed opcode '" + name + "': " +
                        (looksNumeric
                                 ? "expected a non-zero 32-bit number such as 0x010108a0"
                                 : "not a resource name" + suggestion(name, resourceNames(config)) +
                                           " (or give an opcode such as 0x010108a0, or a "
                                           "path starting with '/')"),
                // A name velactl does not know is a usage error, of whatever kind.
                looksNumeric ? vela_exit::kDataError : vela_exit::kUsage};
    }

    if (rule == ValueRule::kForbidden && arg.value) {
        throw UsageError{"'" + text + "': no value is taken here, give only the resource"};
    }
    if (arg.value && arg.value->size() > ServiceLimits::kMaxText) {
        throw UsageError{"the value of " + name + " is " + std::to_string(arg.value->size()) +
                         " bytes; the service takes at most " +
                         std::to_string(ServiceLimits::kMaxText)};
    }
    // The service reads an integer resource's value in decimal only; velactl takes numbers in
    // hex too, so a hex value of a resource declared as an integer is sent in decimal. Any other
    // value goes as written: text may well start with 0x.
    if (arg.value && arg.value->size() > 2 && (*arg.value)[0] == '0' &&
        ((*arg.value)[1] == 'x' || (*arg.value)[1] == 'X')) {
        using aidl::vendor::norvo::hardware::vela::impl::ResourceKey;
        using aidl::vendor::norvo::hardware::vela::impl::ValueType;
        const auto key =
                arg.isPath() ? ResourceKey::ofPath(arg.path) : ResourceKey::ofOpcode(arg.opcode);
        const auto* info = config.infoFor(key);
        if (info != nullptr && info->type == ValueType::kInteger) {
            const auto number = parseWhole(*arg.value);
            if (!number) throw UsageError{"malformed value '" + *arg.value + "' of " + name};
            arg.value = std::to_string(*number);
        }
    }
    if (rule == ValueRule::kRequired) {
        if (!arg.value) throw UsageError{"'" + text + "' needs a value: " + name + "=VALUE"};
        if (!arg.isPath() && arg.value->empty()) {
            throw UsageError{"'" + text + "': the value of an opcode cannot be empty"};
        }
    }
    return arg;
}

std::vector<ResourceArg> parseResources(const std::vector<std::string>& texts,
                                        const ScenarioConfig& config, ValueRule rule) {
    checkItemCount(texts.size(), "resources");
    std::vector<ResourceArg> args;
    for (const std::string& text : texts) args.push_back(parseResource(text, config, rule));
    return args;
}

void checkItemCount(size_t count, const std::string& what) {
    if (count > ServiceLimits::kMaxItems) {
        throw UsageError{std::to_string(count) + " " + what +
                         " in one request; the service takes at most " +
                         std::to_string(ServiceLimits::kMaxItems)};
    }
}

bool allPaths(const std::vector<ResourceArg>& args) {
    if (args.empty()) return false;
    const bool first = args[0].isPath();
    for (const auto& arg : args) {
        if (arg.isPath() != first) {
            throw UsageError{"give either opcodes or paths, not both in one command"};
        }
    }
    return first;
}

int64_t parseLong(const std::string& text, const std::string& what) {
    const auto value = parseWhole(text);
    if (!value) {
        throw UsageError{"malformed " + what + " '" + text +
                         "': expected a whole number (decimal, or hexadecimal after 0x)"};
    }
    return *value;
}

int32_t parseInt(const std::string& text, const std::string& what) {
    const int64_t value = parseLong(text, what);
    if (value < INT32_MIN || value > INT32_MAX) {
        throw UsageError{what + " '" + text + "' does not fit in 32 bits"};
    }
    return static_cast<int32_t>(value);
}

std::string describeResource(uint32_t opcode, const std::string& path,
                             const ScenarioConfig& config) {
    if (opcode == 0) return path;
    char text[16];
    snprintf(text, sizeof(text), "0x%08" PRIx32, opcode);
    using aidl::vendor::norvo::hardware::vela::impl::ResourceKey;
    const auto* info = config.infoFor(ResourceKey::ofOpcode(opcode));
    return info != nullptr && !info->name.empty() ? std::string(text) + " " + info->name : text;
}

std::optional<int32_t> findAction(const std::string& name) {
    std::string wanted = name;
    if (wanted.rfind("MIRDAL_", 0) == 0) wanted = wanted.substr(7);
    for (const std::string& candidate : {wanted, upper(wanted), "ACTION_" + upper(wanted)}) {
        auto it = std::find(gActionList.begin(), gActionList.end(), candidate);
        if (it != gActionList.end()) return static_cast<int32_t>(it - gActionList.begin());
    }
    return std::nullopt;
}

std::vector<std::string> nearest(const std::string& text,
                                 const std::vector<std::string>& candidates, size_t count) {
    const std::string key = upper(text);
    std::vector<std::pair<size_t, std::string>> scored;
    for (const std::string& candidate : candidates) {
        const std::string other = upper(candidate);
        size_t distance = editDistance(key, other);
        // Typing part of a long name is common ("CAMERA_PREVIEW"): count it as close.
        if (key.size() >= 4 && other.find(key) != std::string::npos) {
            distance = std::min(distance, other.size() - key.size() > 8 ? size_t{3} : size_t{1});
        }
        if (distance <= std::max<size_t>(2, key.size() / 3))
            scored.emplace_back(distance, candidate);
    }
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> out;
    for (const auto& entry : scored) {
        if (std::find(out.begin(), out.end(), entry.second) != out.end()) continue;
        out.push_back(entry.second);
        if (out.size() == count) break;
    }
    return out;
}

std::string suggestion(const std::string& text, const std::vector<std::string>& candidates) {
    const auto names = nearest(text, candidates);
    if (names.empty()) return "";
    std::string out = ", did you mean ";
    for (size_t i = 0; i < names.size(); ++i) {
        if (i > 0) out += i + 1 == names.size() ? " or " : ", ";
        out += names[i];
    }
    return out + "?";
}

}  // namespace velactl
