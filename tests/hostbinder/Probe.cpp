#include "Probe.h"

#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <hostbinder/hostbinder.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <new>

#include "ExecProgram.h"

namespace hbtest {
namespace {
constexpr const char* kRoleEnv = "HOSTBINDER_TEST_ROLE";
constexpr const char* kDescriptor = "hostbinder.test.IProbe";

binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                           AParcel* out) {
    return (*static_cast<ProbeHandler*>(AIBinder_getUserData(binder)))(code, in, out);
}
}  // namespace

const AIBinder_Class* probeClass() {
    static const AIBinder_Class* clazz = AIBinder_Class_define(
            kDescriptor, [](void* args) { return args; },
            [](void* data) { delete static_cast<ProbeHandler*>(data); }, onTransact);
    return clazz;
}

ndk::SpAIBinder newProbe(ProbeHandler handler) {
    return ndk::SpAIBinder(
            AIBinder_new(probeClass(), new (std::nothrow) ProbeHandler(std::move(handler))));
}

bool asProbe(const ndk::SpAIBinder& binder) {
    return binder.get() != nullptr && AIBinder_associateClass(binder.get(), probeClass());
}

binder_status_t callProbe(const ndk::SpAIBinder& binder, transaction_code_t code,
                          const std::function<void(AParcel*)>& args, int32_t* answer,
                          binder_flags_t flags) {
    AParcel* in = nullptr;
    binder_status_t status = AIBinder_prepareTransaction(binder.get(), &in);
    if (status != STATUS_OK) return status;
    if (args) args(in);
    AParcel* raw = nullptr;
    status = AIBinder_transact(binder.get(), code, &in, &raw, flags);
    ndk::ScopedAParcel out(raw);
    if (status == STATUS_OK && answer != nullptr) status = AParcel_readInt32(out.get(), answer);
    return status;
}

bool serveProbe(const ndk::SpAIBinder& binder, const char* instance) {
    return HostBinder_declareService(instance) == STATUS_OK &&
           AServiceManager_addService(binder.get(), instance) == EX_NONE;
}

int runChild(const std::string& role) {
    const paxtest::ChildCommand command("/proc/self/exe", {"hostbinder_child"},
                                        {std::string(kRoleEnv) + "=" + role});
    const pid_t child = fork();
    if (child == 0) command.exec();
    if (child < 0) return -1;
    auto exited = std::async(std::launch::async, [child] {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    });
    if (exited.wait_for(std::chrono::minutes(1)) != std::future_status::ready) {
        kill(child, SIGKILL);
        exited.wait();
        return -1;
    }
    return exited.get();
}

int childRole(const char* role, int (*body)()) {
    const char* wanted = getenv(kRoleEnv);
    if (wanted == nullptr || std::string(wanted) != role) return 0;
    _exit(body());
}

}  // namespace hbtest
