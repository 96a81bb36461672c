#include "budget.h"

#include <unistd.h>

namespace {
size_t roundUp8(size_t n) {
    return (n + 7) & ~size_t{7};
}
}  // namespace

ReceiveBudget& ReceiveBudget::get() {
    // Never destroyed: a parcel may be freed while the process exits.
    static ReceiveBudget* budget = new ReceiveBudget;
    return *budget;
}

size_t ReceiveBudget::capacity() {
    static const size_t bytes = (1u << 20) - 2 * static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return bytes;
}

size_t ReceiveBudget::sizeOf(size_t dataSize, size_t objectCount) {
    // The driver takes at least a pointer's worth, even for an empty message.
    const size_t size = roundUp8(dataSize) + objectCount * 8;
    return size < 8 ? 8 : size;
}

bool ReceiveBudget::couldFit(size_t bytes, bool oneway) {
    return bytes <= (oneway ? capacity() / 2 : capacity());
}

bool ReceiveBudget::take(size_t bytes, bool oneway) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mUsed + bytes > capacity()) return false;
    if (oneway && mOnewayUsed + bytes > capacity() / 2) return false;
    mUsed += bytes;
    if (oneway) mOnewayUsed += bytes;
    return true;
}

void ReceiveBudget::give(size_t bytes, bool oneway) {
    std::lock_guard<std::mutex> lock(mMutex);
    mUsed -= bytes;
    if (oneway) mOnewayUsed -= bytes;
}
