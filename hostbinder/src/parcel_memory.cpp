// Where parcels' memory and data buffers come from. Every call makes a request parcel and reads
// a reply parcel on the calling thread, and frees both there; each thread keeps a few freed
// parcels' memory and buffers, so that a call in a steady state allocates neither.
#include <new>
#include <utility>
#include <vector>

#include "parcel.h"

namespace {

// A thread's freed parcels: their memory, and their data buffers with the capacity they grew
// to. Bounded, so that a burst of parcels freed on one thread is given back to the heap, and
// buffers that grew past kParcelReserve * 64 are not kept at all. The lists are the thread's
// own, so nothing here locks; a parcel made on one thread and freed on another simply moves.
// Trivially destructible, so still readable while the thread's other objects are destroyed.
thread_local bool tRecyclerGone = false;

class ParcelRecycler {
public:
    static constexpr size_t kKept = 4;

    ~ParcelRecycler() {
        tRecyclerGone = true;
        for (size_t i = 0; i < mMemoryCount; ++i) ::operator delete(mMemory[i]);
    }
    void* takeMemory() { return mMemoryCount > 0 ? mMemory[--mMemoryCount] : nullptr; }
    bool keepMemory(void* memory) {
        if (mMemoryCount == kKept) return false;
        mMemory[mMemoryCount++] = memory;
        return true;
    }
    // The roomiest kept buffer, so that a request parcel finds the room it reserves.
    std::vector<uint8_t> takeBuffer() {
        if (mBufferCount == 0) return {};
        size_t best = 0;
        for (size_t i = 1; i < mBufferCount; ++i) {
            if (mBuffers[i].capacity() > mBuffers[best].capacity()) best = i;
        }
        std::vector<uint8_t> buffer = std::move(mBuffers[best]);
        mBuffers[best] = std::move(mBuffers[--mBufferCount]);
        return buffer;
    }
    // When full, a buffer takes the place of the smallest kept one if it is roomier.
    void keepBuffer(std::vector<uint8_t>&& buffer) {
        if (buffer.capacity() == 0 || buffer.capacity() > kParcelReserve * 64) return;
        buffer.clear();
        if (mBufferCount < kKept) {
            mBuffers[mBufferCount++] = std::move(buffer);
            return;
        }
        size_t smallest = 0;
        for (size_t i = 1; i < kKept; ++i) {
            if (mBuffers[i].capacity() < mBuffers[smallest].capacity()) smallest = i;
        }
        if (buffer.capacity() > mBuffers[smallest].capacity()) {
            mBuffers[smallest] = std::move(buffer);
        }
    }

private:
    void* mMemory[kKept] = {};
    size_t mMemoryCount = 0;
    std::vector<uint8_t> mBuffers[kKept];
    size_t mBufferCount = 0;
};

// Null once the thread's recycler is gone (a parcel freed by a destructor at thread or process
// exit), and under AddressSanitizer, which must see every parcel's memory freed to catch a use
// after free.
ParcelRecycler* recycler() {
#if defined(__SANITIZE_ADDRESS__)
    return nullptr;
#else
    if (tRecyclerGone) return nullptr;
    thread_local ParcelRecycler r;
    return &r;
#endif
}

}  // namespace

AParcel::AParcel() {
    if (ParcelRecycler* r = recycler()) data = r->takeBuffer();
}

AParcel::AParcel(std::vector<uint8_t>&& received) : data(std::move(received)) {}

AParcel::~AParcel() {
    clearObjects();
    closeFds();
    if (ParcelRecycler* r = recycler()) r->keepBuffer(std::move(data));
}

void* AParcel::operator new(size_t size) {
    ParcelRecycler* r = size == sizeof(AParcel) ? recycler() : nullptr;
    if (void* memory = r != nullptr ? r->takeMemory() : nullptr) return memory;
    return ::operator new(size);
}

void* AParcel::operator new(size_t size, const std::nothrow_t&) noexcept {
    ParcelRecycler* r = size == sizeof(AParcel) ? recycler() : nullptr;
    if (void* memory = r != nullptr ? r->takeMemory() : nullptr) return memory;
    return ::operator new(size, std::nothrow);
}

void AParcel::operator delete(void* memory) noexcept {
    if (memory == nullptr) return;
    ParcelRecycler* r = recycler();
    if (r == nullptr || !r->keepMemory(memory)) ::operator delete(memory);
}
