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
using Resources = std::vector<PaxClient::Resource>;
using Texts = std::vector<std::string>;

// "id/param/value" per item, "~" for an absent value; request items never carry the other texts.
inline Texts itemTexts(const std::vector<VelaRequestData>& items) {
    Texts out;
    for (const VelaRequestData& item : items) {
        out.push_back(std::to_string(item.id) + "/" + std::to_string(item.param) + "/" +
                      item.value.value_or("~") + (item.value2 || item.value3 ? "+extra" : ""));
    }
    return out;
}

inline bool paxConnected() {
    std::shared_lock<std::shared_timed_mutex> lock(pax::g_pax_hal_mutex);
    return pax::g_pax_hal != nullptr;
}

inline AIBinder_DeathRecipient* paxRecipient() {
    std::shared_lock<std::shared_timed_mutex> lock(pax::g_pax_hal_mutex);
    return pax::g_pax_death_recipient;
}

class PaxTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(fake = service.startFake(), nullptr); }
    bool logged(int priority, const std::string& text) const {
        return log.contains(kTag, priority, text);
    }

    LogCapture log;
    ServiceHarness service;
    std::shared_ptr<FakeVela> fake;
};

}  // namespace paxtest
