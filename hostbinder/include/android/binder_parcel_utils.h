// Typed reading and writing of strings, vectors, parcelables and binders.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace ndk {

namespace parcel_detail {
// Allocators are given the string's length plus one for its terminator, or -1 and no buffer
// for a null string.
inline bool resizeString(void* stringData, int32_t length, char** buffer) {
    if (length <= 0) return false;
    auto* str = static_cast<std::string*>(stringData);
    str->resize(static_cast<size_t>(length - 1));
    *buffer = str->data();
    return true;
}
inline bool resizeNullableString(void* stringData, int32_t length, char** buffer) {
    auto* str = static_cast<std::optional<std::string>*>(stringData);
    if (length < 0) {
        str->reset();
        return true;
    }
    if (length == 0) return false;
    str->emplace(static_cast<size_t>(length - 1), '\0');
    *buffer = (*str)->data();
    return true;
}
}  // namespace parcel_detail

inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& str) {
    return ::AParcel_writeString(parcel, str.c_str(), static_cast<int32_t>(str.size()));
}
inline binder_status_t AParcel_writeString(AParcel* parcel, const std::optional<std::string>& str) {
    if (!str) return ::AParcel_writeString(parcel, nullptr, -1);
    return AParcel_writeString(parcel, *str);
}
// A null string where a non-null one is required fails with STATUS_UNEXPECTED_NULL.
inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* str) {
    return ::AParcel_readString(parcel, str, parcel_detail::resizeString);
}
inline binder_status_t AParcel_readString(const AParcel* parcel, std::optional<std::string>* str) {
    return ::AParcel_readString(parcel, str, parcel_detail::resizeNullableString);
}

inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel, const SpAIBinder& b) {
    if (b.get() == nullptr) return STATUS_UNEXPECTED_NULL;
    return ::AParcel_writeStrongBinder(parcel, b.get());
}
inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel, SpAIBinder* b) {
    AIBinder* raw = nullptr;
    binder_status_t status = ::AParcel_readStrongBinder(parcel, &raw);
    if (status != STATUS_OK) return status;
    if (raw == nullptr) return STATUS_UNEXPECTED_NULL;
    b->set(raw);
    return STATUS_OK;
}
inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel, const SpAIBinder& b) {
    return ::AParcel_writeStrongBinder(parcel, b.get());
}
inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel, SpAIBinder* b) {
    AIBinder* raw = nullptr;
    binder_status_t status = ::AParcel_readStrongBinder(parcel, &raw);
    if (status == STATUS_OK) b->set(raw);
    return status;
}

// Generated parcelables write their own non-null marker; a null one is a single 0.
template <typename P>
binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& p) {
    return p.writeToParcel(parcel);
}
template <typename P>
binder_status_t AParcel_readParcelable(const AParcel* parcel, P* p) {
    return p->readFromParcel(parcel);
}
template <typename P>
binder_status_t AParcel_writeNullableParcelable(AParcel* parcel, const std::optional<P>& p) {
    if (!p) return ::AParcel_writeInt32(parcel, 0);
    return p->writeToParcel(parcel);
}
template <typename P>
binder_status_t AParcel_readNullableParcelable(const AParcel* parcel, std::optional<P>* p) {
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t present = 0;
    binder_status_t status = ::AParcel_readInt32(parcel, &present);
    if (status != STATUS_OK) return status;
    if (present == 0) {
        p->reset();
        return STATUS_OK;
    }
    ::AParcel_setDataPosition(parcel, start);
    P value{};
    status = value.readFromParcel(parcel);
    if (status == STATUS_OK) *p = std::move(value);
    return status;
}

namespace parcel_detail {
// One overload per element type that vectors may hold.
inline binder_status_t writeElement(AParcel* p, int32_t v) {
    return ::AParcel_writeInt32(p, v);
}
inline binder_status_t writeElement(AParcel* p, uint32_t v) {
    return ::AParcel_writeUint32(p, v);
}
inline binder_status_t writeElement(AParcel* p, int64_t v) {
    return ::AParcel_writeInt64(p, v);
}
inline binder_status_t writeElement(AParcel* p, uint64_t v) {
    return ::AParcel_writeUint64(p, v);
}
inline binder_status_t writeElement(AParcel* p, float v) {
    return ::AParcel_writeFloat(p, v);
}
inline binder_status_t writeElement(AParcel* p, double v) {
    return ::AParcel_writeDouble(p, v);
}
inline binder_status_t writeElement(AParcel* p, bool v) {
    return ::AParcel_writeBool(p, v);
}
inline binder_status_t writeElement(AParcel* p, char16_t v) {
    return ::AParcel_writeChar(p, v);
}
inline binder_status_t writeElement(AParcel* p, int8_t v) {
    return ::AParcel_writeByte(p, v);
}
inline binder_status_t writeElement(AParcel* p, const std::string& v) {
    return ndk::AParcel_writeString(p, v);
}
inline binder_status_t writeElement(AParcel* p, const std::optional<std::string>& v) {
    return ndk::AParcel_writeString(p, v);
}
inline binder_status_t writeElement(AParcel* p, const SpAIBinder& v) {
    return ::AParcel_writeStrongBinder(p, v.get());
}
template <typename P, typename = decltype(std::declval<const P&>().writeToParcel(nullptr))>
binder_status_t writeElement(AParcel* p, const P& v) {
    return v.writeToParcel(p);
}
template <typename P>
binder_status_t writeElement(AParcel* p, const std::optional<P>& v) {
    return ndk::AParcel_writeNullableParcelable(p, v);
}
template <typename I>
binder_status_t writeElement(AParcel* p, const std::shared_ptr<I>& v) {
    return I::writeToParcel(p, v);
}

inline binder_status_t readElement(const AParcel* p, int32_t* v) {
    return ::AParcel_readInt32(p, v);
}
inline binder_status_t readElement(const AParcel* p, uint32_t* v) {
    return ::AParcel_readUint32(p, v);
}
inline binder_status_t readElement(const AParcel* p, int64_t* v) {
    return ::AParcel_readInt64(p, v);
}
inline binder_status_t readElement(const AParcel* p, uint64_t* v) {
    return ::AParcel_readUint64(p, v);
}
inline binder_status_t readElement(const AParcel* p, float* v) {
    return ::AParcel_readFloat(p, v);
}
inline binder_status_t readElement(const AParcel* p, double* v) {
    return ::AParcel_readDouble(p, v);
}
inline binder_status_t readElement(const AParcel* p, bool* v) {
    return ::AParcel_readBool(p, v);
}
inline binder_status_t readElement(const AParcel* p, char16_t* v) {
    return ::AParcel_readChar(p, v);
}
inline binder_status_t readElement(const AParcel* p, int8_t* v) {
    return ::AParcel_readByte(p, v);
}
inline binder_status_t readElement(const AParcel* p, std::string* v) {
    return ndk::AParcel_readString(p, v);
}
inline binder_status_t readElement(const AParcel* p, std::optional<std::string>* v) {
    return ndk::AParcel_readString(p, v);
}
inline binder_status_t readElement(const AParcel* p, SpAIBinder* v) {
    return ndk::AParcel_readNullableStrongBinder(p, v);
}
template <typename P, typename = decltype(std::declval<P&>().readFromParcel(nullptr))>
binder_status_t readElement(const AParcel* p, P* v) {
    return v->readFromParcel(p);
}
template <typename P>
binder_status_t readElement(const AParcel* p, std::optional<P>* v) {
    return ndk::AParcel_readNullableParcelable(p, v);
}
template <typename I>
binder_status_t readElement(const AParcel* p, std::shared_ptr<I>* v) {
    return I::readFromParcel(p, v);
}

// Every element takes at least four bytes on the wire, so a count larger than a quarter of
// what is left cannot be honest; refusing it early keeps a hostile count from allocating.
inline binder_status_t readCount(const AParcel* p, int32_t* count) {
    binder_status_t status = ::AParcel_readInt32(p, count);
    if (status != STATUS_OK) return status;
    if (*count < -1) return STATUS_BAD_VALUE;
    const int32_t left = AParcel_getDataSize(p) - AParcel_getDataPosition(p);
    if (*count > left / 4) return STATUS_BAD_VALUE;
    return STATUS_OK;
}

// Fills `vec` only when every element could be read.
template <typename T>
binder_status_t readElements(const AParcel* p, int32_t count, std::vector<T>* vec) {
    std::vector<T> elements;
    elements.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        T element{};
        binder_status_t status = readElement(p, &element);
        if (status != STATUS_OK) return status;
        elements.push_back(std::move(element));
    }
    *vec = std::move(elements);
    return STATUS_OK;
}
}  // namespace parcel_detail

template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<T>& vec) {
    binder_status_t status = ::AParcel_writeInt32(parcel, static_cast<int32_t>(vec.size()));
    if (status != STATUS_OK) return status;
    for (size_t i = 0; i < vec.size(); ++i) {
        const T& element = vec[i];
        status = parcel_detail::writeElement(parcel, element);
        if (status != STATUS_OK) return status;
    }
    return STATUS_OK;
}
inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<bool>& vec) {
    binder_status_t status = ::AParcel_writeInt32(parcel, static_cast<int32_t>(vec.size()));
    for (size_t i = 0; status == STATUS_OK && i < vec.size(); ++i) {
        status = ::AParcel_writeBool(parcel, vec[i]);
    }
    return status;
}
template <typename T>
binder_status_t AParcel_writeVector(AParcel* parcel, const std::optional<std::vector<T>>& vec) {
    if (!vec) return ::AParcel_writeInt32(parcel, -1);
    return AParcel_writeVector(parcel, *vec);
}

template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<T>* vec) {
    int32_t count = 0;
    binder_status_t status = parcel_detail::readCount(parcel, &count);
    if (status != STATUS_OK) return status;
    if (count < 0) return STATUS_UNEXPECTED_NULL;
    return parcel_detail::readElements(parcel, count, vec);
}
template <typename T>
binder_status_t AParcel_readVector(const AParcel* parcel, std::optional<std::vector<T>>* vec) {
    int32_t count = 0;
    binder_status_t status = parcel_detail::readCount(parcel, &count);
    if (status != STATUS_OK) return status;
    if (count < 0) {
        vec->reset();
        return STATUS_OK;
    }
    std::vector<T> elements;
    binder_status_t read = parcel_detail::readElements(parcel, count, &elements);
    if (read == STATUS_OK) *vec = std::move(elements);
    return read;
}

}  // namespace ndk
