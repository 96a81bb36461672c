// Shared setup of the Pax tests: a fake service served in-process, and every log line captured.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <shared_mutex>
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

// A comparable, printable copy of a request item.
struct Item {
    Item(int32_t id, int32_t param, std::optional<std::string> value = std::nullopt,
         std::optional<std::string> value2 = std::nullopt,
         std::optional<std::string> value3 = std::nullopt)
        : id(id),
          param(param),
          value(std::move(value)),
          value2(std::move(value2)),
          value3(std::move(value3)) {}

    int32_t id;
    int32_t param;
    std::optional<std::string> value;
    std::optional<std::string> value2;
    std::optional<std::string> value3;

    bool operator==(const Item& o) const {
        return id == o.id && param == o.param && value == o.value && value2 == o.value2 &&
               value3 == o.value3;
    }
};

inline void PrintTo(const Item& item, std::ostream* os) {
    auto text = [](const std::optional<std::string>& s) { return s ? '"' + *s + '"' : "absent"; };
    *os << "{" << item.id << ", " << item.param << ", " << text(item.value) << ", "
        << text(item.value2) << ", " << text(item.value3) << "}";
}

inline std::vector<Item> itemsOf(const std::vector<VelaRequestData>& data) {
    std::vector<Item> items;
    for (const VelaRequestData& d : data)
        items.push_back({d.id, d.param, d.value, d.value2, d.value3});
    return items;
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
    void SetUp() override {
        fake = service.startFake();
        ASSERT_NE(fake, nullptr);
    }

    bool logged(int priority, const std::string& text) const {
        return log.contains(kTag, priority, text);
    }

    LogCapture log;
    ServiceHarness service;
    std::shared_ptr<FakeVela> fake;
};

}  // namespace paxtest
