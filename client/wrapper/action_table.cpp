#include <algorithm>
#include <iterator>

#include "PaxWrapper.h"
#include "wrapper_internal.h"

namespace {

// Event ids are positions in this list and the service decodes them the same way, so entries
// are only ever appended. The repeated names (ids 106-109 and 162) cannot be reached by name
// any more, but removing them would shift every later id.
constexpr const char* kActionNames[] = {
        "ACTION_LAUNCH",                                 // 0
        "ACTION_COLD_LAUNCH",                            // 1
        "ACTION_ACTIVITY_START",                         // 2
        "ACTION_ACTIVITY_RESUME",                        // 3
        "ACTION_ACTIVITY_FINISH",                        // 4
        "ACTION_WINDOW_ROTATION",                        // 5
        "ACTION_SWIPE_V",                                // 6
        "ACTION_SWIPE_H",                                // 7
        "ACTION_DECODE",                                 // 8
        "ACTION_COMPRESS",                               // 9
        "ACTION_BLUETOOTH",                              // 10
        "ACTION_CAMERA_OPEN",                            // 11
        "ACTION_CAMERA_CLOSE",                           // 12
        "ACTION_MTP_BOOST",                              // 13
        "ACTION_HARDCODER_L1",                           // 14
        "ACTION_HARDCODER_L2",                           // 15
        "ACTION_HARDCODER_L3",                           // 16
        "ACTION_CAMERA_PREVIEW",                         // 17
        "ACTION_CAMERA_CAPTURE",                         // 18
        "ACTION_CAMERA_VIDEO",                           // 19
        "ACTION_CAMERA_SLOW_720P",                       // 20
        "ACTION_CAMERA_SLOW_1080P",                      // 21
        "ACTION_CAMERA_FRONT_PREVIEW",                   // 22
        "ACTION_CAMERA_VIDEO_PREVIEW_60FPS",             // 23
        "ACTION_CAMERA_VIDEO_PREVIEW_VIRTUAL",           // 24
        "ACTION_CAMERA_VIDEO_PREVIEW_EIS",               // 25
        "ACTION_CAMERA_VIDEO_EIS_60FPS",                 // 26
        "ACTION_CAMERA_VIDEO_4K",                        // 27
        "ACTION_KOVIA_GAME_LOADING",                     // 28
        "ACTION_KOVIA_GAME_BOOST_L1",                    // 29
        "ACTION_KOVIA_GAME_BOOST_L2",                    // 30
        "ACTION_KOVIA_GAME_BOOST_L3",                    // 31
        "ACTION_FLUXON_GPU_BOOST",                       // 32
        "ACTION_FLUXON_CPU_BOOST_L1",                    // 33
        "ACTION_FLUXON_CPU_BOOST_L2",                    // 34
        "ACTION_FLUXON_CPU_BOOST_L3",                    // 35
        "ACTION_FLUXON_DDR_BOOST",                       // 36
        "ACTION_TOUCH_BOOST",                            // 37
        "ACTION_SCREEN_ON_BOOST",                        // 38
        "ACTION_INPUT_METHOD_BOOST",                     // 39
        "ACTION_STORAGE_BOOST",                          // 40
        "ACTION_UNLOCK_BOOST",                           // 41
        "ACTION_ANIMATION",                              // 42
        "ACTION_CAMERA_VIDEO_UHD60",                     // 43
        "ACTION_CAMERA_PREVIEW_VIDEO_EIS",               // 44
        "ACTION_CAMERA_VIDEO_HD30",                      // 45
        "ACTION_CAMERA_VIDEO_FHD30",                     // 46
        "ACTION_CAMERA_VIDEO_UHD30",                     // 47
        "ACTION_CAMERA_3RD_PARTY",                       // 48
        "ACTION_CLEAN_UP",                               // 49
        "ACTION_SCREEN_SHOT",                            // 50
        "ACTION_INSTALLATION",                           // 51
        "ACTION_RECORD",                                 // 52
        "ACTION_CAMERA_FRONT_PREVIEW_PHOTO",             // 53
        "ACTION_LUCKY_MONEY",                            // 54
        "ACTION_CAMERA_APS_CAPTURE",                     // 55
        "ACTION_FACE_UNLOCK",                            // 56
        "ACTION_CAMERA_SLOW_CAPTURE",                    // 57
        "ACTION_VOICE_WAKEUP",                           // 58
        "ACTION_3RD_CAM_WECHAT_VIDEO_CALL",              // 59
        "ACTION_FILE_SCANNER",                           // 60
        "ACTION_WATERMARK_ANIMATION",                    // 61
        "ACTION_3RD_CAM_VIDEO_CALL",                     // 62
        "ACTION_3RD_CAM_VIDEO_RECORDER",                 // 63
        "ACTION_VFX_BOOST",                              // 64
        "ACTION_FOREGROUND_BOOST",                       // 65
        "ACTION_CAMERA_GIFMAKER",                        // 66
        "ACTION_DEFAULT_PLAYER",                         // 67
        "ACTION_SWIPE_SLOW_V",                           // 68
        "ACTION_SWIPE_SLOW_H",                           // 69
        "ACTION_CAMERA_VIDEO_720P",                      // 70
        "ACTION_SIM_INIT",                               // 71
        "ACTION_3RD_CAM_WHATSAPP_VIDEO_CALL",            // 72
        "ACTION_CTS_PERF",                               // 73
        "ACTION_SWIPE_SLOW_EXTEND",                      // 74
        "ACTION_LAUNCHER_GPU_BOOST",                     // 75
        "ACTION_FILE_COPY_CUT",                          // 76
        "ACTION_FILE_ZIP_UNZIP",                         // 77
        "ACTION_CAMERA_STIKER_RECORD",                   // 78
        "ACTION_CAMERA_3RD_PARTY_LOW_POWER",             // 79
        "ACTION_SWIPE_RECENT",                           // 80
        "ACTION_INPUT_BOOST_EXTEND",                     // 81
        "ACTION_CAMERA_3RD_PARTY_COMMON",                // 82
        "ACTION_CAMERA_VIDEO_PREVIEW_30FPS",             // 83
        "ACTION_GESTURE_ANIMATION",                      // 84
        "ACTION_LAUNCHER_OPEN_APP_ANIMATION",            // 85
        "ACTION_LAUNCHER_CLOSE_APP_ANIMATION",           // 86
        "ACTION_CAMERA_VIDEO_UHD60_CAMERAUNIT",          // 87
        "ACTION_CAMERA_3RD_PARTY_EXPORT",                // 88
        "ACTION_CAMERA_3RD_PARTY_LOW_POWER_EXPORT",      // 89
        "ACTION_CAMERA_3RD_PARTY_MIDDLE_POWER",          // 90
        "ACTION_CAMERA_APS_CAPTURE_L1",                  // 91
        "ACTION_CAMERA_APS_CAPTURE_L2",                  // 92
        "ACTION_CAMERA_APS_CAPTURE_L3",                  // 93
        "ACTION_CAMERA_APS_CAPTURE_L4",                  // 94
        "ACTION_CAMERA_3RD_PARTY_HIGH_POWER",            // 95
        "ACTION_CAMERA_3RD_PARTY_SUPER_POWER",           // 96
        "ACTION_SYSTEM_UI_SWIPE",                        // 97
        "ACTION_CAMERA_VIDEO_AI_ENHANCE",                // 98
        "ACTION_CAMERA_VIDEO_GIFMAKER_REAR",             // 99
        "ACTION_CAMERA_REAR_VIDEO_1080P",                // 100
        "ACTION_CAMERA_REAR_VIDEO_SUPER_EIS",            // 101
        "ACTION_CAMERA_MULTI_SCENE",                     // 102
        "ACTION_CAMERA_MOVIE",                           // 103
        "ACTION_CAMERA_3RD_PARTY_PERF",                  // 104
        "ACTION_VIRTUAL_KEY",                            // 105
        "ACTION_CAMERA_APS_CAPTURE_L1",                  // 106
        "ACTION_CAMERA_APS_CAPTURE_L2",                  // 107
        "ACTION_CAMERA_APS_CAPTURE_L3",                  // 108
        "ACTION_CAMERA_APS_CAPTURE_L4",                  // 109
        "ACTION_ROTATION_LATENCY_BOOST",                 // 110
        "ACTION_VERTICAL_SCROLL_BOOST",                  // 111
        "ACTION_PREFLING_SCROLL_BOOST",                  // 112
        "ACTION_HORIZONTAL_SCROLL_BOOST",                // 113
        "ACTION_CAMERA_VIDEO_SUPER_EIS",                 // 114
        "ACTION_CAMERA_3RD_PARTY_WECHAT_SMALL_WINDOW",   // 115
        "ACTION_CAMERA_MOVIE_ULTRA_WIDE",                // 116
        "ACTION_SIDEBAR_SLIDEOUT_BOOST",                 // 117
        "ACTION_3RD_CAM_VIDEO_MIDPERF",                  // 118
        "ACTION_3RD_CAM_VIDEO_HIGHPERF",                 // 119
        "ACTION_CAMERA_PREVIEW_PORTAIT",                 // 120
        "ACTION_CAMERA_MEITU",                           // 121
        "ACTION_CAMERA_FRONT_EIS",                       // 122
        "ACTION_CAMERA_VIDEO_BLUR",                      // 123
        "ACTION_WFD",                                    // 124
        "ACTION_AUDIO_BOOST_L1",                         // 125
        "ACTION_AUDIO_BOOST_L2",                         // 126
        "ACTION_AUDIO_BOOST_L3",                         // 127
        "ACTION_CAMERA_CONTINUOUS_CAPTURE",              // 128
        "ACTION_CAMERA_3RD_PARTY_SPECIAL_APP",           // 129
        "ACTION_CAMERA_VIDEO_FRONT_NEON_BEAUTY",         // 130
        "ACTION_CAMERA_VIDEO_FRONT_BLUR_BEAUTY",         // 131
        "ACTION_CAMERA_FRONT_PREVIEW_30FPS",             // 132
        "ACTION_CAMERA_FRONT_PREVIEW_30FPS_FACE_NUM_2",  // 133
        "ACTION_CAMERA_VIDEO_BACK_NEON_BEAUTY",          // 134
        "ACTION_CAMERA_SUPERNIGHT",                      // 135
        "ACTION_CAMERA_PREVIEW_800_400",                 // 136
        "ACTION_LAUNCHER_ICON_EDIT",                     // 137
        "ACTION_VIDEO_PLAY_BOOST",                       // 138
        "ACTION_CAMERA_VIDEO_HFR_480FPS",                // 139
        "ACTION_CAMERA_VIDEO_8K30",                      // 140
        "ACTION_CAMERA_VIDEO_SUPER_STEADY",              // 141
        "ACTION_CAMERA_VIDEO_UHD120",                    // 142
        "ACTION_CAMERA_VIDEO_HFR_240FPS",                // 143
        "ACTION_CAMERA_VIDEO_SAT",                       // 144
        "ACTION_CAMERA_VIDEO_MACRO_PREVIEW",             // 145
        "ACTION_CAMERA_48M_PREVIEW",                     // 146
        "ACTION_CAMERA_CTS_PREVIEW",                     // 147
        "ACTION_CAMERA_STICKER_MODE",                    // 148
        "ACTION_EPS_FALLBACK_BOOST",                     // 149
        "ACTION_CAMERA_CAPTURE_LOWPOWER",                // 150
        "ACTION_CAMERA_MODE_CHANGE",                     // 151
        "ACTION_LAUNCHER_ICON_FALLEN",                   // 152
        "ACTION_ZOOMWINDOW_DRAG",                        // 153
        "ACTION_CAMERA_PREVIEW_RAWSR",                   // 154
        "ACTION_CAMERA_CAPTURE_RAWSR",                   // 155
        "ACTION_ROUND_CORNER_ANIMATION",                 // 156
        "ACTION_STYLUS_OPERATE",                         // 157
        "ACTION_CAMERA_SUPERTEXT_CAPTURE",               // 158
        "ACTION_CAMERA_FRONT_VIDEO_BOKEH",               // 159
        "ACTION_CAMERA_VIDEO_FHD30_BOKEH",               // 160
        "ACTION_CAMERA_VIDEO_FHD30_TIMELAPSE",           // 161
        "ACTION_CAMERA_MULTI_SCENE",                     // 162
        "ACTION_CAMERA_FRONT_NIGHT_CAPTURE",             // 163
        "ACTION_CAMERA_NIGHT_CAPTURE",                   // 164
        "ACTION_HINT_ANIMATION",                         // 165
        "ACTION_CAMERA_3RD_PARTY_TIKTOK",                // 166
        "ACTION_CAMERA_FRONT_NIGHT_UI",                  // 167
        "ACTION_CAMERA_APS_ICE2P0_CAPTURE",              // 168
        "ACTION_CAMERA_STICKER_ANIMOJI_PREVIEW",         // 169
        "ACTION_CAMERA_CAPTURE_FILTER_BEAUTY",           // 170
        "ACTION_CAMERA_REAR_PORTRAIT_PREVIEW",           // 171
        "ACTION_OTA_PANEL_OPEN",                         // 172
        "ACTION_KOVIA_GAME_BG",                          // 173
        "ACTION_CAMERA_DUALVIEW_VIDEO",                  // 174
        "ACTION_CAST_SCREENOFF_DISABLE_DISPLAY_VOTE",    // 175
        "ACTION_CAMERA_LONG_EXPOSURE",                   // 176
        "ACTION_CAMERA_FRONT_PREVIEW_PORTRAIT",          // 177
        "ACTION_CAMERA_FRONT_CAPTURE",                   // 178
        "ACTION_CAMERA_FRONT_VIDEO_EIS",                 // 179
        "ACTION_CAMERA_AI_VIDEO",                        // 180
        "ACTION_CAMERA_ZOOM",                            // 181
        "ACTION_CAMERA_APS_THDR_CAPTURE",                // 182
        "ACTION_CAMERA_LOWPOWER",                        // 183
        "ACTION_BACKUP_RESTORE",                         // 184
        "ACTION_CAMERA_VIDEO_BOKEH_24FPS",               // 185
        "ACTION_MULTI_USER_SWITCH",                      // 186
        "ACTION_EXTREME_COLD_MODE",                      // 187
        "ACTION_HIGHLIGHT_BOOST",                        // 188
        "ACTION_CAMERA_3RD_WECHAT_SCAN",                 // 189
        "ACTION_CAMERA_APS_THDR_CAPTURE_L1",             // 190
        "ACTION_CAMERA_THDR_CAPTURE",                    // 191
        "ACTION_LIVE_WALLPAPER",                         // 192
        "ACTION_CAST",                                   // 193
        "ACTION_ASSISTANT_SCROLL_BOOST",                 // 194
        "ACTION_CAMERA_APS_BOKEH_CAPTURE",               // 195
        "ACTION_GAME_ASSISTANT_SLIDE",                   // 196
        "ACTION_CAMERA_APS_INNER_THDR_CAPTURE",          // 197
        "ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1",       // 198
};
static_assert(std::size(kActionNames) == 199, "event ids are fixed by the service");

// Callers name their actions with this prefix in front of the table's name.
constexpr char kActionPrefix[] = "MIRDAL_";
constexpr size_t kActionPrefixLength = sizeof(kActionPrefix) - 1;

}  // namespace

// Sized exactly once from the name list; the vector never grows afterwards.
const std::vector<std::string> gActionList(std::begin(kActionNames), std::end(kActionNames));

namespace pax_wrapper {

int32_t findActionId(const std::string& eventId) {
    // The prefix may stand anywhere in the name, yet exactly its length is cut from the front:
    // callers rely on this lenient test, and a name with anything before the prefix simply
    // finds no entry.
    if (eventId.find(kActionPrefix) == std::string::npos) return -1;
    const std::string name = eventId.substr(kActionPrefixLength);
    // First match wins, so a repeated name resolves to its lower id.
    const auto it = std::find(gActionList.begin(), gActionList.end(), name);
    if (it == gActionList.end()) return -1;
    return static_cast<int32_t>(it - gActionList.begin());
}

}  // namespace pax_wrapper
