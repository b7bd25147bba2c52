// C++ parcel helpers (host build of the header-only helpers of the same name):
// std::string, std::vector, std::optional, parcelables, interfaces, binders
// and file descriptors on top of the C parcel API, plus the generic
// AParcel_writeData / AParcel_readData entry points used by generated code.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>

#include <stdint.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace ndk {

// ---- type traits ----

template <typename T, template <typename...> class Template>
struct is_specialization : std::false_type {};
template <template <typename...> class Template, typename... Args>
struct is_specialization<Template<Args...>, Template> : std::true_type {};
template <typename T, template <typename...> class Template>
static inline constexpr bool is_specialization_v = is_specialization<T, Template>::value;

template <typename T>
struct first_template_type {
  using type = void;
};
template <template <typename...> class Template, typename T, typename... Args>
struct first_template_type<Template<T, Args...>> {
  using type = T;
};
template <typename T>
using first_template_type_t = typename first_template_type<T>::type;

// std::shared_ptr<I> with I an interface.
template <typename T>
static inline constexpr bool is_interface_v =
    is_specialization_v<T, std::shared_ptr> &&
    std::is_base_of_v<::ndk::ICInterface, first_template_type_t<T>>;

// A type with readFromParcel(const AParcel*) and writeToParcel(AParcel*) const.
template <typename T, typename = void>
struct is_parcelable : std::false_type {};
template <typename T>
struct is_parcelable<
    T, std::void_t<decltype(std::declval<T>().readFromParcel(std::declval<const AParcel*>())),
                   decltype(std::declval<const T>().writeToParcel(std::declval<AParcel*>()))>>
    : std::true_type {};
template <typename T>
static inline constexpr bool is_parcelable_v = is_parcelable<T>::value;

// std::optional<P>, std::unique_ptr<P> or std::shared_ptr<P> with P a parcelable.
template <typename T>
static inline constexpr bool is_nullable_parcelable_v =
    is_parcelable_v<first_template_type_t<T>> &&
    (is_specialization_v<T, std::optional> || is_specialization_v<T, std::unique_ptr> ||
     is_specialization_v<T, std::shared_ptr>);

template <typename T>
static inline constexpr bool dependent_false_v = false;

// Bound on a vector size read from a parcel for an out-array.
static constexpr int32_t kMaxResizeVectorSize = 1000000;

// ---- allocators handed to the C readers ----

template <typename T>
static inline bool AParcel_stdVectorAllocator(void* vectorData, int32_t length) {
  if (length < 0) return false;
  std::vector<T>* vec = static_cast<std::vector<T>*>(vectorData);
  if (static_cast<size_t>(length) > vec->max_size()) return false;
  vec->resize(static_cast<size_t>(length));
  return true;
}

template <typename T>
static inline bool AParcel_nullableStdVectorAllocator(void* vectorData, int32_t length) {
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
static inline bool AParcel_stdVectorExternalAllocator(void* vectorData, int32_t length,
                                                      T** outBuffer) {
  if (!AParcel_stdVectorAllocator<T>(vectorData, length)) return false;
  std::vector<T>* vec = static_cast<std::vector<T>*>(vectorData);
  *outBuffer = vec->data();
  return true;
}

template <typename T>
static inline bool AParcel_nullableStdVectorExternalAllocator(void* vectorData, int32_t length,
                                                              T** outBuffer) {
  if (!AParcel_nullableStdVectorAllocator<T>(vectorData, length)) return false;
  std::optional<std::vector<T>>* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
  *outBuffer = vec->has_value() ? (*vec)->data() : nullptr;
  return true;
}

// byte[] is std::vector<uint8_t>; the C API speaks int8_t.
static inline bool AParcel_stdVectorByteAllocator(void* vectorData, int32_t length,
                                                  int8_t** outBuffer) {
  if (!AParcel_stdVectorAllocator<uint8_t>(vectorData, length)) return false;
  *outBuffer = reinterpret_cast<int8_t*>(static_cast<std::vector<uint8_t>*>(vectorData)->data());
  return true;
}

static inline bool AParcel_nullableStdVectorByteAllocator(void* vectorData, int32_t length,
                                                          int8_t** outBuffer) {
  if (!AParcel_nullableStdVectorAllocator<uint8_t>(vectorData, length)) return false;
  auto* vec = static_cast<std::optional<std::vector<uint8_t>>*>(vectorData);
  *outBuffer = vec->has_value() ? reinterpret_cast<int8_t*>((*vec)->data()) : nullptr;
  return true;
}

// Vector of an enum: the buffer is the vector's storage seen as the backing type.
template <typename E>
static inline bool AParcel_stdVectorEnumAllocator(void* vectorData, int32_t length,
                                                  std::underlying_type_t<E>** outBuffer) {
  if (!AParcel_stdVectorAllocator<E>(vectorData, length)) return false;
  *outBuffer =
      reinterpret_cast<std::underlying_type_t<E>*>(static_cast<std::vector<E>*>(vectorData)->data());
  return true;
}

template <typename T>
static inline bool AParcel_stdVectorGetter(const void* vectorData, size_t index) {
  const std::vector<T>* vec = static_cast<const std::vector<T>*>(vectorData);
  return (*vec)[index];
}
template <typename T>
static inline void AParcel_stdVectorSetter(void* vectorData, size_t index, T value) {
  std::vector<T>* vec = static_cast<std::vector<T>*>(vectorData);
  (*vec)[index] = value;
}
template <typename T>
static inline bool AParcel_nullableStdVectorGetter(const void* vectorData, size_t index) {
  const std::optional<std::vector<T>>* vec =
      static_cast<const std::optional<std::vector<T>>*>(vectorData);
  return (**vec)[index];
}
template <typename T>
static inline void AParcel_nullableStdVectorSetter(void* vectorData, size_t index, T value) {
  std::optional<std::vector<T>>* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
  (**vec)[index] = value;
}

static inline bool AParcel_stdStringAllocator(void* stringData, int32_t length, char** buffer) {
  if (length <= 0) return false;
  std::string* str = static_cast<std::string*>(stringData);
  str->resize(static_cast<size_t>(length) - 1);
  *buffer = &(*str)[0];
  return true;
}

static inline bool AParcel_nullableStdStringAllocator(void* stringData, int32_t length,
                                                      char** buffer) {
  std::optional<std::string>* str = static_cast<std::optional<std::string>*>(stringData);
  if (length == -1) {
    *str = std::nullopt;
    return true;
  }
  if (length <= 0) return false;
  *str = std::optional<std::string>(std::string{});
  (*str)->resize(static_cast<size_t>(length) - 1);
  *buffer = &(**str)[0];
  return true;
}

static inline bool AParcel_stdVectorStringElementAllocator(void* vectorData, size_t index,
                                                           int32_t length, char** buffer) {
  std::vector<std::string>* vec = static_cast<std::vector<std::string>*>(vectorData);
  if (index >= vec->size()) return false;
  return AParcel_stdStringAllocator(static_cast<void*>(&(*vec)[index]), length, buffer);
}

static inline const char* AParcel_stdVectorStringElementGetter(const void* vectorData,
                                                               size_t index, int32_t* outLength) {
  const std::vector<std::string>* vec = static_cast<const std::vector<std::string>*>(vectorData);
  const std::string& element = (*vec)[index];
  *outLength = static_cast<int32_t>(element.size());
  return element.c_str();
}

static inline bool AParcel_stdVectorNullableStringElementAllocator(void* vectorData, size_t index,
                                                                   int32_t length, char** buffer) {
  auto* vec = static_cast<std::vector<std::optional<std::string>>*>(vectorData);
  if (index >= vec->size()) return false;
  return AParcel_nullableStdStringAllocator(static_cast<void*>(&(*vec)[index]), length, buffer);
}

static inline const char* AParcel_stdVectorNullableStringElementGetter(const void* vectorData,
                                                                       size_t index,
                                                                       int32_t* outLength) {
  auto* vec = static_cast<const std::vector<std::optional<std::string>>*>(vectorData);
  const std::optional<std::string>& element = (*vec)[index];
  if (!element) {
    *outLength = -1;
    return nullptr;
  }
  *outLength = static_cast<int32_t>(element->size());
  return element->c_str();
}

static inline bool AParcel_nullableStdVectorStringElementAllocator(void* vectorData, size_t index,
                                                                   int32_t length, char** buffer) {
  auto* vec = static_cast<std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
  if (!vec->has_value() || index >= (*vec)->size()) return false;
  return AParcel_nullableStdStringAllocator(static_cast<void*>(&(**vec)[index]), length, buffer);
}

static inline const char* AParcel_nullableStdVectorStringElementGetter(const void* vectorData,
                                                                       size_t index,
                                                                       int32_t* outLength) {
  auto* vec =
      static_cast<const std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
  const std::optional<std::string>& element = (**vec)[index];
  if (!element) {
    *outLength = -1;
    return nullptr;
  }
  *outLength = static_cast<int32_t>(element->size());
  return element->c_str();
}

// ---- binders and file descriptors ----

static inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
  if (binder.get() == nullptr) return STATUS_UNEXPECTED_NULL;
  return ::AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
  AIBinder* readBinder = nullptr;
  binder_status_t status = ::AParcel_readStrongBinder(parcel, &readBinder);
  if (status != STATUS_OK) return status;
  if (readBinder == nullptr) return STATUS_UNEXPECTED_NULL;
  binder->set(readBinder);
  return STATUS_OK;
}

static inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
  return ::AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
  AIBinder* readBinder = nullptr;
  binder_status_t status = ::AParcel_readStrongBinder(parcel, &readBinder);
  if (status != STATUS_OK) return status;
  binder->set(readBinder);
  return STATUS_OK;
}

static inline binder_status_t AParcel_writeRequiredParcelFileDescriptor(
    AParcel* parcel, const ScopedFileDescriptor& fd) {
  if (fd.get() < 0) return STATUS_UNEXPECTED_NULL;
  return ::AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

static inline binder_status_t AParcel_readRequiredParcelFileDescriptor(const AParcel* parcel,
                                                                       ScopedFileDescriptor* fd) {
  int readFd = -1;
  binder_status_t status = ::AParcel_readParcelFileDescriptor(parcel, &readFd);
  if (status != STATUS_OK) return status;
  if (readFd < 0) return STATUS_UNEXPECTED_NULL;
  fd->set(readFd);
  return STATUS_OK;
}

static inline binder_status_t AParcel_writeNullableParcelFileDescriptor(
    AParcel* parcel, const ScopedFileDescriptor& fd) {
  return ::AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

static inline binder_status_t AParcel_readNullableParcelFileDescriptor(const AParcel* parcel,
                                                                       ScopedFileDescriptor* fd) {
  int readFd = -1;
  binder_status_t status = ::AParcel_readParcelFileDescriptor(parcel, &readFd);
  if (status != STATUS_OK) return status;
  fd->set(readFd);
  return STATUS_OK;
}

// ---- strings ----

static inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& str) {
  if (str.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
  return ::AParcel_writeString(parcel, str.c_str(), static_cast<int32_t>(str.size()));
}

// A null string on the wire gives STATUS_UNEXPECTED_NULL.
static inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* str) {
  return ::AParcel_readString(parcel, static_cast<void*>(str), AParcel_stdStringAllocator);
}

static inline binder_status_t AParcel_writeString(AParcel* parcel,
                                                  const std::optional<std::string>& str) {
  if (!str) return ::AParcel_writeString(parcel, nullptr, -1);
  return AParcel_writeString(parcel, *str);
}

static inline binder_status_t AParcel_readString(const AParcel* parcel,
                                                 std::optional<std::string>* str) {
  return ::AParcel_readString(parcel, static_cast<void*>(str), AParcel_nullableStdStringAllocator);
}

// ---- vector sizes for out-arrays ----

template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel, const std::vector<T>& vec) {
  if (vec.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
  return ::AParcel_writeInt32(parcel, static_cast<int32_t>(vec.size()));
}

template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel,
                                                      const std::optional<std::vector<T>>& vec) {
  if (!vec) return ::AParcel_writeInt32(parcel, -1);
  return AParcel_writeVectorSize(parcel, *vec);
}

template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel, std::vector<T>* vec) {
  int32_t size = 0;
  binder_status_t err = ::AParcel_readInt32(parcel, &size);
  if (err != STATUS_OK) return err;
  if (size < 0) return STATUS_UNEXPECTED_NULL;
  if (size > kMaxResizeVectorSize) return STATUS_NO_MEMORY;
  vec->resize(static_cast<size_t>(size));
  return STATUS_OK;
}

template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel,
                                                   std::optional<std::vector<T>>* vec) {
  int32_t size = 0;
  binder_status_t err = ::AParcel_readInt32(parcel, &size);
  if (err != STATUS_OK) return err;
  if (size < -1) return STATUS_BAD_VALUE;
  if (size == -1) {
    *vec = std::nullopt;
    return STATUS_OK;
  }
  if (size > kMaxResizeVectorSize) return STATUS_NO_MEMORY;
  *vec = std::optional<std::vector<T>>(std::vector<T>{});
  (*vec)->resize(static_cast<size_t>(size));
  return STATUS_OK;
}

// ---- forward declarations of the generic entry points ----

template <typename T>
static inline binder_status_t AParcel_writeData(AParcel* parcel, const T& value);
template <typename T>
static inline binder_status_t AParcel_readData(const AParcel* parcel, T* value);
template <typename T>
static inline binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value);
template <typename T>
static inline binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value);

// ---- parcelables and interfaces ----

// A parcelable is preceded by an int32 non-null marker (1). An interface
// (std::shared_ptr<I>) is written as its binder and may be null.
template <typename P>
static inline binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& p) {
  if constexpr (is_interface_v<P>) {
    return first_template_type_t<P>::writeToParcel(parcel, p);
  } else {
    static_assert(is_parcelable_v<P>, "not a parcelable");
    binder_status_t status = ::AParcel_writeInt32(parcel, 1);  // non-null
    if (status != STATUS_OK) return status;
    return p.writeToParcel(parcel);
  }
}

template <typename P>
static inline binder_status_t AParcel_readParcelable(const AParcel* parcel, P* p) {
  if constexpr (is_interface_v<P>) {
    return first_template_type_t<P>::readFromParcel(parcel, p);
  } else {
    static_assert(is_parcelable_v<P>, "not a parcelable");
    int32_t null = 0;
    binder_status_t status = ::AParcel_readInt32(parcel, &null);
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
    static_assert(is_nullable_parcelable_v<P>, "not a nullable parcelable");
    if (!p) return ::AParcel_writeInt32(parcel, 0);
    binder_status_t status = ::AParcel_writeInt32(parcel, 1);  // non-null
    if (status != STATUS_OK) return status;
    return p->writeToParcel(parcel);
  }
}

template <typename P>
static inline binder_status_t AParcel_readNullableParcelable(const AParcel* parcel, P* p) {
  if constexpr (is_interface_v<P>) {
    return first_template_type_t<P>::readFromParcel(parcel, p);
  } else {
    static_assert(is_nullable_parcelable_v<P>, "not a nullable parcelable");
    int32_t null = 0;
    binder_status_t status = ::AParcel_readInt32(parcel, &null);
    if (status != STATUS_OK) return status;
    if (null == 0) {
      p->reset();
      return STATUS_OK;
    }
    using Inner = first_template_type_t<P>;
    if constexpr (is_specialization_v<P, std::optional>) {
      p->emplace();
    } else if constexpr (is_specialization_v<P, std::unique_ptr>) {
      p->reset(new Inner());
    } else {
      *p = std::make_shared<Inner>();
    }
    return (*p)->readFromParcel(parcel);
  }
}

// Element callbacks for parcelable arrays: every element goes through
// AParcel_writeData/readData (a parcelable element carries its own marker).
template <typename T>
static inline binder_status_t AParcel_writeStdVectorParcelableElement(AParcel* parcel,
                                                                      const void* vectorData,
                                                                      size_t index) {
  const std::vector<T>* vector = static_cast<const std::vector<T>*>(vectorData);
  if constexpr (is_specialization_v<T, std::optional> || is_specialization_v<T, std::unique_ptr>) {
    return AParcel_writeNullableData(parcel, (*vector)[index]);
  } else {
    return AParcel_writeData(parcel, (*vector)[index]);
  }
}

template <typename T>
static inline binder_status_t AParcel_readStdVectorParcelableElement(const AParcel* parcel,
                                                                     void* vectorData,
                                                                     size_t index) {
  std::vector<T>* vector = static_cast<std::vector<T>*>(vectorData);
  if (index >= vector->size()) return STATUS_BAD_VALUE;
  if constexpr (is_specialization_v<T, std::optional> || is_specialization_v<T, std::unique_ptr>) {
    return AParcel_readNullableData(parcel, &(*vector)[index]);
  } else {
    return AParcel_readData(parcel, &(*vector)[index]);
  }
}

// ---- vectors ----

#define LUMX_NDK_PRIMITIVE_VECTOR(TYPE, NAME)                                                   \
  static inline binder_status_t AParcel_writeVector(AParcel* parcel,                            \
                                                    const std::vector<TYPE>& vec) {             \
    if (vec.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;                   \
    return ::AParcel_write##NAME##Array(parcel, vec.data(), static_cast<int32_t>(vec.size()));  \
  }                                                                                             \
  static inline binder_status_t AParcel_writeVector(AParcel* parcel,                            \
                                                    const std::optional<std::vector<TYPE>>& vec) { \
    if (!vec) return ::AParcel_write##NAME##Array(parcel, nullptr, -1);                         \
    return AParcel_writeVector(parcel, *vec);                                                   \
  }                                                                                             \
  static inline binder_status_t AParcel_readVector(const AParcel* parcel,                       \
                                                   std::vector<TYPE>* vec) {                    \
    return ::AParcel_read##NAME##Array(parcel, static_cast<void*>(vec),                         \
                                       AParcel_stdVectorExternalAllocator<TYPE>);               \
  }                                                                                             \
  static inline binder_status_t AParcel_readVector(const AParcel* parcel,                       \
                                                   std::optional<std::vector<TYPE>>* vec) {     \
    return ::AParcel_read##NAME##Array(parcel, static_cast<void*>(vec),                         \
                                       AParcel_nullableStdVectorExternalAllocator<TYPE>);       \
  }

LUMX_NDK_PRIMITIVE_VECTOR(int32_t, Int32)
LUMX_NDK_PRIMITIVE_VECTOR(uint32_t, Uint32)
LUMX_NDK_PRIMITIVE_VECTOR(int64_t, Int64)
LUMX_NDK_PRIMITIVE_VECTOR(uint64_t, Uint64)
LUMX_NDK_PRIMITIVE_VECTOR(float, Float)
LUMX_NDK_PRIMITIVE_VECTOR(double, Double)
LUMX_NDK_PRIMITIVE_VECTOR(char16_t, Char)
#undef LUMX_NDK_PRIMITIVE_VECTOR

// byte[]: packed bytes.
static inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<uint8_t>& vec) {
  if (vec.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
  return ::AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vec.data()),
                                  static_cast<int32_t>(vec.size()));
}
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::optional<std::vector<uint8_t>>& vec) {
  if (!vec) return ::AParcel_writeByteArray(parcel, nullptr, -1);
  return AParcel_writeVector(parcel, *vec);
}
static inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<uint8_t>* vec) {
  return ::AParcel_readByteArray(parcel, static_cast<void*>(vec), AParcel_stdVectorByteAllocator);
}
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::optional<std::vector<uint8_t>>* vec) {
  return ::AParcel_readByteArray(parcel, static_cast<void*>(vec),
                                 AParcel_nullableStdVectorByteAllocator);
}

// bool[]: one int32 slot per element.
static inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<bool>& vec) {
  if (vec.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
  return ::AParcel_writeBoolArray(parcel, static_cast<const void*>(&vec),
                                  static_cast<int32_t>(vec.size()), AParcel_stdVectorGetter<bool>);
}
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::optional<std::vector<bool>>& vec) {
  if (!vec) return ::AParcel_writeBoolArray(parcel, nullptr, -1, AParcel_stdVectorGetter<bool>);
  return AParcel_writeVector(parcel, *vec);
}
static inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<bool>* vec) {
  return ::AParcel_readBoolArray(parcel, static_cast<void*>(vec), AParcel_stdVectorAllocator<bool>,
                                 AParcel_stdVectorSetter<bool>);
}
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::optional<std::vector<bool>>* vec) {
  return ::AParcel_readBoolArray(parcel, static_cast<void*>(vec),
                                 AParcel_nullableStdVectorAllocator<bool>,
                                 AParcel_nullableStdVectorSetter<bool>);
}

// String[].
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::vector<std::string>& vec) {
  if (vec.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
  return ::AParcel_writeStringArray(parcel, static_cast<const void*>(&vec),
                                    static_cast<int32_t>(vec.size()),
                                    AParcel_stdVectorStringElementGetter);
}
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::vector<std::string>* vec) {
  return ::AParcel_readStringArray(parcel, static_cast<void*>(vec),
                                   AParcel_stdVectorAllocator<std::string>,
                                   AParcel_stdVectorStringElementAllocator);
}
static inline binder_status_t AParcel_writeVector(
    AParcel* parcel, const std::vector<std::optional<std::string>>& vec) {
  if (vec.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
  return ::AParcel_writeStringArray(parcel, static_cast<const void*>(&vec),
                                    static_cast<int32_t>(vec.size()),
                                    AParcel_stdVectorNullableStringElementGetter);
}
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::vector<std::optional<std::string>>* vec) {
  return ::AParcel_readStringArray(parcel, static_cast<void*>(vec),
                                   AParcel_stdVectorAllocator<std::optional<std::string>>,
                                   AParcel_stdVectorNullableStringElementAllocator);
}
static inline binder_status_t AParcel_writeVector(
    AParcel* parcel, const std::optional<std::vector<std::optional<std::string>>>& vec) {
  if (!vec) return ::AParcel_writeStringArray(parcel, nullptr, -1,
                                              AParcel_nullableStdVectorStringElementGetter);
  return ::AParcel_writeStringArray(parcel, static_cast<const void*>(&vec),
                                    static_cast<int32_t>(vec->size()),
                                    AParcel_nullableStdVectorStringElementGetter);
}
static inline binder_status_t AParcel_readVector(
    const AParcel* parcel, std::optional<std::vector<std::optional<std::string>>>* vec) {
  return ::AParcel_readStringArray(
      parcel, static_cast<void*>(vec), AParcel_nullableStdVectorAllocator<std::optional<std::string>>,
      AParcel_nullableStdVectorStringElementAllocator);
}

// Any other element type: an enum travels as a packed array of its backing
// type; everything else (parcelables, interfaces, binders, descriptors,
// nested vectors) as an int32 count followed by each element.
template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<P>& vec) {
  if (vec.size() > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
  const int32_t size = static_cast<int32_t>(vec.size());
  if constexpr (std::is_enum_v<P>) {
    using B = std::underlying_type_t<P>;
    if constexpr (std::is_same_v<B, int8_t>) {
      return ::AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vec.data()), size);
    } else if constexpr (std::is_same_v<B, int32_t>) {
      return ::AParcel_writeInt32Array(parcel, reinterpret_cast<const int32_t*>(vec.data()), size);
    } else if constexpr (std::is_same_v<B, int64_t>) {
      return ::AParcel_writeInt64Array(parcel, reinterpret_cast<const int64_t*>(vec.data()), size);
    } else {
      static_assert(dependent_false_v<P>, "unsupported enum backing type");
    }
  } else {
    return ::AParcel_writeParcelableArray(parcel, static_cast<const void*>(&vec), size,
                                          AParcel_writeStdVectorParcelableElement<P>);
  }
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<P>* vec) {
  if constexpr (std::is_enum_v<P>) {
    using B = std::underlying_type_t<P>;
    if constexpr (std::is_same_v<B, int8_t>) {
      return ::AParcel_readByteArray(parcel, static_cast<void*>(vec),
                                     AParcel_stdVectorEnumAllocator<P>);
    } else if constexpr (std::is_same_v<B, int32_t>) {
      return ::AParcel_readInt32Array(parcel, static_cast<void*>(vec),
                                      AParcel_stdVectorEnumAllocator<P>);
    } else if constexpr (std::is_same_v<B, int64_t>) {
      return ::AParcel_readInt64Array(parcel, static_cast<void*>(vec),
                                      AParcel_stdVectorEnumAllocator<P>);
    } else {
      static_assert(dependent_false_v<P>, "unsupported enum backing type");
    }
  } else {
    return ::AParcel_readParcelableArray(parcel, static_cast<void*>(vec),
                                         AParcel_stdVectorAllocator<P>,
                                         AParcel_readStdVectorParcelableElement<P>);
  }
}

template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::optional<std::vector<P>>& vec) {
  if (!vec) return ::AParcel_writeInt32(parcel, -1);
  return AParcel_writeVector(parcel, *vec);
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::optional<std::vector<P>>* vec) {
  const int32_t start = ::AParcel_getDataPosition(parcel);
  int32_t size = 0;
  binder_status_t status = ::AParcel_readInt32(parcel, &size);
  if (status != STATUS_OK) return status;
  if (size == -1) {
    *vec = std::nullopt;
    return STATUS_OK;
  }
  status = ::AParcel_setDataPosition(parcel, start);
  if (status != STATUS_OK) return status;
  *vec = std::optional<std::vector<P>>(std::vector<P>{});
  return AParcel_readVector(parcel, &**vec);
}

// ---- generic entry points ----

template <typename T>
static inline binder_status_t AParcel_writeData(AParcel* parcel, const T& value) {
  if constexpr (is_specialization_v<T, std::vector>) {
    return AParcel_writeVector(parcel, value);
  } else if constexpr (std::is_same_v<std::string, T>) {
    return AParcel_writeString(parcel, value);
  } else if constexpr (std::is_same_v<bool, T>) {
    return ::AParcel_writeBool(parcel, value);
  } else if constexpr (std::is_same_v<int8_t, T> || std::is_same_v<uint8_t, T>) {
    return ::AParcel_writeByte(parcel, static_cast<int8_t>(value));
  } else if constexpr (std::is_same_v<char16_t, T>) {
    return ::AParcel_writeChar(parcel, value);
  } else if constexpr (std::is_same_v<int32_t, T>) {
    return ::AParcel_writeInt32(parcel, value);
  } else if constexpr (std::is_same_v<uint32_t, T>) {
    return ::AParcel_writeUint32(parcel, value);
  } else if constexpr (std::is_same_v<int64_t, T>) {
    return ::AParcel_writeInt64(parcel, value);
  } else if constexpr (std::is_same_v<uint64_t, T>) {
    return ::AParcel_writeUint64(parcel, value);
  } else if constexpr (std::is_same_v<float, T>) {
    return ::AParcel_writeFloat(parcel, value);
  } else if constexpr (std::is_same_v<double, T>) {
    return ::AParcel_writeDouble(parcel, value);
  } else if constexpr (std::is_enum_v<T>) {
    return AParcel_writeData(parcel, static_cast<std::underlying_type_t<T>>(value));
  } else if constexpr (is_interface_v<T>) {
    return AParcel_writeParcelable(parcel, value);
  } else if constexpr (is_parcelable_v<T>) {
    return AParcel_writeParcelable(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_writeRequiredStrongBinder(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_writeRequiredParcelFileDescriptor(parcel, value);
  } else {
    static_assert(dependent_false_v<T>, "unrecognized type");
    return STATUS_OK;
  }
}

template <typename T>
static inline binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
  if constexpr (is_specialization_v<T, std::vector>) {
    return AParcel_readVector(parcel, value);
  } else if constexpr (std::is_same_v<std::string, T>) {
    return AParcel_readString(parcel, value);
  } else if constexpr (std::is_same_v<bool, T>) {
    return ::AParcel_readBool(parcel, value);
  } else if constexpr (std::is_same_v<int8_t, T>) {
    return ::AParcel_readByte(parcel, value);
  } else if constexpr (std::is_same_v<uint8_t, T>) {
    int8_t v = 0;
    binder_status_t status = ::AParcel_readByte(parcel, &v);
    if (status == STATUS_OK) *value = static_cast<uint8_t>(v);
    return status;
  } else if constexpr (std::is_same_v<char16_t, T>) {
    return ::AParcel_readChar(parcel, value);
  } else if constexpr (std::is_same_v<int32_t, T>) {
    return ::AParcel_readInt32(parcel, value);
  } else if constexpr (std::is_same_v<uint32_t, T>) {
    return ::AParcel_readUint32(parcel, value);
  } else if constexpr (std::is_same_v<int64_t, T>) {
    return ::AParcel_readInt64(parcel, value);
  } else if constexpr (std::is_same_v<uint64_t, T>) {
    return ::AParcel_readUint64(parcel, value);
  } else if constexpr (std::is_same_v<float, T>) {
    return ::AParcel_readFloat(parcel, value);
  } else if constexpr (std::is_same_v<double, T>) {
    return ::AParcel_readDouble(parcel, value);
  } else if constexpr (std::is_enum_v<T>) {
    std::underlying_type_t<T> v{};
    binder_status_t status = AParcel_readData(parcel, &v);
    if (status == STATUS_OK) *value = static_cast<T>(v);
    return status;
  } else if constexpr (is_interface_v<T>) {
    return AParcel_readParcelable(parcel, value);
  } else if constexpr (is_parcelable_v<T>) {
    return AParcel_readParcelable(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_readRequiredStrongBinder(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_readRequiredParcelFileDescriptor(parcel, value);
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
  } else if constexpr (std::is_same_v<std::optional<std::string>, T>) {
    return AParcel_writeString(parcel, value);
  } else if constexpr (is_nullable_parcelable_v<T> || is_interface_v<T>) {
    return AParcel_writeNullableParcelable(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_writeNullableStrongBinder(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_writeNullableParcelFileDescriptor(parcel, value);
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
  } else if constexpr (std::is_same_v<std::optional<std::string>, T>) {
    return AParcel_readString(parcel, value);
  } else if constexpr (is_nullable_parcelable_v<T> || is_interface_v<T>) {
    return AParcel_readNullableParcelable(parcel, value);
  } else if constexpr (std::is_same_v<SpAIBinder, T>) {
    return AParcel_readNullableStrongBinder(parcel, value);
  } else if constexpr (std::is_same_v<ScopedFileDescriptor, T>) {
    return AParcel_readNullableParcelFileDescriptor(parcel, value);
  } else {
    static_assert(dependent_false_v<T>, "unrecognized type");
    return STATUS_OK;
  }
}

}  // namespace ndk
