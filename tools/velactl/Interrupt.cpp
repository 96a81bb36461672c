#include "Interrupt.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

#include "ExitCodes.h"

namespace velactl {

namespace {

std::atomic<int> gScopes{0};
std::atomic<bool> gInterrupted{false};

void onInterrupt(int) {
    if (gScopes.load() > 0) {
        gInterrupted = true;
        return;
    }
    leaveInterrupted();
}

}  // namespace

void installInterruptHandler() {
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

InterruptScope::InterruptScope() {
    if (gScopes++ == 0) gInterrupted = false;
}

InterruptScope::~InterruptScope() {
    --gScopes;
}

bool interrupted() {
    return gInterrupted;
}

void leaveInterrupted() {
    static const char kMessage[] = "\nvelactl: interrupted\n";
    ssize_t ignored = write(STDERR_FILENO, kMessage, sizeof(kMessage) - 1);
    (void)ignored;
    _exit(vela_exit::kInterrupted);
}

}  // namespace velactl
