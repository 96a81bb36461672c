// How binder objects cross a session: local binders are exported under ids, remote ones
// become proxies, and each side returns the references it was given when it lets go.
#include <cstring>

#include "session.h"

AIBinder* Session::rootProxy() {
    std::lock_guard<std::mutex> lock(mMutex);
    return proxyForLocked(kWireRootObject);
}

AIBinder* Session::proxyForLocked(uint64_t id) {
    auto it = mProxies.find(id);
    if (it != mProxies.end() && it->second->tryIncStrong()) {
        it->second->acquired++;
        return it->second;
    }
    auto* proxy = new RemoteBinder(shared_from_this(), id);
    proxy->acquired = 1;
    if (mDead) proxy->dead = true;
    mProxies[id] = proxy;
    return proxy;
}

AIBinder* Session::exportedLocked(uint64_t id) {
    auto it = mExports.find(id);
    if (it == mExports.end()) return nullptr;
    AIBinder_incStrong(it->second.binder);
    return it->second.binder;
}

void Session::proxyGone(RemoteBinder* proxy) {
    WireHeader release{};
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mProxies.find(proxy->remoteId);
        if (it != mProxies.end() && it->second == proxy) mProxies.erase(it);
        if (mDead || proxy->remoteId == kWireRootObject || proxy->acquired == 0) return;
        release.magic = kWireMagic;
        release.type = kWireRelease;
        release.target = proxy->remoteId;
        release.code = proxy->acquired;
    }
    send(release, Outgoing{});
}

binder_status_t Session::flatten(const AParcel& parcel, Outgoing* out) {
    out->data = &parcel.data;
    if (!parcel.fds.empty()) out->fds = &parcel.fds;
    if (parcel.objects.empty()) return STATUS_OK;
    out->patched = parcel.data;
    out->data = &out->patched;
    std::lock_guard<std::mutex> lock(mMutex);
    if (mDead) return STATUS_DEAD_OBJECT;
    for (const ParcelObject& o : parcel.objects) {
        int32_t kind;
        uint64_t id;
        if (o.binder->isRemote()) {
            auto* remote = static_cast<RemoteBinder*>(o.binder);
            // A proxy can only go back to the process it came from.
            if (remote->session.get() != this) return STATUS_BAD_VALUE;
            kind = kObjectReceiverLocal;
            id = remote->remoteId;
        } else {
            kind = kObjectSenderLocal;
            auto known = mExportIds.find(o.binder);
            if (known != mExportIds.end()) {
                id = known->second;
                mExports[id].count++;
            } else {
                id = mNextExportId++;
                AIBinder_incStrong(o.binder);
                mExports[id] = Export{o.binder, 1};
                mExportIds[o.binder] = id;
                rearmLocked();  // the peer may call it from now on
            }
        }
        memcpy(out->patched.data() + o.offset, &kind, sizeof(kind));
        memcpy(out->patched.data() + o.offset + 8, &id, sizeof(id));
        out->offsets.push_back(o.offset);
    }
    return STATUS_OK;
}

binder_status_t Session::unflatten(AParcel* parcel, const std::vector<uint32_t>& offsets) {
    binder_status_t result = STATUS_OK;
    uint32_t nextFree = 0;
    std::lock_guard<std::mutex> lock(mMutex);
    for (uint32_t offset : offsets) {
        // Objects must be aligned, in order, apart, and inside the data.
        if (offset % 4 != 0 || offset < nextFree || offset > parcel->data.size() ||
            parcel->data.size() - offset < kObjectSize) {
            result = STATUS_BAD_VALUE;
            continue;
        }
        nextFree = offset + kObjectSize;
        int32_t kind;
        uint64_t id;
        memcpy(&kind, parcel->data.data() + offset, sizeof(kind));
        memcpy(&id, parcel->data.data() + offset + 8, sizeof(id));
        AIBinder* binder = nullptr;
        if (kind == kObjectSenderLocal) {
            // Taken even when the parcel is refused, so that the release we send when the
            // parcel goes balances what the sender counted.
            binder = proxyForLocked(id);
        } else if (kind == kObjectReceiverLocal) {
            binder = exportedLocked(id);
        }
        if (binder == nullptr) {
            result = STATUS_BAD_VALUE;
            continue;
        }
        parcel->objects.push_back({offset, binder});
    }
    return result;
}
