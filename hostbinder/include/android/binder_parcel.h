// AParcel: the host runtime's parcel. Values are laid out as on a device: 4-byte aligned,
// strings as UTF-8 with a length prefix (-1 for null), arrays as a count (-1 for null) followed
// by the elements.
#pragma once

#include <android/binder_status.h>
#include <sys/cdefs.h>

#ifdef __cplusplus
extern "C" {
#endif

struct AIBinder;
typedef struct AIBinder AIBinder;

struct AParcel;
typedef struct AParcel AParcel;

// Receives the length of the string to read plus one for its terminator (-1 for a null string)
// and returns a buffer of that many bytes, or false to refuse. `stringData` is what
// AParcel_readString was given.
typedef bool (*AParcel_stringAllocator)(void* stringData, int32_t length, char** buffer);

HOSTBINDER_API AParcel* AParcel_create(void);
HOSTBINDER_API void AParcel_delete(AParcel* parcel);

HOSTBINDER_API binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);
HOSTBINDER_API int32_t AParcel_getDataPosition(const AParcel* parcel);
HOSTBINDER_API int32_t AParcel_getDataSize(const AParcel* parcel);
// Copies `size` bytes of `from` starting at `start` to the end of `to` (binder objects too).
HOSTBINDER_API binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start,
                                                  int32_t size);
HOSTBINDER_API binder_status_t AParcel_reset(AParcel* parcel);

HOSTBINDER_API binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder);
// On success *binder holds a strong reference (null for a null binder).
HOSTBINDER_API binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder);

// Writes an AStatus header. A transaction error (EX_TRANSACTION_FAILED) is not written: its
// binder status is returned instead, so that the whole transaction fails with it.
HOSTBINDER_API binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);
HOSTBINDER_API binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);

// `string` may be null only when `length` is -1.
HOSTBINDER_API binder_status_t AParcel_writeString(AParcel* parcel, const char* string,
                                                   int32_t length);
HOSTBINDER_API binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                                  AParcel_stringAllocator allocator);

HOSTBINDER_API binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
HOSTBINDER_API binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value);
HOSTBINDER_API binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value);
HOSTBINDER_API binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value);
HOSTBINDER_API binder_status_t AParcel_writeFloat(AParcel* parcel, float value);
HOSTBINDER_API binder_status_t AParcel_writeDouble(AParcel* parcel, double value);
HOSTBINDER_API binder_status_t AParcel_writeBool(AParcel* parcel, bool value);
HOSTBINDER_API binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value);
HOSTBINDER_API binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value);

HOSTBINDER_API binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
HOSTBINDER_API binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value);
HOSTBINDER_API binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value);
HOSTBINDER_API binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value);
HOSTBINDER_API binder_status_t AParcel_readFloat(const AParcel* parcel, float* value);
HOSTBINDER_API binder_status_t AParcel_readDouble(const AParcel* parcel, double* value);
HOSTBINDER_API binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);
HOSTBINDER_API binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value);
HOSTBINDER_API binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value);

#ifdef __cplusplus
}  // extern "C"
#endif
