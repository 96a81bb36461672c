#include "dispatcher.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace {
thread_local bool tOnBinderThread = false;
constexpr uint64_t kTaskId = 0;
constexpr int kSweepMillis = 500;
}  // namespace

Dispatcher& Dispatcher::get() {
    // Never destroyed: binder threads may still be running while the process exits.
    static Dispatcher* dispatcher = new Dispatcher;
    return *dispatcher;
}

Dispatcher::Dispatcher()
    : mEpoll(epoll_create1(EPOLL_CLOEXEC)),
      mTaskFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      // Nothing can have stalled yet; a sweep on the first wake-up would only delay the first
      // call a process answers.
      mNextSweep(monotonicMillis() + kSweepMillis) {
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.u64 = kTaskId;
    epoll_ctl(mEpoll, EPOLL_CTL_ADD, mTaskFd, &ev);
    // Registered after the statics of the libraries loaded before us, so it runs before their
    // destructors.
    atexit(&Dispatcher::onExit);
}

void Dispatcher::onExit() {
    Dispatcher& d = get();
    d.mExiting.store(true);
    // What is running already may finish; bounded, as a blocked handler must not hold exit.
    for (int i = 0; i < 1000 && d.mDelivering.load() > 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

template <typename Fn>
void Dispatcher::deliver(Fn&& fn) {
    mDelivering.fetch_add(1);
    if (!mExiting.load()) fn();
    mDelivering.fetch_sub(1);
}

bool Dispatcher::onBinderThread() {
    return tOnBinderThread;
}

void Dispatcher::add(int fd, uint64_t id, uint32_t events, std::shared_ptr<Watched> handler) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mWatched[id] = std::move(handler);
    }
    epoll_event ev{};
    ev.events = events | EPOLLONESHOT;
    ev.data.u64 = id;
    epoll_ctl(mEpoll, EPOLL_CTL_ADD, fd, &ev);
}

void Dispatcher::rearm(int fd, uint64_t id, uint32_t events) {
    epoll_event ev{};
    ev.events = events | EPOLLONESHOT;
    ev.data.u64 = id;
    epoll_ctl(mEpoll, EPOLL_CTL_MOD, fd, &ev);
}

void Dispatcher::remove(int fd, uint64_t id) {
    epoll_ctl(mEpoll, EPOLL_CTL_DEL, fd, nullptr);
    std::shared_ptr<Watched> last;  // released after the lock
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mWatched.find(id);
    if (it != mWatched.end()) {
        last = std::move(it->second);
        mWatched.erase(it);
    }
}

void Dispatcher::post(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mTasks.push_back(std::move(task));
        if (mTasks.size() == 1) {
            const uint64_t one = 1;
            (void)!write(mTaskFd, &one, sizeof(one));
        }
    }
    if (mBusy.load() >= mThreads.load()) spawnIfAllowed();
}

void Dispatcher::enterBusy() {
    if (mBusy.fetch_add(1) + 1 >= mThreads.load()) spawnIfAllowed();
}

void Dispatcher::spawnIfAllowed() {
    // Before startThreadPool the driver asks for no threads (ProcessState::spawnPooledThread
    // does nothing until then), whatever joined.
    if (!mStarted.load()) return;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mSpawned >= mMaxThreads) return;
        ++mSpawned;
    }
    spawn();
}

void Dispatcher::spawn() {
    mThreads.fetch_add(1);
    std::thread([this] { work(); }).detach();
}

void Dispatcher::start() {
    if (mStarted.exchange(true)) return;
    spawn();
}

void Dispatcher::join() {
    mThreads.fetch_add(1);
    work();
    abort();  // work() never returns
}

bool Dispatcher::setMaxThreads(uint32_t max) {
    std::lock_guard<std::mutex> lock(mMutex);
    // A device aborts here (ProcessState::setThreadPoolMaxThreadCount); the host refuses
    // without a word, so that programs that do it still run (see README's differences).
    if (mStarted.load() && max < mMaxThreads) return false;
    mMaxThreads = max;
    return true;
}

void Dispatcher::runOneTask() {
    std::function<void()> task;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!mTasks.empty()) {
            task = std::move(mTasks.front());
            mTasks.pop_front();
        }
        if (mTasks.empty()) {
            uint64_t count;
            (void)!read(mTaskFd, &count, sizeof(count));
        }
    }
    // Still readable when more tasks wait: the next one goes to another thread.
    rearm(mTaskFd, kTaskId, EPOLLIN);
    if (task) {
        enterBusy();
        deliver(task);
        leaveBusy();
    }
}

void Dispatcher::maybeSweep() {
    const int64_t now = monotonicMillis();
    int64_t due = mNextSweep.load();
    if (now < due || !mNextSweep.compare_exchange_strong(due, now + kSweepMillis)) return;
    sweepConnections(now);
}

void Dispatcher::work() {
    tOnBinderThread = true;
    // A thread's first allocation makes its allocator arena (glibc maps and faults in a new
    // heap). Made now, while the thread waits for nothing, the first call it takes does not
    // pay for it. Through a volatile, or the compiler drops the pair.
    void* volatile first = malloc(1);
    free(first);
    for (;;) {
        epoll_event ev{};
        const int n = epoll_wait(mEpoll, &ev, 1, kSweepMillis);
        maybeSweep();
        if (n != 1) continue;
        if (ev.data.u64 == kTaskId) {
            runOneTask();
            continue;
        }
        std::shared_ptr<Watched> handler;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            auto it = mWatched.find(ev.data.u64);
            if (it != mWatched.end()) handler = it->second;
        }
        if (handler) deliver([&] { handler->onEvent(ev.events); });
    }
}
