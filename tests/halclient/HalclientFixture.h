// What the velaHalclient tests share: a mock service served in-process, captured log lines,
// and a receiver that records what the library hands it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "FakeVela.h"
#include "LogCapture.h"
#include "ServiceHarness.h"
#include "Waiter.h"
#include "velaHalclient.h"

namespace halclienttest {

using namespace velaHalclient;
using namespace paxtest;
using PaxClient::Resource;
using Strings = std::vector<std::string>;
using ::testing::_;

inline constexpr char kTag[] = "VELAFramework-lib-vendor";
inline constexpr char kCallbackTag[] = "VelaFramework-lib-vendor";

// Takes deliveries in both forms: every list by opcode, and the last one by path.
struct Receiver : IClientCallback, IClientCallbackByPath {
    void onCallback(std::list<Resource>& resources) override {
        std::function<void()> hook;
        {
            std::lock_guard<std::mutex> lock(mutex);
            lists.push_back(resources);
            hook = whileCalled;
        }
        if (hook) hook();  // on the delivering thread, after the delivery was recorded
    }
    void onCallback(Strings values, Strings paths) override {
        std::lock_guard<std::mutex> lock(mutex);
        byPath = {std::move(values), std::move(paths)};
    }
    std::vector<std::list<Resource>> got() {
        std::lock_guard<std::mutex> lock(mutex);
        return lists;
    }
    std::pair<Strings, Strings> gotByPath() {
        std::lock_guard<std::mutex> lock(mutex);
        return byPath;
    }
    void setWhileCalled(std::function<void()> hook) {
        std::lock_guard<std::mutex> lock(mutex);
        whileCalled = std::move(hook);
    }

    std::mutex mutex;
    std::vector<std::list<Resource>> lists;
    std::pair<Strings, Strings> byPath;
    std::function<void()> whileCalled;
};

class HalclientTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(fake = service.startFake(), nullptr); }
    void TearDown() override {
        // On the host, the fake's proxies of our callbacks keep the stopped connection alive,
        // and the connection keeps the fake: let go of them so that nothing is left at exit.
        service.stop();
        if (fake != nullptr) fake->forgetCallbacks();
    }
    bool info(const std::string& text) const { return log.contains(kTag, ANDROID_LOG_INFO, text); }
    bool error(const std::string& text) const {
        return log.contains(kTag, ANDROID_LOG_ERROR, text);
    }

    LogCapture log;
    ServiceHarness service;
    std::shared_ptr<FakeVela> fake;
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
};

}  // namespace halclienttest
