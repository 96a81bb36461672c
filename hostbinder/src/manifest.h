// The host's VINTF manifest: the fragments in one directory, the same XML files the device
// build installs in /vendor/etc/vintf/manifest. They are what the service manager serves.
#pragma once

#include <android/binder_status.h>

#include <string>

// $HOSTBINDER_VINTF_DIR, or the directory the build installs our fragments in, found from
// where this library is (see manifest.cpp).
std::string manifestDirectory();

// Whether the manifest declares `instance`. Every fragment is read whole, and read again once
// the directory or any fragment changes; a directory or a fragment that cannot be trusted or
// read whole declares nothing at all, and the reason is logged once.
bool manifestDeclares(const std::string& instance);

// Writes a fragment declaring `instance` (which must be `<package>.<Interface>/<instance>`),
// creating the directory owner-only when it is missing.
binder_status_t writeManifestFragment(const std::string& instance);

// servicemanager's rule for a name: 1 to 127 of [A-Za-z0-9_./-].
bool isValidServiceName(const std::string& name);
