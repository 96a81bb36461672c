// AParcel: 4-byte aligned values in a growable buffer, with binder objects kept beside it.
#include "parcel.h"

#include <android/binder_ibinder.h>
#include <android/binder_parcel_utils.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <optional>
#include <string>

#include "status.h"
#include "utf16.h"

void AParcel::closeFds() {
    fds.clear();
}

void AParcel::clearObjects() {
    for (ParcelObject& o : objects) AIBinder_decStrong(o.binder);
    objects.clear();
}

void AParcel::forgetObjectsIn(uint32_t begin, uint32_t end) {
    auto overlaps = [&](const ParcelObject& o) {
        return o.offset < end && begin < o.offset + kObjectSize;
    };
    for (ParcelObject& o : objects) {
        if (overlaps(o)) AIBinder_decStrong(o.binder);
    }
    objects.erase(std::remove_if(objects.begin(), objects.end(), overlaps), objects.end());
}

namespace {
uint32_t padded(uint32_t size) {
    return (size + 3u) & ~3u;
}

uint64_t padded64(uint64_t size) {
    return (size + 3u) & ~uint64_t{3};
}

// Writes `size` zero bytes (padded to 4) at the position and advances.
binder_status_t writeZeros(AParcel* p, uint32_t size) {
    const uint32_t total = padded(size);
    if (total < size || p->position > kMaxParcelSize - total) return STATUS_NO_MEMORY;
    const uint32_t end = p->position + total;
    if (!p->objects.empty()) p->forgetObjectsIn(p->position, end);
    try {
        if (p->data.size() < end) p->data.resize(end);
    } catch (const std::bad_alloc&) {
        return STATUS_NO_MEMORY;
    }
    memset(p->data.data() + p->position, 0, total);
    p->position = end;
    return STATUS_OK;
}

// Writes `size` bytes at the position, zero-padding to 4 bytes, and advances.
binder_status_t writeRaw(AParcel* p, const void* bytes, uint32_t size) {
    if (p == nullptr) return STATUS_UNEXPECTED_NULL;
    const uint32_t at = p->position;
    binder_status_t status = writeZeros(p, size);
    if (status == STATUS_OK && size > 0) memcpy(p->data.data() + at, bytes, size);
    return status;
}

// Reads `size` bytes (plus padding) at the position and advances. On failure `bytes` is left
// as it was: a reply cut short must not hand its caller a value it never sent.
binder_status_t readRaw(const AParcel* p, void* bytes, uint32_t size) {
    if (p == nullptr) return STATUS_UNEXPECTED_NULL;
    const uint32_t total = padded(size);
    if (p->position > p->data.size() || p->data.size() - p->position < total) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    memcpy(bytes, p->data.data() + p->position, size);
    p->position += total;
    return STATUS_OK;
}

template <typename T>
binder_status_t writeValue(AParcel* p, T value) {
    return writeRaw(p, &value, sizeof(value));
}
template <typename T>
binder_status_t readValue(const AParcel* p, T* value) {
    if (value == nullptr) return STATUS_UNEXPECTED_NULL;
    return readRaw(p, value, sizeof(T));
}
}  // namespace

extern "C" {

AParcel* AParcel_create() {
    return new (std::nothrow) AParcel;
}

void AParcel_delete(AParcel* parcel) {
    delete parcel;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (position < 0 || static_cast<uint32_t>(position) > parcel->data.size()) {
        return STATUS_BAD_VALUE;
    }
    parcel->position = static_cast<uint32_t>(position);
    return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return parcel == nullptr ? 0 : static_cast<int32_t>(parcel->position);
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return parcel == nullptr ? 0 : static_cast<int32_t>(parcel->data.size());
}

binder_status_t AParcel_reset(AParcel* parcel) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    parcel->clearObjects();
    parcel->closeFds();
    parcel->data.clear();
    parcel->position = 0;
    return STATUS_OK;
}

binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size) {
    if (from == nullptr || to == nullptr) return STATUS_UNEXPECTED_NULL;
    if (from == to) return STATUS_BAD_VALUE;
    if (start < 0 || size < 0 || static_cast<uint64_t>(start) + size > from->data.size()) {
        return STATUS_BAD_VALUE;
    }
    const auto begin = static_cast<uint32_t>(start);
    const auto end = begin + static_cast<uint32_t>(size);
    for (const ParcelObject& o : from->objects) {
        // An object cut in half by the range would become unreadable garbage.
        if (o.offset < end && begin < o.offset + kObjectSize &&
            (o.offset < begin || o.offset + kObjectSize > end)) {
            return STATUS_BAD_VALUE;
        }
    }
    const uint32_t base = static_cast<uint32_t>(to->data.size());
    if (base > kMaxParcelSize - static_cast<uint32_t>(size)) return STATUS_NO_MEMORY;
    to->data.insert(to->data.end(), from->data.begin() + begin, from->data.begin() + end);
    for (const ParcelObject& o : from->objects) {
        if (o.offset >= begin && o.offset + kObjectSize <= end) {
            AIBinder_incStrong(o.binder);
            to->objects.push_back({base + (o.offset - begin), o.binder});
        }
    }
    to->position = static_cast<uint32_t>(to->data.size());
    return STATUS_OK;
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    uint8_t entry[kObjectSize] = {};
    const int32_t kind = binder == nullptr ? kObjectNull : kObjectInProcess;
    memcpy(entry, &kind, sizeof(kind));
    const uint32_t offset = parcel->position;
    binder_status_t status = writeRaw(parcel, entry, kObjectSize);
    if (status != STATUS_OK || binder == nullptr) return status;
    AIBinder_incStrong(binder);
    ParcelObject object{offset, binder};
    auto at = std::upper_bound(parcel->objects.begin(), parcel->objects.end(), offset,
                               [](uint32_t off, const ParcelObject& o) { return off < o.offset; });
    parcel->objects.insert(at, object);
    return STATUS_OK;
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    if (parcel == nullptr || binder == nullptr) return STATUS_UNEXPECTED_NULL;
    const uint32_t offset = parcel->position;
    uint8_t entry[kObjectSize];
    binder_status_t status = readRaw(parcel, entry, kObjectSize);
    if (status != STATUS_OK) return status;
    int32_t kind = 0;
    memcpy(&kind, entry, sizeof(kind));
    if (kind == kObjectNull) {
        *binder = nullptr;
        return STATUS_OK;
    }
    for (const ParcelObject& o : parcel->objects) {
        if (o.offset == offset) {
            AIBinder_incStrong(o.binder);
            *binder = o.binder;
            return STATUS_OK;
        }
    }
    // Bytes that claim to be an object where none was written or received.
    parcel->position = offset;
    return STATUS_BAD_VALUE;
}

// Strings travel as the device sends them (libbinder_ndk parcel.cpp, Parcel's String16): the
// UTF-16 unit count, then the units and a zero unit, padded to four bytes. So ASCII takes twice
// its length, and every length the caller sees is what the device would count.
binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (string == nullptr) {
        if (length != -1) return STATUS_BAD_VALUE;
        return writeValue<int32_t>(parcel, -1);
    }
    if (length < 0) return STATUS_BAD_VALUE;
    const auto* text = reinterpret_cast<const uint8_t*>(string);
    const int64_t units = utf16UnitsOfUtf8(text, static_cast<size_t>(length));
    if (units < 0 || units >= INT32_MAX) return STATUS_BAD_VALUE;
    const uint64_t bytes = (static_cast<uint64_t>(units) + 1) * sizeof(char16_t);
    if (bytes > kMaxParcelSize) return STATUS_NO_MEMORY;
    const uint32_t start = parcel->position;
    binder_status_t status = writeValue<int32_t>(parcel, static_cast<int32_t>(units));
    if (status != STATUS_OK) return status;
    const uint32_t at = parcel->position;
    // Zeros first: they are the terminator and the padding; the units go over them in place.
    status = writeZeros(parcel, static_cast<uint32_t>(bytes));
    if (status != STATUS_OK) {
        parcel->position = start;
        return status;
    }
    utf8ToUtf16(text, static_cast<size_t>(length), parcel->data.data() + at,
                static_cast<size_t>(units));
    return STATUS_OK;
}

// As the device reads it (Parcel::readString16Inplace): a length that is negative or whose
// text, with its zero unit, is not all there gives a null string, as does a parcel that has
// ended. The allocator decides whether null is acceptable, and is handed no buffer for it.
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
    if (parcel == nullptr || allocator == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t units = -1;
    const uint8_t* wide = nullptr;
    if (readValue(parcel, &units) == STATUS_OK && units >= 0 && units < INT32_MAX) {
        const uint64_t bytes = padded64((static_cast<uint64_t>(units) + 1) * sizeof(char16_t));
        const uint8_t* at = parcel->data.data() + parcel->position;
        const size_t end = static_cast<size_t>(units) * sizeof(char16_t);
        if (parcel->data.size() - parcel->position >= bytes && at[end] == 0 && at[end + 1] == 0) {
            wide = at;
            parcel->position += static_cast<uint32_t>(bytes);
        }
    }
    if (wide == nullptr) {
        return allocator(stringData, -1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    }
    const size_t bytes = utf8BytesOfUtf16(wide, static_cast<size_t>(units));
    if (bytes >= INT32_MAX) return STATUS_BAD_VALUE;
    char* buffer = nullptr;
    if (!allocator(stringData, static_cast<int32_t>(bytes + 1), &buffer) || buffer == nullptr) {
        return STATUS_NO_MEMORY;
    }
    // The device leaves an empty string's buffer as the allocator gave it.
    if (units > 0) utf16ToUtf8(wide, static_cast<size_t>(units), buffer);
    return STATUS_OK;
}

binder_status_t AParcel_writeInt32(AParcel* p, int32_t v) {
    return writeValue(p, v);
}
binder_status_t AParcel_writeUint32(AParcel* p, uint32_t v) {
    return writeValue(p, v);
}
binder_status_t AParcel_writeInt64(AParcel* p, int64_t v) {
    return writeValue(p, v);
}
binder_status_t AParcel_writeUint64(AParcel* p, uint64_t v) {
    return writeValue(p, v);
}
binder_status_t AParcel_writeFloat(AParcel* p, float v) {
    return writeValue(p, v);
}
binder_status_t AParcel_writeDouble(AParcel* p, double v) {
    return writeValue(p, v);
}
binder_status_t AParcel_writeBool(AParcel* p, bool v) {
    return writeValue<int32_t>(p, v ? 1 : 0);
}
binder_status_t AParcel_writeChar(AParcel* p, char16_t v) {
    return writeValue<int32_t>(p, v);
}
binder_status_t AParcel_writeByte(AParcel* p, int8_t v) {
    return writeValue<int32_t>(p, v);
}

binder_status_t AParcel_readInt32(const AParcel* p, int32_t* v) {
    return readValue(p, v);
}
binder_status_t AParcel_readUint32(const AParcel* p, uint32_t* v) {
    return readValue(p, v);
}
binder_status_t AParcel_readInt64(const AParcel* p, int64_t* v) {
    return readValue(p, v);
}
binder_status_t AParcel_readUint64(const AParcel* p, uint64_t* v) {
    return readValue(p, v);
}
binder_status_t AParcel_readFloat(const AParcel* p, float* v) {
    return readValue(p, v);
}
binder_status_t AParcel_readDouble(const AParcel* p, double* v) {
    return readValue(p, v);
}

binder_status_t AParcel_readBool(const AParcel* p, bool* v) {
    if (v == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t raw = 0;
    binder_status_t status = readValue(p, &raw);
    if (status == STATUS_OK) *v = raw != 0;
    return status;
}
binder_status_t AParcel_readChar(const AParcel* p, char16_t* v) {
    if (v == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t raw = 0;
    binder_status_t status = readValue(p, &raw);
    if (status == STATUS_OK) *v = static_cast<char16_t>(raw);
    return status;
}
binder_status_t AParcel_readByte(const AParcel* p, int8_t* v) {
    if (v == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t raw = 0;
    binder_status_t status = readValue(p, &raw);
    if (status == STATUS_OK) *v = static_cast<int8_t>(raw);
    return status;
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    if (status == nullptr) return STATUS_UNEXPECTED_NULL;
    const binder_exception_t exception = AStatus_getExceptionCode(status);
    if (exception == EX_TRANSACTION_FAILED) {
        const binder_status_t err = AStatus_getStatus(status);
        return err == STATUS_OK ? STATUS_FAILED_TRANSACTION : err;
    }
    binder_status_t rc = AParcel_writeInt32(parcel, exception);
    if (rc != STATUS_OK || exception == EX_NONE) return rc;
    // The device keeps the message as UTF-8 and converts it when it writes: a message that
    // does not convert travels as an empty one rather than failing the reply.
    const char* message = AStatus_getMessage(status);
    rc = AParcel_writeString(parcel, message, static_cast<int32_t>(strlen(message)));
    if (rc == STATUS_BAD_VALUE) rc = AParcel_writeString(parcel, "", 0);
    if (rc != STATUS_OK) return rc;
    if (exception == EX_SERVICE_SPECIFIC) {
        rc = AParcel_writeInt32(parcel, AStatus_getServiceSpecificError(status));
    }
    return rc;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    if (status == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t exception = 0;
    binder_status_t rc = AParcel_readInt32(parcel, &exception);
    if (rc != STATUS_OK) return rc;
    if (exception == EX_NONE) {
        *status = AStatus_newOk();
        return STATUS_OK;
    }
    if (exception == EX_TRANSACTION_FAILED || exception == EX_HAS_REPLY_HEADER) {
        return STATUS_BAD_VALUE;  // never written on the wire
    }
    // The device reads the message as a non-null string: a null one fails the whole header.
    std::string message;
    rc = ndk::AParcel_readString(parcel, &message);
    if (rc != STATUS_OK) return rc;
    const char* text = message.c_str();
    if (exception == EX_SERVICE_SPECIFIC) {
        int32_t code = 0;
        rc = AParcel_readInt32(parcel, &code);
        if (rc != STATUS_OK) return rc;
        *status = AStatus_fromServiceSpecificErrorWithMessage(code, text);
    } else {
        *status = statusFromWire(exception, 0, text);
    }
    return STATUS_OK;
}

}  // extern "C"
