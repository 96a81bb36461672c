// Serves a FakeVela from inside the test process, under the real instance name, and stops and
// restarts it. The client under test reaches it over a socket like any other service, so
// stopping it looks to the client exactly like the service dying.
//
//   paxtest::ServiceHarness service;
//   auto fake = service.startFake();
//   ... velaResCtlRequest(...) ...
//   service.stop();      // every client connection closes: death notifications run
//   service.restart();   // the same fake is served again
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "FakeVela.h"
#include "vela_protocol.h"

namespace paxtest {

// The instance every harness serves: the protocol's own name, never a second spelling of it.
inline const char* const kVelaInstance =
        ::aidl::vendor::norvo::hardware::vela::protocol::instanceName().c_str();

// Waits until AServiceManager_checkService(instance) finds nothing: this process has noticed
// that every connection to the instance closed. A connection notices its peer going away on
// its own thread, so right after a service stops or dies a lookup can still hand out a proxy
// on the closing connection; tests that start the service again wait for this first.
bool waitUntilUnreachable(const std::string& instance,
                          std::chrono::milliseconds timeout = std::chrono::seconds(5));

// Declares the instance as the build does: the service's own manifest fragment
// (service/vela-service.xml), copied into the manifest directory.
bool declareVela();

class ServiceHarness {
public:
    ServiceHarness() = default;
    // Stops serving and checks the fake's expectations.
    ~ServiceHarness();
    ServiceHarness(const ServiceHarness&) = delete;
    ServiceHarness& operator=(const ServiceHarness&) = delete;

    // Declares the instance (declareVela) without serving it.
    bool declareOnly();
    // Declares the instance and serves a fresh fake; null (test failure recorded) on failure.
    std::shared_ptr<FakeVela> startFake();
    // Stops serving: the socket goes away and every connection accepted for it closes.
    // Returns once this process's own proxies see the service gone; their death notifications
    // may still be running. Harmless when not serving.
    void stop();
    // stop(), then serve the same fake again.
    bool restart();

private:
    bool serve();

    std::shared_ptr<FakeVela> mFake;
    bool mServing = false;
};

}  // namespace paxtest
