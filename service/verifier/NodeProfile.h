// A target's node profile, as scripts/capture-node-profile.sh writes it: for each node a
// configuration names, whether it is there, whether it may be written, and what it accepts.
// Read strictly, every problem named at its JSON path, because a slip in a hand-made profile
// ("avaliable") would otherwise silently turn a check off.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ConfigReader.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// What a node takes, where the kernel tells (a cpufreq policy's frequencies) or documents it.
struct NodeAccepts {
    std::string from;  // "cpufreq policy", "devfreq", "documented"; may be empty
    std::optional<int64_t> min;
    std::optional<int64_t> max;
    // True when the kernel refuses a value outside min..max; false when it clamps it into
    // them, so that a range reaching past them is harmless but a value written there is not
    // the value held.
    bool refusesOutside = true;
    // The values the node lists, as it lists them (integers in decimal); none means any.
    std::vector<std::string> available;
};

struct NodeFacts {
    bool exists = false;
    bool writable = false;
    std::optional<std::string> mode;  // octal, "0644"
    std::optional<std::string> value;
    std::optional<NodeAccepts> accepts;

    // Writable by the capturing user, and by someone at all: root may write a 0444 node by
    // its permission bits, and sysfs still refuses it.
    bool takesWrites() const;
};

struct NodeProfile {
    std::string kernel;
    std::optional<int64_t> uid;
    std::map<std::string, NodeFacts> nodes;
};

struct ProfileReading {
    NodeProfile profile;
    std::vector<ConfigProblem> problems;
    std::string unreadable;  // as ConfigReading's
};

ProfileReading readNodeProfile(const std::string& text);
ProfileReading readNodeProfileFile(const std::string& file);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
