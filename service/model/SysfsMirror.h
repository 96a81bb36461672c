// Mirrors path-named resources as files under a directory, the way the values would land in
// sysfs on a device: each file holds the value in force and disappears when nothing sets it.
#pragma once

#include <optional>
#include <string>

namespace aidl::vendor::norvo::hardware::vela::impl {

class SysfsMirror {
public:
    explicit SysfsMirror(std::string root);

    // Writes `value` (with a trailing newline, as sysfs reads back) or removes the file when
    // there is no value. The file is replaced in one step, so readers never see half a value.
    bool apply(const std::string& path, const std::optional<std::string>& value,
               std::string* error) const;
    // Where `path` lands: a path is taken as relative to the root, whether or not it starts
    // with a slash.
    std::string fileFor(const std::string& path) const;
    const std::string& root() const { return mRoot; }

private:
    std::string mRoot;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
