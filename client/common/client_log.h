// The library's log tags and one shorthand per tag. Readers of the device log filter on these
// exact tags, so each is written once here; the priority is named at the call site
// (INFO, DEBUG, ERROR) so that a line's level is visible where it is written.
#pragma once

#include <android/log.h>

namespace client_log {

// The velaHalclient functions.
inline constexpr char kHalclientTag[] = "VELAFramework-lib-vendor";
// Inside the callback client: spelled differently on purpose, log readers filter on it.
inline constexpr char kCallbackTag[] = "VelaFramework-lib-vendor";
// The Pax event functions.
inline constexpr char kPaxTag[] = "[PAX_CLIENT]";
// The action wrapper.
inline constexpr char kWrapperTag[] = "[PAX_CLIENT_WRAPPER]";

}  // namespace client_log

#define VELA_LOG(priority, ...) \
    __android_log_print(ANDROID_LOG_##priority, ::client_log::kHalclientTag, __VA_ARGS__)
#define CALLBACK_LOG(priority, ...) \
    __android_log_print(ANDROID_LOG_##priority, ::client_log::kCallbackTag, __VA_ARGS__)
#define PAX_LOG(priority, ...) \
    __android_log_print(ANDROID_LOG_##priority, ::client_log::kPaxTag, __VA_ARGS__)
#define WRAPPER_LOG(priority, ...) \
    __android_log_print(ANDROID_LOG_##priority, ::client_log::kWrapperTag, __VA_ARGS__)
