#include "DumpsysCommand.h"

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "ToolCommands.h"
#include "vela_protocol.h"

namespace velactl {

namespace {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

// More than any real state makes; past it the rest is read and dropped, so that a service
// gone wrong cannot make velactl take all memory.
constexpr size_t kMaxDumpBytes = 16u << 20;

// Everything read from `fd` until every writer has closed it.
struct Drained {
    std::string text;
    bool cut = false;
};

void drain(int fd, Drained* out) {
    char buffer[16384];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        const size_t room = kMaxDumpBytes - out->text.size();
        out->text.append(buffer, std::min(room, static_cast<size_t>(n)));
        out->cut = out->cut || static_cast<size_t>(n) > room;
    }
}

}  // namespace

void bindDumpsys(CLI::App& app, DumpsysOptions& o) {
    app.add_option("tables", o.tables,
                   "resources, requests, listeners, rules, history, properties (all when none; "
                   "history only while recording)");
    app.add_flag("--json", o.json, "one JSON object, a member per table");
}

int runDumpsys(Context& ctx, DumpsysOptions& o) {
    ::ndk::SpAIBinder binder(AServiceManager_checkService(protocol::instanceName().c_str()));
    if (binder.get() == nullptr) {
        const int rc = requireService(ctx);            // says where it looked
        return rc == kExitOk ? kExitUnavailable : rc;  // it came up just now: ask again
    }

    std::vector<const char*> args;
    if (ctx.out.json() || o.json) args.push_back("--json");
    for (const std::string& table : o.tables) args.push_back(table.c_str());

    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        ctx.out.error(std::string("dumpsys: cannot make a pipe: ") + strerror(errno));
        return kExitSoftware;
    }
    // Read while the service writes: a pipe holds only so much, and the service gives up on a
    // reader that stalls it. An embedded service writes from this very thread.
    Drained drained;
    std::thread reader(drain, fds[0], &drained);
    const binder_status_t status =
            AIBinder_dump(binder.get(), fds[1], args.data(), static_cast<uint32_t>(args.size()));
    close(fds[1]);  // the service's copy closed when it answered: the reader now sees the end
    reader.join();
    close(fds[0]);

    if (status == STATUS_BAD_VALUE) {
        // The service's own line: what it did not know, and the tables it has.
        ctx.out.error(drained.text.substr(0, drained.text.find('\n')));
        return kExitUsage;
    }
    fwrite(drained.text.data(), 1, drained.text.size(), stdout);
    fflush(stdout);
    if (drained.cut)
        ctx.out.error("dumpsys: output cut at " + std::to_string(kMaxDumpBytes) + " bytes");
    if (status == STATUS_OK) return drained.cut ? kExitSoftware : kExitOk;
    if (status == STATUS_DEAD_OBJECT) {
        ctx.out.error("dumpsys: the service died");
        return kExitUnavailable;
    }
    ctx.out.error("dumpsys: the service answered status " + std::to_string(status));
    return kExitSoftware;
}

}  // namespace velactl
