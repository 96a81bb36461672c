// Makes the service reachable under its instance name, through the service manager, once the
// VINTF manifest fragment declares the instance (on a host, the fragments in the host
// runtime's manifest directory). One implementation of each is built, never both, so the
// device build sees no host-only API.
#pragma once

#include <android/binder_ibinder.h>

#include <string>

namespace aidl::vendor::norvo::hardware::vela::impl {

// True once `binder` is served as `instance`. Either way, `where` says where it was served
// or why it was not, for the one line the caller prints.
bool registerService(AIBinder* binder, const char* instance, std::string* where);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
