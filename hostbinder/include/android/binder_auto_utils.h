// Owning wrappers around the C objects of the runtime.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <utility>

namespace ndk {

// Holds one strong reference to an AIBinder.
class SpAIBinder {
public:
    SpAIBinder() = default;
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
    SpAIBinder(std::nullptr_t) : SpAIBinder() {}
    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) {
        if (mBinder != nullptr) AIBinder_incStrong(mBinder);
    }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(other.release()) {}
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this == &other) return *this;
        if (other.mBinder != nullptr) AIBinder_incStrong(other.mBinder);
        set(other.mBinder);
        return *this;
    }
    SpAIBinder& operator=(SpAIBinder&& other) noexcept {
        if (this != &other) set(other.release());
        return *this;
    }

    // Takes over `binder` (already holding a reference) and drops the previous one.
    void set(AIBinder* binder) {
        AIBinder* old = mBinder;
        mBinder = binder;
        if (old != nullptr) AIBinder_decStrong(old);
    }
    AIBinder* get() const { return mBinder; }
    AIBinder** getR() { return &mBinder; }
    AIBinder* release() { return std::exchange(mBinder, nullptr); }

    bool operator==(const SpAIBinder& rhs) const { return mBinder == rhs.mBinder; }
    bool operator!=(const SpAIBinder& rhs) const { return mBinder != rhs.mBinder; }
    bool operator==(std::nullptr_t) const { return mBinder == nullptr; }
    bool operator!=(std::nullptr_t) const { return mBinder != nullptr; }
    bool operator<(const SpAIBinder& rhs) const { return mBinder < rhs.mBinder; }

private:
    AIBinder* mBinder = nullptr;
};

namespace impl {
// Owns one object of type T and deletes it with Destroy.
template <typename T, void (*Destroy)(T), T Default>
class ScopedAResource {
public:
    explicit ScopedAResource(T t = Default) : mT(t) {}
    ~ScopedAResource() { set(Default); }
    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;
    ScopedAResource(ScopedAResource&& other) noexcept : mT(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) set(other.release());
        return *this;
    }

    void set(T t) {
        T old = mT;
        mT = t;
        if (old != Default) Destroy(old);
    }
    T get() const { return mT; }
    T* getR() { return &mT; }
    T release() { return std::exchange(mT, Default); }

    bool operator==(std::nullptr_t) const { return mT == Default; }
    bool operator!=(std::nullptr_t) const { return mT != Default; }

private:
    T mT;
};
}  // namespace impl

class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
public:
    explicit ScopedAParcel(AParcel* a = nullptr) : ScopedAResource(a) {}
    ScopedAParcel(ScopedAParcel&&) = default;
    ScopedAParcel& operator=(ScopedAParcel&&) = default;
};

class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
public:
    explicit ScopedAStatus(AStatus* a = nullptr) : ScopedAResource(a) {}
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
    int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const { return AStatus_getStatus(get()); }
    const char* getMessage() const { return AStatus_getMessage(get()); }
    std::string getDescription() const {
        if (get() == nullptr) return "(null status)";
        const char* cStr = AStatus_getDescription(get());
        std::string ret = cStr;
        AStatus_deleteDescription(cStr);
        return ret;
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                             const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
    }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }
};

namespace internal {
// The one place a descriptor is closed: whatever owns one holds a ScopedFileDescriptor.
inline void closeDescriptor(int fd) {
    if (fd >= 0) (void)::close(fd);
}
}  // namespace internal

// Owns one file descriptor and closes it when it goes.
class ScopedFileDescriptor : public impl::ScopedAResource<int, internal::closeDescriptor, -1> {
public:
    explicit ScopedFileDescriptor(int a = -1) : ScopedAResource(a) {}
    ScopedFileDescriptor(ScopedFileDescriptor&&) = default;
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&&) = default;
    // A second descriptor for the same file, owned by the result (-1 when the copy failed).
    ScopedFileDescriptor dup() const {
        return ScopedFileDescriptor(get() < 0 ? -1 : fcntl(get(), F_DUPFD_CLOEXEC, 0));
    }
    bool operator==(const ScopedFileDescriptor& rhs) const { return get() == rhs.get(); }
    bool operator!=(const ScopedFileDescriptor& rhs) const { return get() != rhs.get(); }
    bool operator<(const ScopedFileDescriptor& rhs) const { return get() < rhs.get(); }
};

class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete,
                                   nullptr> {
public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* a = nullptr)
        : ScopedAResource(a) {}
    ScopedAIBinder_DeathRecipient(ScopedAIBinder_DeathRecipient&&) = default;
    ScopedAIBinder_DeathRecipient& operator=(ScopedAIBinder_DeathRecipient&&) = default;
};

class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* a = nullptr) : ScopedAResource(a) {}
    ScopedAIBinder_Weak(ScopedAIBinder_Weak&&) = default;
    ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&&) = default;
    SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

}  // namespace ndk
