// Asks the resource-control service for a CPU frequency floor, reads a property and releases
// the request. Without a running service every call reports -1 at once (unless the service is
// declared, in which case the first call waits for it).
#include <android/binder_process.h>
#include <velaHalclient.h>

#include <cstdio>
#include <list>
#include <memory>

int main() {
    ABinderProcess_startThreadPool();  // callbacks and death notices need binder threads
    std::list<PaxClient::Resource> resources{{0x010108a0, "1500000"}};
    const int handle = velaHalclient::velaResCtlRequest(0, resources, 3000);
    std::printf("velaResCtlRequest: %d\n", handle);

    std::unique_ptr<char[]> version(velaHalclient::velaPropertyGet("vendor.vela.version"));
    std::printf("velaPropertyGet: \"%s\"\n", version ? version.get() : "");

    if (handle > 0) {
        std::printf("velaResCtlRelease: %d\n", velaHalclient::velaResCtlRelease(handle));
    }
    return 0;
}
