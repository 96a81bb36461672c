#include "SysfsMirror.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace fs = std::filesystem;

SysfsMirror::SysfsMirror(std::string root) : mRoot(std::move(root)) {
    while (mRoot.size() > 1 && mRoot.back() == '/') mRoot.pop_back();
}

std::string SysfsMirror::fileFor(const std::string& path) const {
    size_t skip = path.find_first_not_of('/');
    return mRoot + "/" + (skip == std::string::npos ? std::string() : path.substr(skip));
}

bool SysfsMirror::apply(const std::string& path, const std::optional<std::string>& value,
                        std::string* error) const {
    const fs::path file = fileFor(path);
    std::error_code ec;
    if (!value) {
        fs::remove(file, ec);
        if (ec && error != nullptr) *error = "cannot remove " + file.string() + ": " + ec.message();
        return !ec;
    }
    fs::create_directories(file.parent_path(), ec);
    if (ec) {
        if (error != nullptr)
            *error = "cannot create " + file.parent_path().string() + ": " + ec.message();
        return false;
    }
    // Unique per thread and process: two writers never share a temporary file.
    const fs::path temp =
            file.string() + ".tmp" + std::to_string(getpid()) + "-" + std::to_string(gettid());
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out << *value << '\n';
        if (!out.flush()) {
            if (error != nullptr) *error = "cannot write " + temp.string();
            fs::remove(temp, ec);
            return false;
        }
    }
    fs::rename(temp, file, ec);
    if (ec) {
        if (error != nullptr) *error = "cannot replace " + file.string() + ": " + ec.message();
        fs::remove(temp, ec);
        return false;
    }
    return true;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
