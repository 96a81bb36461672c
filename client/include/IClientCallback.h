// Receivers that callers implement to hear back from the resource-control service: answers to
// requests made with a callback, and changes of the resources they listen to. Both are called
// on a binder thread with no library lock held, so they may call the library again.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "PaxClientResource.h"
#include "pax_export.h"

namespace velaHalclient {

// For requests and listeners keyed by opcode.
class PAX_EXPORT IClientCallback {
public:
    // The resources in the order the service sent them.
    virtual void onCallback(std::list<PaxClient::Resource>& resources) = 0;
    virtual ~IClientCallback() = default;
};

// For requests and listeners keyed by path: values[i] belongs to paths[i]; a text the service
// left out arrives as an empty string.
class PAX_EXPORT IClientCallbackByPath {
public:
    virtual void onCallback(std::vector<std::string> values, std::vector<std::string> paths) = 0;
    virtual ~IClientCallbackByPath() = default;
};

}  // namespace velaHalclient
