#include "ServiceDumpReader.h"

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>

#include "vela_protocol.h"

namespace velactl {

namespace {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

// Everything read from `fd` until every writer has closed it.
void drain(int fd, ServiceDump* out) {
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

std::optional<ServiceDump> readServiceDump(const std::vector<std::string>& args,
                                           std::string* error) {
    ServiceDump dump;
    ::ndk::SpAIBinder binder(AServiceManager_checkService(protocol::instanceName().c_str()));
    if (binder.get() == nullptr) return dump;
    dump.found = true;

    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        *error = std::string("cannot make a pipe: ") + strerror(errno);
        return std::nullopt;
    }
    // Read while the service writes: a pipe holds only so much, and the service gives up on a
    // reader that stalls it. An embedded service writes from this very thread.
    std::thread reader(drain, fds[0], &dump);
    dump.status =
            AIBinder_dump(binder.get(), fds[1], argv.data(), static_cast<uint32_t>(argv.size()));
    close(fds[1]);  // the service's copy closed when it answered: the reader now sees the end
    reader.join();
    close(fds[0]);
    return dump;
}

std::optional<Json::Value> readServiceTable(const std::string& table) {
    std::string error;
    const auto dump = readServiceDump({"--json", table}, &error);
    if (!dump || !dump->found || dump->status != STATUS_OK || dump->cut) return std::nullopt;
    Json::Value doc;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const char* begin = dump->text.data();
    if (!reader->parse(begin, begin + dump->text.size(), &doc, nullptr) || !doc.isObject() ||
        !doc.isMember(table)) {
        return std::nullopt;
    }
    return doc[table];
}

}  // namespace velactl
