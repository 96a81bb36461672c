// A configuration held against a target's nodes before it is flashed: which of the nodes its
// path resources name the target lacks or would not let the service write, and which of its
// values (scenario values, defaults, ranges) a node would refuse or not hold as written.
// Opcode resources name no node in the configuration, so only path resources are held.
#pragma once

#include <cstdio>
#include <string>

namespace aidl::vendor::norvo::hardware::vela::impl {

// --check-config FILE --profile PROFILE: FILE checked as --check-config does, then each
// finding on `err` as "FILE: $.json.path: message" and a verdict on `out`. 0 when every node
// fits; 65 when one does not or PROFILE is not a valid profile (its problems named as
// "PROFILE: $.json.path: message"); 66 when a file cannot be read.
int checkConfigAgainstProfile(const std::string& file, const std::string& profile, FILE* out,
                              FILE* err);

// --check-config FILE --list-nodes: the node of each path resource of a valid FILE, one a
// line, as scripts/capture-node-profile.sh reads them; FILE's problems and exit code as
// --check-config's otherwise.
int listConfigNodes(const std::string& file, FILE* out, FILE* err);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
