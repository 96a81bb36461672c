// Shared setup of the Pax tests: a fake service served in-process, and every log line captured.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
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

// " id/param/value" per item, "~" for an absent value; request items never carry the other texts.
inline std::string itemTexts(const std::vector<VelaRequestData>& items) {
    std::string out;
    for (const VelaRequestData& item : items) {
        out += " " + std::to_string(item.id) + "/" + std::to_string(item.param) + "/" +
               item.value.value_or("~") + (item.value2 || item.value3 ? "+extra" : "");
    }
    return out;
}

// "kind param1 param2 param4 param6", the optional parts that are present, then "|" and the
// items: one line per parcel, where anything unexpected shows up as an extra word.
inline std::string describe(const VelaRequestParcel& p) {
    std::ostringstream s;
    s << p.requestType << ' ' << p.param1 << ' ' << p.param2 << ' ' << p.param4 << ' ' << p.param6;
    if (p.optionFlag) s << " flag";
    if (p.callback) s << " callback";
    if (p.packageName) s << " pkg:" << *p.packageName;
    if (p.identity) s << " id:" << *p.identity;
    if (p.paths) {
        for (const auto& text : *p.paths) s << " path:" << text.value_or("null");
    }
    if (p.extraValues) s << " extras";
    return s.str() + " |" + itemTexts(p.requestDatas);
}

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
        return [this, then](const VelaRequestParcel& p, auto* out) { return sent = p, then(p, out); };
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
