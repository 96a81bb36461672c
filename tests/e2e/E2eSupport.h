// What the end-to-end tests share: a vela-service child with a sysfs mirror, and a receiver
// for the library's callbacks.
#pragma once

#include <IClientCallback.h>
#include <PaxEvent.h>
#include <gtest/gtest.h>
#include <velaHalclient.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ChildService.h"
#include "LogCapture.h"
#include "Waiter.h"

namespace e2e {

// Opcodes of the shipped configuration, with their defaults in comments.
constexpr uint32_t kLittleFloor = 0x01010010;   // 300000
constexpr uint32_t kBigFloor = 0x01010020;      // 710400
constexpr uint32_t kPrimeCeiling = 0x010100c0;  // 3187200
constexpr uint32_t kLittleLoad = 0x010108a0;    // 80

// Keeps the last delivery of either form; `heard` counts them all.
struct Recorder : velaHalclient::IClientCallback, velaHalclient::IClientCallbackByPath {
    struct Call {
        std::vector<std::string> values;  // "" for an absent value
        std::vector<std::string> paths;
    };
    void onCallback(std::list<PaxClient::Resource>& resources) override {
        Call call;
        for (const auto& r : resources) call.values.push_back(r.value.value_or(""));
        add(std::move(call));
    }
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        add(Call{std::move(values), std::move(paths)});
    }
    void add(Call call) {
        std::lock_guard<std::mutex> lock(mutex);
        lastCall = std::move(call);
        heard.increment();
    }
    Call last() {
        std::lock_guard<std::mutex> lock(mutex);
        return lastCall;
    }

    std::mutex mutex;
    Call lastCall;
    paxtest::Counter heard;
};

// Kills the service with both client links connected and returns once the client has seen it
// go, so that a test never ends (and its process never exits) with a death notification still
// running on a binder thread.
inline void killAndSettle(paxtest::ChildService& service, const paxtest::LogCapture& log) {
    if (!service.running()) return;
    std::unique_ptr<char[]> connect(velaHalclient::velaPropertyGet("ro.vendor.vela.version"));
    PaxGetPMStatus(0);
    const size_t before = log.count("Vela HAL Service died");
    service.kill();
    EXPECT_TRUE(paxtest::waitUntil([&] {
        return log.count("Vela HAL Service died") >= before + 2;
    })) << log.dump();
}

class ServiceProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string dir = std::filesystem::temp_directory_path() / "vela-e2e-XXXXXX";
        ASSERT_NE(mkdtemp(dir.data()), nullptr);
        sysfsRoot = dir;
        ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"--sysfs-root", sysfsRoot}));
    }
    void TearDown() override {
        killAndSettle(service, log);
        std::filesystem::remove_all(sysfsRoot);
    }
    std::optional<std::string> mirrored(const std::string& path) const {
        std::ifstream in(sysfsRoot + path);
        if (!in) return std::nullopt;
        std::string text;
        std::getline(in, text);
        return text;
    }

    paxtest::LogCapture log;
    paxtest::ChildService service;
    std::string sysfsRoot;
};

}  // namespace e2e
