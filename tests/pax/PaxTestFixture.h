// Shared setup of the Pax tests: a fake service served in-process, and every log line captured.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeVela.h"
#include "LogCapture.h"
#include "PaxEvent.h"
#include "ServiceHarness.h"
#include "TraceCapture.h"
#include "pax.h"

namespace paxtest {

inline constexpr char kTag[] = "[PAX_CLIENT]";
using ::testing::_;
using Resources = std::vector<PaxClient::Resource>;
using Texts = std::vector<std::string>;

inline bool paxConnected() {
    std::shared_lock<std::shared_timed_mutex> lock(pax::g_pax_hal_mutex);
    return pax::g_pax_hal != nullptr;
}

inline AIBinder_DeathRecipient* paxRecipient() {
    std::shared_lock<std::shared_timed_mutex> lock(pax::g_pax_hal_mutex);
    return pax::g_pax_death_recipient;
}

// The service answers requests and queries by default and keeps the last parcel in `sent`.
class PaxTest : public testing::Test {
protected:
    // `then`, after keeping the parcel.
    template <typename Action>
    auto answer(Action then) {
        return [this, then](const VelaRequestParcel& p, auto* out) {
            return sent = p, then(p, out);
        };
    }
    auto answer(Items items) { return answer(reply(std::move(items))); }
    void SetUp() override {
        ASSERT_NE(fake = service.startFake(), nullptr);
        ON_CALL(*fake, resCtlRequest).WillByDefault(answer(reply(1)));
        ON_CALL(*fake, resStateRequest).WillByDefault(answer(Items{}));
    }
    bool logged(int priority, const std::string& text) const {
        return log.contains(kTag, priority, text);
    }

    LogCapture log;
    ServiceHarness service;
    std::shared_ptr<FakeVela> fake;
    VelaRequestParcel sent;
};

}  // namespace paxtest
