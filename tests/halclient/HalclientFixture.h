// What the velaHalclient tests share: a fake service served in-process, captured log lines,
// and receivers that record what the library hands them.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include "FakeVela.h"
#include "LogCapture.h"
#include "ServiceHarness.h"
#include "Waiter.h"
#include "velaHalclient.h"

namespace halclienttest {

using PaxClient::Resource;
using velaHalclient::ResourceList;

inline constexpr char kTag[] = "VELAFramework-lib-vendor";
inline constexpr char kCallbackTag[] = "VelaFramework-lib-vendor";

struct Receiver : velaHalclient::IClientCallback {
    void onCallback(std::list<Resource>& resources) override {
        std::function<void()> hook;
        {
            std::lock_guard<std::mutex> lock(mutex);
            received.push_back(resources);
            hook = whileCalled;
        }
        if (hook) hook();
    }
    std::vector<std::list<Resource>> got() {
        std::lock_guard<std::mutex> lock(mutex);
        return received;
    }
    // Runs on the delivering thread, after the delivery was recorded.
    void setWhileCalled(std::function<void()> hook) {
        std::lock_guard<std::mutex> lock(mutex);
        whileCalled = std::move(hook);
    }
    std::mutex mutex;
    std::vector<std::list<Resource>> received;
    std::function<void()> whileCalled;
};

struct PathReceiver : velaHalclient::IClientCallbackByPath {
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        std::lock_guard<std::mutex> lock(mutex);
        received = {std::move(values), std::move(paths)};
    }
    std::pair<std::vector<std::string>, std::vector<std::string>> got() {
        std::lock_guard<std::mutex> lock(mutex);
        return received;
    }
    std::mutex mutex;
    std::pair<std::vector<std::string>, std::vector<std::string>> received;
};

class HalclientTest : public testing::Test {
protected:
    void SetUp() override {
        fake = service.startFake();
        ASSERT_NE(fake, nullptr);
    }
    void TearDown() override {
        // On the host, the fake's proxies of our callbacks keep the stopped connection alive,
        // and the connection keeps the fake: let go of them so that nothing is left at exit.
        service.stop();
        if (fake != nullptr) {
            fake->forgetCallbacks();
            fake->clearCalls();
        }
    }
    bool info(const std::string& text) const { return log.contains(kTag, ANDROID_LOG_INFO, text); }
    bool error(const std::string& text) const {
        return log.contains(kTag, ANDROID_LOG_ERROR, text);
    }

    paxtest::LogCapture log;
    paxtest::ServiceHarness service;
    std::shared_ptr<paxtest::FakeVela> fake;
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
    std::shared_ptr<PathReceiver> byPath = std::make_shared<PathReceiver>();
};

}  // namespace halclienttest
