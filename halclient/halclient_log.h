// Log tag and shorthands of the velaHalclient functions.
#pragma once

#include <android/log.h>

namespace velaHalclient {

inline constexpr char kHalclientTag[] = "VELAFramework-lib-vendor";

}  // namespace velaHalclient

#define VELA_LOGI(...) \
    __android_log_print(ANDROID_LOG_INFO, ::velaHalclient::kHalclientTag, __VA_ARGS__)
#define VELA_LOGE(...) \
    __android_log_print(ANDROID_LOG_ERROR, ::velaHalclient::kHalclientTag, __VA_ARGS__)
