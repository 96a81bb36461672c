// A small, strict reader for VINTF manifest fragments: elements, attributes, text, comments
// and the five predefined entities. Anything else (a DOCTYPE, CDATA, a tag left open, text
// after the root) is refused with the line it was found on, so a fragment is either read as a
// whole or not at all.
#pragma once

#include <string>
#include <vector>

// The AIDL instances a fragment declares, each as `<package>.<Interface>/<instance>`. False,
// with `why`, when the text is not a well-formed manifest.
bool aidlInstancesOfManifest(const std::string& text, std::vector<std::string>* instances,
                             std::string* why);
