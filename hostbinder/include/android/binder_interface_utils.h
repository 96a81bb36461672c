// Shared-reference base and the interface/stub/proxy bases that generated code derives from.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cassert>
#include <memory>
#include <mutex>

namespace ndk {

// Objects handed to binder derive from this and are created with SharedRefBase::make, so that
// one shared_ptr control block owns them whichever way they are reached. operator new stays
// public: generated host code builds proxies with `new BpXxx(...)` and then calls ref().
class SharedRefBase {
public:
    SharedRefBase() = default;
    virtual ~SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    // The owning reference to this object, made on first use.
    template <typename T = SharedRefBase>
    std::shared_ptr<T> ref() {
        std::lock_guard<std::mutex> lock(mRefMutex);
        std::shared_ptr<SharedRefBase> thiz = mThis.lock();
        if (thiz == nullptr) {
            thiz = std::shared_ptr<SharedRefBase>(this);
            mThis = thiz;
        }
        return std::static_pointer_cast<T>(thiz);
    }
    template <typename T = SharedRefBase>
    std::shared_ptr<const T> ref() const {
        return const_cast<SharedRefBase*>(this)->ref<T>();
    }

    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        T* t = new T(std::forward<Args>(args)...);
        return t->template ref<T>();
    }

private:
    std::mutex mRefMutex;
    std::weak_ptr<SharedRefBase> mThis;
};

// Base of every generated interface.
class ICInterface : public SharedRefBase {
public:
    ICInterface() = default;
    ~ICInterface() override = default;

    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    virtual binder_status_t dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
        return STATUS_OK;
    }

    // A class whose binders keep their interface object alive.
    static AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                       AIBinder_Class_onTransact onTransact);
    // The local interface object behind `binder`, or null for a remote or foreign binder.
    static std::shared_ptr<ICInterface> asInterface(AIBinder* binder);

private:
    struct ICInterfaceData {
        std::shared_ptr<ICInterface> interface;
        static void* onCreate(void* args);
        static void onDestroy(void* userData);
        static binder_status_t onDump(AIBinder* binder, int fd, const char** args,
                                      uint32_t numArgs);
    };
};

// Base of generated stubs: makes its binder on demand and keeps only a weak hold on it, while
// the binder keeps the stub alive.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
public:
    BnCInterface() = default;
    ~BnCInterface() override = default;

    SpAIBinder asBinder() final {
        std::lock_guard<std::mutex> lock(mMutex);
        SpAIBinder binder;
        if (mWeakBinder != nullptr) binder = mWeakBinder.promote();
        if (binder == nullptr) {
            binder = createBinder();
            mWeakBinder = ScopedAIBinder_Weak(AIBinder_Weak_new(binder.get()));
        }
        return binder;
    }
    bool isRemote() final { return false; }

protected:
    virtual SpAIBinder createBinder() = 0;

private:
    std::mutex mMutex;
    ScopedAIBinder_Weak mWeakBinder;
};

// Base of generated proxies.
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
public:
    explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}
    ~BpCInterface() override = default;

    SpAIBinder asBinder() final { return mBinder; }
    bool isRemote() final { return AIBinder_isRemote(mBinder.get()); }

private:
    const SpAIBinder mBinder;
};

inline void* ICInterface::ICInterfaceData::onCreate(void* args) {
    auto* interface = static_cast<ICInterface*>(args);
    return new ICInterfaceData{interface->ref<ICInterface>()};
}

inline void ICInterface::ICInterfaceData::onDestroy(void* userData) {
    delete static_cast<ICInterfaceData*>(userData);
}

inline binder_status_t ICInterface::ICInterfaceData::onDump(AIBinder* binder, int fd,
                                                            const char** args, uint32_t numArgs) {
    std::shared_ptr<ICInterface> interface = asInterface(binder);
    return interface == nullptr ? STATUS_OK : interface->dump(fd, args, numArgs);
}

inline AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                                AIBinder_Class_onTransact onTransact) {
    AIBinder_Class* clazz = AIBinder_Class_define(interfaceDescriptor, ICInterfaceData::onCreate,
                                                  ICInterfaceData::onDestroy, onTransact);
    if (clazz != nullptr) AIBinder_Class_setOnDump(clazz, ICInterfaceData::onDump);
    return clazz;
}

inline std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    void* userData = AIBinder_getUserData(binder);
    if (userData == nullptr) return nullptr;
    return static_cast<ICInterfaceData*>(userData)->interface;
}

}  // namespace ndk
