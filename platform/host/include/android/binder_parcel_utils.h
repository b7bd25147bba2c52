// C++ parcel helpers (host build of the header-only helpers of the same name):
// std::string, std::vector, std::optional, parcelables, interfaces, binders
// and file descriptors on top of the C parcel API, plus the generic
// AParcel_writeData / AParcel_readData entry points used by generated code.
//
// The names and signatures are the Android 15/16 ones, and only those: a
// helper the device header lacks would let host-only code through. (Fixed-size
// std::array fields are not supported here; the interface has none.)
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>

#include <stdint.h>
#include <syslog.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace ndk {

namespace {
template <typename Test, template <typename...> class Ref>
struct is_specialization : std::false_type {};
template <template <typename...> class Ref, typename... Args>
struct is_specialization<Ref<Args...>, Ref> : std::true_type {};
template <typename Test, template <typename...> class Ref>
static inline constexpr bool is_specialization_v = is_specialization<Test, Ref>::value;

// The T of Template<T, ...>.
template <typename T>
struct first_template_type {
  using type = void;
};
template <template <typename...> class V, typename T, typename... Args>
struct first_template_type<V<T, Args...>> {
  using type = T;
};
template <typename T>
using first_template_type_t = typename first_template_type<T>::type;

// std::shared_ptr<I> with I an interface.
template <typename T>
static inline constexpr bool is_interface_v =
    is_specialization_v<T, std::shared_ptr> &&
    std::is_base_of_v<::ndk::ICInterface, first_template_type_t<T>>;

// A type with readFromParcel(const AParcel*) and writeToParcel(AParcel*).
template <typename T, typename = void>
struct is_parcelable : std::false_type {};
template <typename T>
struct is_parcelable<
    T, std::void_t<decltype(std::declval<T>().readFromParcel(std::declval<const AParcel*>())),
                   decltype(std::declval<T>().writeToParcel(std::declval<AParcel*>()))>>
    : std::true_type {};
template <typename T>
static inline constexpr bool is_parcelable_v = is_parcelable<T>::value;

// std::optional<P> or std::unique_ptr<P> with P a parcelable.
template <typename T>
static inline constexpr bool is_nullable_parcelable_v =
    is_parcelable_v<first_template_type_t<T>> &&
    (is_specialization_v<T, std::optional> || is_specialization_v<T, std::unique_ptr>);

template <typename T>
static inline constexpr bool dependent_false_v = false;
}  // namespace

// ---- allocators, getters and setters handed to the C readers and writers ----

// Sizes the vector and hands back its storage (arrays read in one piece).
template <typename T>
static inline bool AParcel_stdVectorAllocator(void* vectorData, int32_t length, T** outBuffer) {
  if (length < 0) return false;
  std::vector<T>* vec = static_cast<std::vector<T>*>(vectorData);
  if (static_cast<size_t>(length) > vec->max_size()) return false;
  vec->resize(static_cast<size_t>(length));
  *outBuffer = vec->data();
  return true;
}

template <typename T>
static inline bool AParcel_nullableStdVectorAllocator(void* vectorData, int32_t length,
                                                      T** outBuffer) {
  std::optional<std::vector<T>>* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
  if (length < 0) {
    *vec = std::nullopt;
    return true;
  }
  *vec = std::optional<std::vector<T>>(std::vector<T>{});
  if (static_cast<size_t>(length) > (*vec)->max_size()) return false;
  (*vec)->resize(static_cast<size_t>(length));
  *outBuffer = (*vec)->data();
  return true;
}

// Sizes the vector only (arrays read element by element through callbacks);
// a null array is refused.
template <typename T>
static inline bool AParcel_stdVectorExternalAllocator(void* vectorData, int32_t length) {
  if (length < 0) return false;
  std::vector<T>* vec = static_cast<std::vector<T>*>(vectorData);
  if (static_cast<size_t>(length) > vec->max_size()) return false;
  vec->resize(static_cast<size_t>(length));
  return true;
}

template <typename T>
static inline bool AParcel_nullableStdVectorExternalAllocator(void* vectorData, int32_t length) {
  std::optional<std::vector<T>>* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
  if (length < 0) {
    *vec = std::nullopt;
    return true;
  }
  *vec = std::optional<std::vector<T>>(std::vector<T>{});
  if (static_cast<size_t>(length) > (*vec)->max_size()) return false;
  (*vec)->resize(static_cast<size_t>(length));
  return true;
}

template <typename T>
static inline T AParcel_stdVectorGetter(const void* vectorData, size_t index) {
  const std::vector<T>* vec = static_cast<const std::vector<T>*>(vectorData);
  return (*vec)[index];
}

template <typename T>
static inline void AParcel_stdVectorSetter(void* vectorData, size_t index, T value) {
  std::vector<T>* vec = static_cast<std::vector<T>*>(vectorData);
  (*vec)[index] = value;
}

template <typename T>
static inline void AParcel_nullableStdVectorSetter(void* vectorData, size_t index, T value) {
  std::optional<std::vector<T>>* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
  vec->value()[index] = value;
}

// ---- binders and file descriptors ----

static inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
  return AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
  AIBinder* readBinder = nullptr;
  binder_status_t status = AParcel_readStrongBinder(parcel, &readBinder);
  if (status == STATUS_OK) binder->set(readBinder);
  return status;
}

static inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
  if (binder.get() == nullptr) {
    syslog(LOG_ERR, "Passing null binder object as non-@nullable AIDL IBinder");
    return STATUS_UNEXPECTED_NULL;
  }
  return AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
  AIBinder* readBinder = nullptr;
  binder_status_t status = AParcel_readStrongBinder(parcel, &readBinder);
  if (status != STATUS_OK) return status;
  if (readBinder == nullptr) return STATUS_UNEXPECTED_NULL;
  binder->set(readBinder);
  return STATUS_OK;
}

static inline binder_status_t AParcel_writeNullableParcelFileDescriptor(
    AParcel* parcel, const ScopedFileDescriptor& fd) {
  return AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

static inline binder_status_t AParcel_readNullableParcelFileDescriptor(const AParcel* parcel,
                                                                       ScopedFileDescriptor* fd) {
  int readFd = -1;
  binder_status_t status = AParcel_readParcelFileDescriptor(parcel, &readFd);
  if (status == STATUS_OK) fd->set(readFd);
  return status;
}

static inline binder_status_t AParcel_writeRequiredParcelFileDescriptor(
    AParcel* parcel, const ScopedFileDescriptor& fd) {
  if (fd.get() < 0) {
    syslog(LOG_ERR, "Passing -1 file descriptor as non-@nullable AIDL ParcelFileDescriptor");
    return STATUS_UNEXPECTED_NULL;
  }
  return AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

static inline binder_status_t AParcel_readRequiredParcelFileDescriptor(const AParcel* parcel,
                                                                       ScopedFileDescriptor* fd) {
  int readFd = -1;
  binder_status_t status = AParcel_readParcelFileDescriptor(parcel, &readFd);
  if (status != STATUS_OK) return status;
  if (readFd < 0) return STATUS_UNEXPECTED_NULL;
  fd->set(readFd);
  return STATUS_OK;
}

// ---- strings ----

// `length` counts the terminator; a null string (-1) is refused.
static inline bool AParcel_stdStringAllocator(void* stringData, int32_t length, char** buffer) {
  if (length <= 0) return false;
  std::string* str = static_cast<std::string*>(stringData);
  str->resize(static_cast<size_t>(length) - 1);
  *buffer = &(*str)[0];
  return true;
}

static inline bool AParcel_nullableStdStringAllocator(void* stringData, int32_t length,
                                                      char** buffer) {
  if (length == 0) return false;
  std::optional<std::string>* str = static_cast<std::optional<std::string>*>(stringData);
  if (length < 0) {
    *str = std::nullopt;
    return true;
  }
  *str = std::optional<std::string>(std::string{});
  (*str)->resize(static_cast<size_t>(length) - 1);
  *buffer = &(**str)[0];
  return true;
}

static inline bool AParcel_stdVectorStringElementAllocator(void* vectorData, size_t index,
                                                           int32_t length, char** buffer) {
  std::vector<std::string>* vec = static_cast<std::vector<std::string>*>(vectorData);
  std::string& element = vec->at(index);
  return AParcel_stdStringAllocator(static_cast<void*>(&element), length, buffer);
}

static inline const char* AParcel_stdVectorStringElementGetter(const void* vectorData,
                                                               size_t index, int32_t* outLength) {
  const std::vector<std::string>* vec = static_cast<const std::vector<std::string>*>(vectorData);
  const std::string& element = vec->at(index);
  *outLength = static_cast<int32_t>(element.size());
  return element.c_str();
}

static inline bool AParcel_nullableStdVectorStringElementAllocator(void* vectorData, size_t index,
                                                                   int32_t length, char** buffer) {
  auto* vec = static_cast<std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
  std::optional<std::string>& element = vec->value().at(index);
  return AParcel_nullableStdStringAllocator(static_cast<void*>(&element), length, buffer);
}

static inline const char* AParcel_nullableStdVectorStringElementGetter(const void* vectorData,
                                                                       size_t index,
                                                                       int32_t* outLength) {
  auto* vec =
      static_cast<const std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
  const std::optional<std::string>& element = vec->value().at(index);
  if (!element) {
    *outLength = -1;
    return nullptr;
  }
  *outLength = static_cast<int32_t>(element->size());
  return element->c_str();
}

static inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& str) {
  return AParcel_writeString(parcel, str.c_str(), static_cast<int32_t>(str.size()));
}

// A null string on the wire gives STATUS_UNEXPECTED_NULL.
static inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* str) {
  return AParcel_readString(parcel, static_cast<void*>(str), AParcel_stdStringAllocator);
}

static inline binder_status_t AParcel_writeString(AParcel* parcel,
                                                  const std::optional<std::string>& str) {
  if (!str) return AParcel_writeString(parcel, nullptr, -1);
  return AParcel_writeString(parcel, str->c_str(), static_cast<int32_t>(str->size()));
}

static inline binder_status_t AParcel_readString(const AParcel* parcel,
                                                 std::optional<std::string>* str) {
  return AParcel_readString(parcel, static_cast<void*>(str), AParcel_nullableStdStringAllocator);
}

// String[] and @nullable String[] (whose elements may be null too).
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::vector<std::string>& vec) {
  return AParcel_writeStringArray(parcel, static_cast<const void*>(&vec),
                                  static_cast<int32_t>(vec.size()),
                                  AParcel_stdVectorStringElementGetter);
}

static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::vector<std::string>* vec) {
  return AParcel_readStringArray(parcel, static_cast<void*>(vec),
                                 AParcel_stdVectorExternalAllocator<std::string>,
                                 AParcel_stdVectorStringElementAllocator);
}

static inline binder_status_t AParcel_writeVector(
    AParcel* parcel, const std::optional<std::vector<std::optional<std::string>>>& vec) {
  return AParcel_writeStringArray(parcel, static_cast<const void*>(&vec),
                                  vec ? static_cast<int32_t>(vec->size()) : -1,
                                  AParcel_nullableStdVectorStringElementGetter);
}

static inline binder_status_t AParcel_readVector(
    const AParcel* parcel, std::optional<std::vector<std::optional<std::string>>>* vec) {
  return AParcel_readStringArray(
      parcel, static_cast<void*>(vec),
      AParcel_nullableStdVectorExternalAllocator<std::optional<std::string>>,
      AParcel_nullableStdVectorStringElementAllocator);
}

// ---- parcelables and interfaces ----

// A parcelable is preceded by an int32 non-null marker (1). An interface
// (std::shared_ptr<I>) is written as its binder and may be null.
template <typename P>
static inline binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& p) {
  if constexpr (is_interface_v<P>) {
    return first_template_type_t<P>::writeToParcel(parcel, p);
  } else {
    static_assert(is_parcelable_v<P>);
    binder_status_t status = AParcel_writeInt32(parcel, 1);  // non-null
    if (status != STATUS_OK) return status;
    return p.writeToParcel(parcel);
  }
}

template <typename P>
static inline binder_status_t AParcel_readParcelable(const AParcel* parcel, P* p) {
  if constexpr (is_interface_v<P>) {
    return first_template_type_t<P>::readFromParcel(parcel, p);
  } else {
    static_assert(is_parcelable_v<P>);
    int32_t null = 0;
    binder_status_t status = AParcel_readInt32(parcel, &null);
    if (status != STATUS_OK) return status;
    if (null == 0) return STATUS_UNEXPECTED_NULL;
    return p->readFromParcel(parcel);
  }
}

template <typename P>
static inline binder_status_t AParcel_writeNullableParcelable(AParcel* parcel, const P& p) {
  if constexpr (is_interface_v<P>) {
    return first_template_type_t<P>::writeToParcel(parcel, p);
  } else {
    static_assert(is_nullable_parcelable_v<P>);
    if (!p) return AParcel_writeInt32(parcel, 0);  // null
    binder_status_t status = AParcel_writeInt32(parcel, 1);  // non-null
    if (status != STATUS_OK) return status;
    return p->writeToParcel(parcel);
  }
}

template <typename P>
static inline binder_status_t AParcel_readNullableParcelable(const AParcel* parcel, P* p) {
  if constexpr (is_interface_v<P>) {
    return first_template_type_t<P>::readFromParcel(parcel, p);
  } else if constexpr (is_specialization_v<P, std::optional>) {
    int32_t null = 0;
    binder_status_t status = AParcel_readInt32(parcel, &null);
    if (status != STATUS_OK) return status;
    if (null == 0) {
      *p = std::nullopt;
      return STATUS_OK;
    }
    p->emplace(first_template_type_t<P>());
    return (*p)->readFromParcel(parcel);
  } else {
    static_assert(is_specialization_v<P, std::unique_ptr>);
    int32_t null = 0;
    binder_status_t status = AParcel_readInt32(parcel, &null);
    if (status != STATUS_OK) return status;
    if (null == 0) {
      p->reset();
      return STATUS_OK;
    }
    *p = std::make_unique<first_template_type_t<P>>();
    return (*p)->readFromParcel(parcel);
  }
}

// ---- forward declarations of the generic entry points ----

template <typename T>
static inline binder_status_t AParcel_writeData(AParcel* parcel, const T& value);
template <typename T>
static inline binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value);
template <typename T>
static inline binder_status_t AParcel_readData(const AParcel* parcel, T* value);
template <typename T>
static inline binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value);

// ---- element callbacks of parcelable arrays ----

template <typename P>
binder_status_t AParcel_writeStdVectorParcelableElement(AParcel* parcel, const void* vectorData,
                                                        size_t index) {
  const std::vector<P>* vector = static_cast<const std::vector<P>*>(vectorData);
  return AParcel_writeParcelable(parcel, vector->at(index));
}

template <typename P>
binder_status_t AParcel_readStdVectorParcelableElement(const AParcel* parcel, void* vectorData,
                                                       size_t index) {
  std::vector<P>* vector = static_cast<std::vector<P>*>(vectorData);
  return AParcel_readParcelable(parcel, &vector->at(index));
}

template <typename P>
binder_status_t AParcel_writeNullableStdVectorParcelableElement(AParcel* parcel,
                                                                const void* vectorData,
                                                                size_t index) {
  const std::optional<std::vector<P>>* vector =
      static_cast<const std::optional<std::vector<P>>*>(vectorData);
  return AParcel_writeNullableParcelable(parcel, (*vector)->at(index));
}

template <typename P>
binder_status_t AParcel_readNullableStdVectorParcelableElement(const AParcel* parcel,
                                                               void* vectorData, size_t index) {
  std::optional<std::vector<P>>* vector = static_cast<std::optional<std::vector<P>>*>(vectorData);
  return AParcel_readNullableParcelable(parcel, &(*vector)->at(index));
}

template <>
inline binder_status_t AParcel_writeStdVectorParcelableElement<ScopedFileDescriptor>(
    AParcel* parcel, const void* vectorData, size_t index) {
  const auto* vector = static_cast<const std::vector<ScopedFileDescriptor>*>(vectorData);
  return AParcel_writeRequiredParcelFileDescriptor(parcel, vector->at(index));
}

template <>
inline binder_status_t AParcel_readStdVectorParcelableElement<ScopedFileDescriptor>(
    const AParcel* parcel, void* vectorData, size_t index) {
  auto* vector = static_cast<std::vector<ScopedFileDescriptor>*>(vectorData);
  return AParcel_readRequiredParcelFileDescriptor(parcel, &vector->at(index));
}

template <>
inline binder_status_t AParcel_writeNullableStdVectorParcelableElement<ScopedFileDescriptor>(
    AParcel* parcel, const void* vectorData, size_t index) {
  const auto* vector =
      static_cast<const std::optional<std::vector<ScopedFileDescriptor>>*>(vectorData);
  return AParcel_writeNullableParcelFileDescriptor(parcel, (*vector)->at(index));
}

template <>
inline binder_status_t AParcel_readNullableStdVectorParcelableElement<ScopedFileDescriptor>(
    const AParcel* parcel, void* vectorData, size_t index) {
  auto* vector = static_cast<std::optional<std::vector<ScopedFileDescriptor>>*>(vectorData);
  return AParcel_readNullableParcelFileDescriptor(parcel, &(*vector)->at(index));
}

template <>
inline binder_status_t AParcel_writeStdVectorParcelableElement<SpAIBinder>(AParcel* parcel,
                                                                           const void* vectorData,
                                                                           size_t index) {
  const auto* vector = static_cast<const std::vector<SpAIBinder>*>(vectorData);
  return AParcel_writeRequiredStrongBinder(parcel, vector->at(index));
}

template <>
inline binder_status_t AParcel_readStdVectorParcelableElement<SpAIBinder>(const AParcel* parcel,
                                                                          void* vectorData,
                                                                          size_t index) {
  auto* vector = static_cast<std::vector<SpAIBinder>*>(vectorData);
  return AParcel_readRequiredStrongBinder(parcel, &vector->at(index));
}

template <>
inline binder_status_t AParcel_writeNullableStdVectorParcelableElement<SpAIBinder>(
    AParcel* parcel, const void* vectorData, size_t index) {
  const auto* vector = static_cast<const std::optional<std::vector<SpAIBinder>>*>(vectorData);
  return AParcel_writeNullableStrongBinder(parcel, (*vector)->at(index));
}

template <>
inline binder_status_t AParcel_readNullableStdVectorParcelableElement<SpAIBinder>(
    const AParcel* parcel, void* vectorData, size_t index) {
  auto* vector = static_cast<std::optional<std::vector<SpAIBinder>>*>(vectorData);
  return AParcel_readNullableStrongBinder(parcel, &(*vector)->at(index));
}

// ---- vectors of enums and parcelables ----

// An enum vector travels as a packed array of its backing type (a vector of
// E has the storage layout of a vector of the backing type).
template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<P>& vec) {
  if constexpr (std::is_enum_v<P>) {
    using B = std::underlying_type_t<P>;
    const int32_t size = static_cast<int32_t>(vec.size());
    if constexpr (std::is_same_v<B, int8_t>) {
      return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vec.data()), size);
    } else if constexpr (std::is_same_v<B, int32_t>) {
      return AParcel_writeInt32Array(parcel, reinterpret_cast<const int32_t*>(vec.data()), size);
    } else if constexpr (std::is_same_v<B, int64_t>) {
      return AParcel_writeInt64Array(parcel, reinterpret_cast<const int64_t*>(vec.data()), size);
    } else {
      static_assert(dependent_false_v<P>, "unrecognized type");
    }
  } else {
    static_assert(!std::is_same_v<P, std::string>, "specialization should be used");
    return AParcel_writeParcelableArray(parcel, static_cast<const void*>(&vec),
                                        static_cast<int32_t>(vec.size()),
                                        AParcel_writeStdVectorParcelableElement<P>);
  }
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<P>* vec) {
  void* vectorData = static_cast<void*>(vec);
  if constexpr (std::is_enum_v<P>) {
    using B = std::underlying_type_t<P>;
    if constexpr (std::is_same_v<B, int8_t>) {
      return AParcel_readByteArray(parcel, vectorData, AParcel_stdVectorAllocator<int8_t>);
    } else if constexpr (std::is_same_v<B, int32_t>) {
      return AParcel_readInt32Array(parcel, vectorData, AParcel_stdVectorAllocator<int32_t>);
    } else if constexpr (std::is_same_v<B, int64_t>) {
      return AParcel_readInt64Array(parcel, vectorData, AParcel_stdVectorAllocator<int64_t>);
    } else {
      static_assert(dependent_false_v<P>, "unrecognized type");
    }
  } else {
    static_assert(!std::is_same_v<P, std::string>, "specialization should be used");
    return AParcel_readParcelableArray(parcel, vectorData, AParcel_stdVectorExternalAllocator<P>,
                                       AParcel_readStdVectorParcelableElement<P>);
  }
}

template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::optional<std::vector<P>>& vec) {
  if constexpr (std::is_enum_v<P>) {
    using B = std::underlying_type_t<P>;
    const int32_t size = vec ? static_cast<int32_t>(vec->size()) : -1;
    if constexpr (std::is_same_v<B, int8_t>) {
      return AParcel_writeByteArray(
          parcel, vec ? reinterpret_cast<const int8_t*>(vec->data()) : nullptr, size);
    } else if constexpr (std::is_same_v<B, int32_t>) {
      return AParcel_writeInt32Array(
          parcel, vec ? reinterpret_cast<const int32_t*>(vec->data()) : nullptr, size);
    } else if constexpr (std::is_same_v<B, int64_t>) {
      return AParcel_writeInt64Array(
          parcel, vec ? reinterpret_cast<const int64_t*>(vec->data()) : nullptr, size);
    } else {
      static_assert(dependent_false_v<P>, "unrecognized type");
    }
  } else {
    static_assert(!std::is_same_v<P, std::optional<std::string>>, "specialization should be used");
    if (!vec) return AParcel_writeInt32(parcel, -1);
    return AParcel_writeParcelableArray(parcel, static_cast<const void*>(&vec),
                                        static_cast<int32_t>(vec->size()),
                                        AParcel_writeNullableStdVectorParcelableElement<P>);
  }
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::optional<std::vector<P>>* vec) {
  void* vectorData = static_cast<void*>(vec);
  if constexpr (std::is_enum_v<P>) {
    using B = std::underlying_type_t<P>;
    if constexpr (std::is_same_v<B, int8_t>) {
      return AParcel_readByteArray(parcel, vectorData, AParcel_nullableStdVectorAllocator<int8_t>);
    } else if constexpr (std::is_same_v<B, int32_t>) {
      return AParcel_readInt32Array(parcel, vectorData,
                                    AParcel_nullableStdVectorAllocator<int32_t>);
    } else if constexpr (std::is_same_v<B, int64_t>) {
      return AParcel_readInt64Array(parcel, vectorData,
                                    AParcel_nullableStdVectorAllocator<int64_t>);
    } else {
      static_assert(dependent_false_v<P>, "unrecognized type");
    }
  } else {
    static_assert(!std::is_same_v<P, std::optional<std::string>>, "specialization should be used");
    return AParcel_readParcelableArray(parcel, vectorData,
                                       AParcel_nullableStdVectorExternalAllocator<P>,
                                       AParcel_readNullableStdVectorParcelableElement<P>);
  }
}

// ---- vectors of primitives ----

#define LUMX_NDK_PRIMITIVE_VECTOR(TYPE, NAME)                                                    \
  inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<TYPE>& vec) {    \
    return AParcel_write##NAME##Array(parcel, vec.data(), static_cast<int32_t>(vec.size()));     \
  }                                                                                              \
  inline binder_status_t AParcel_writeVector(AParcel* parcel,                                    \
                                             const std::optional<std::vector<TYPE>>& vec) {      \
    if (!vec) return AParcel_write##NAME##Array(parcel, nullptr, -1);                            \
    return AParcel_writeVector(parcel, *vec);                                                    \
  }                                                                                              \
  inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<TYPE>* vec) {     \
    return AParcel_read##NAME##Array(parcel, static_cast<void*>(vec),                            \
                                     AParcel_stdVectorAllocator<TYPE>);                          \
  }                                                                                              \
  inline binder_status_t AParcel_readVector(const AParcel* parcel,                               \
                                            std::optional<std::vector<TYPE>>* vec) {             \
    return AParcel_read##NAME##Array(parcel, static_cast<void*>(vec),                            \
                                     AParcel_nullableStdVectorAllocator<TYPE>);                  \
  }

LUMX_NDK_PRIMITIVE_VECTOR(int32_t, Int32)
LUMX_NDK_PRIMITIVE_VECTOR(uint32_t, Uint32)
LUMX_NDK_PRIMITIVE_VECTOR(int64_t, Int64)
LUMX_NDK_PRIMITIVE_VECTOR(uint64_t, Uint64)
LUMX_NDK_PRIMITIVE_VECTOR(float, Float)
LUMX_NDK_PRIMITIVE_VECTOR(double, Double)
LUMX_NDK_PRIMITIVE_VECTOR(char16_t, Char)
#undef LUMX_NDK_PRIMITIVE_VECTOR

// bool[]: one element at a time through the getter and setter.
inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<bool>& vec) {
  return AParcel_writeBoolArray(parcel, static_cast<const void*>(&vec),
                                static_cast<int32_t>(vec.size()), AParcel_stdVectorGetter<bool>);
}

inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                           const std::optional<std::vector<bool>>& vec) {
  if (!vec) return AParcel_writeBoolArray(parcel, nullptr, -1, AParcel_stdVectorGetter<bool>);
  return AParcel_writeVector(parcel, *vec);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<bool>* vec) {
  return AParcel_readBoolArray(parcel, static_cast<void*>(vec),
                               AParcel_stdVectorExternalAllocator<bool>,
                               AParcel_stdVectorSetter<bool>);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                          std::optional<std::vector<bool>>* vec) {
  return AParcel_readBoolArray(parcel, static_cast<void*>(vec),
                               AParcel_nullableStdVectorExternalAllocator<bool>,
                               AParcel_nullableStdVectorSetter<bool>);
}

// byte[] is std::vector<uint8_t>, packed; the C API fills it as int8_t.
inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<uint8_t>& vec) {
  return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vec.data()),
                                static_cast<int32_t>(vec.size()));
}

inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                           const std::optional<std::vector<uint8_t>>& vec) {
  if (!vec) return AParcel_writeByteArray(parcel, nullptr, -1);
  return AParcel_writeVector(parcel, *vec);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<uint8_t>* vec) {
  return AParcel_readByteArray(parcel, static_cast<void*>(vec), AParcel_stdVectorAllocator<int8_t>);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                          std::optional<std::vector<uint8_t>>* vec) {
  return AParcel_readByteArray(parcel, static_cast<void*>(vec),
                               AParcel_nullableStdVectorAllocator<int8_t>);
}

// ---- vector sizes for out-arrays ----

template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel, const std::vector<T>& vec) {
  if (vec.size() > INT32_MAX) return STATUS_BAD_VALUE;
  return AParcel_writeInt32(parcel, static_cast<int32_t>(vec.size()));
}

template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel,
                                                      const std::optional<std::vector<T>>& vec) {
  if (!vec) return AParcel_writeInt32(parcel, -1);
  if (vec->size() > INT32_MAX) return STATUS_BAD_VALUE;
  return AParcel_writeInt32(parcel, static_cast<int32_t>(vec->size()));
}

// A size read for an out-array is bounded at one million elements.
template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel, std::vector<T>* vec) {
  int32_t size = 0;
  binder_status_t err = AParcel_readInt32(parcel, &size);
  if (err != STATUS_OK) return err;
  if (size < 0) return STATUS_UNEXPECTED_NULL;
  if (size > 1000000) return STATUS_NO_MEMORY;
  vec->resize(static_cast<size_t>(size));
  return STATUS_OK;
}

template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel,
                                                   std::optional<std::vector<T>>* vec) {
  int32_t size = 0;
  binder_status_t err = AParcel_readInt32(parcel, &size);
  if (err != STATUS_OK) return err;
  if (size < -1) return STATUS_UNEXPECTED_NULL;
  if (size == -1) {
    *vec = std::nullopt;
    return STATUS_OK;
  }
  if (size > 1000000) return STATUS_NO_MEMORY;
  *vec = std::optional<std::vector<T>>(std::vector<T>{});
  (*vec)->resize(static_cast<size_t>(size));
  return STATUS_OK;
}

// ---- generic entry points ----

template <typename T>
static inline binder_status_t AParcel_writeData(AParcel* parcel, const T& value) {
  if constexpr (is_specialization_v<T, std::vector>) {
    return AParcel_writeVector(parcel, value);
  } else if constexpr (std::is_same_v<std::string, T>) {
    return AParcel_writeString(parcel, value);
  } else if constexpr (std::is_same_v<bool, T>) {
    return AParcel_writeBool(parcel, value);
  } else if constexpr (std::is_same_v<int8_t, T> || std::is_same_v<uint8_t, T>) {
    return AParcel_writeByte(parcel, static_cast<int8_t>(value));
  } else if constexpr (std::is_same_v<char16_t, T>) {
    return AParcel_writeChar(parcel, value);
  } else if constexpr (std::is_same_v<int32_t, T>) {
    return AParcel_writeInt32(parcel, value);
  } else if constexpr (std::is_same_v<int64_t, T>) {
    return AParcel_writeInt64(parcel, value);
  } else if constexpr (std::is_same_v<float, T>) {
    return AParcel_writeFloat(parcel, value);
  } else if constexpr (std::is_same_v<double, T>) {
    return AParcel_writeDouble(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_writeRequiredParcelFileDescriptor(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_writeRequiredStrongBinder(parcel, value);
  } else if constexpr (std::is_enum_v<T>) {
    return AParcel_writeData(parcel, static_cast<std::underlying_type_t<T>>(value));
  } else if constexpr (is_interface_v<T>) {
    return AParcel_writeParcelable(parcel, value);
  } else if constexpr (is_parcelable_v<T>) {
    return AParcel_writeParcelable(parcel, value);
  } else {
    static_assert(dependent_false_v<T>, "unrecognized type");
    return STATUS_OK;
  }
}

template <typename T>
static inline binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value) {
  if constexpr (is_specialization_v<T, std::optional> &&
                is_specialization_v<first_template_type_t<T>, std::vector>) {
    return AParcel_writeVector(parcel, value);
  } else if constexpr (is_specialization_v<T, std::optional> &&
                       std::is_same_v<first_template_type_t<T>, std::string>) {
    return AParcel_writeString(parcel, value);
  } else if constexpr (is_nullable_parcelable_v<T> || is_interface_v<T>) {
    return AParcel_writeNullableParcelable(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_writeNullableParcelFileDescriptor(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_writeNullableStrongBinder(parcel, value);
  } else {
    return AParcel_writeData(parcel, value);
  }
}

template <typename T>
static inline binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
  if constexpr (is_specialization_v<T, std::vector>) {
    return AParcel_readVector(parcel, value);
  } else if constexpr (std::is_same_v<std::string, T>) {
    return AParcel_readString(parcel, value);
  } else if constexpr (std::is_same_v<bool, T>) {
    return AParcel_readBool(parcel, value);
  } else if constexpr (std::is_same_v<int8_t, T> || std::is_same_v<uint8_t, T>) {
    return AParcel_readByte(parcel, value);
  } else if constexpr (std::is_same_v<char16_t, T>) {
    return AParcel_readChar(parcel, value);
  } else if constexpr (std::is_same_v<int32_t, T>) {
    return AParcel_readInt32(parcel, value);
  } else if constexpr (std::is_same_v<int64_t, T>) {
    return AParcel_readInt64(parcel, value);
  } else if constexpr (std::is_same_v<float, T>) {
    return AParcel_readFloat(parcel, value);
  } else if constexpr (std::is_same_v<double, T>) {
    return AParcel_readDouble(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_readRequiredParcelFileDescriptor(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_readRequiredStrongBinder(parcel, value);
  } else if constexpr (std::is_enum_v<T>) {
    return AParcel_readData(parcel, reinterpret_cast<std::underlying_type_t<T>*>(value));
  } else if constexpr (is_interface_v<T>) {
    return AParcel_readParcelable(parcel, value);
  } else if constexpr (is_parcelable_v<T>) {
    return AParcel_readParcelable(parcel, value);
  } else {
    static_assert(dependent_false_v<T>, "unrecognized type");
    return STATUS_OK;
  }
}

template <typename T>
static inline binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value) {
  if constexpr (is_specialization_v<T, std::optional> &&
                is_specialization_v<first_template_type_t<T>, std::vector>) {
    return AParcel_readVector(parcel, value);
  } else if constexpr (is_specialization_v<T, std::optional> &&
                       std::is_same_v<first_template_type_t<T>, std::string>) {
    return AParcel_readString(parcel, value);
  } else if constexpr (is_nullable_parcelable_v<T> || is_interface_v<T>) {
    return AParcel_readNullableParcelable(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_readNullableParcelFileDescriptor(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_readNullableStrongBinder(parcel, value);
  } else {
    return AParcel_readData(parcel, value);
  }
}

}  // namespace ndk
