// android::internal::ToString: the text form used by generated toString()
// methods (host build of the header-only helper of the same name).
//   bool -> "true"/"false"; arithmetic -> std::to_string; std::string as is;
//   optional / pointer-like -> "(null)" or the value; a type with a
//   toString() member or a free toString(T) found by ADL -> that;
//   iterables -> "[a, b]"; SpAIBinder -> "binder:<hex>"; interfaces ->
//   "<interface>"; file descriptors -> "fd:<n>"; anything else -> "{no toString() implemented}".
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

#include <stdint.h>

#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>

namespace android {
namespace internal {

namespace details {

template <typename T, typename = void>
struct HasToStringMethod : std::false_type {};
template <typename T>
struct HasToStringMethod<T, std::void_t<decltype(std::declval<const T&>().toString())>>
    : std::true_type {};

template <typename T, typename = void>
struct HasToStringFunction : std::false_type {};
template <typename T>
struct HasToStringFunction<T, std::void_t<decltype(toString(std::declval<const T&>()))>>
    : std::true_type {};

template <typename T, typename = void>
struct IsIterable : std::false_type {};
template <typename T>
struct IsIterable<T, std::void_t<decltype(std::begin(std::declval<const T&>())),
                                 decltype(std::end(std::declval<const T&>()))>> : std::true_type {};

template <typename T, typename = void>
struct IsPointerLike : std::false_type {};
template <typename T>
struct IsPointerLike<T, std::void_t<decltype(*std::declval<const T&>()),
                                    decltype(static_cast<bool>(std::declval<const T&>()))>>
    : std::bool_constant<!std::is_arithmetic_v<T>> {};

template <typename T>
struct IsSharedPtrToInterface : std::false_type {};
template <typename I>
struct IsSharedPtrToInterface<std::shared_ptr<I>>
    : std::bool_constant<std::is_base_of_v<::ndk::ICInterface, I>> {};

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

}  // namespace details

template <typename T>
std::string ToString(const T& t) {
  if constexpr (std::is_same_v<bool, T>) {
    return t ? "true" : "false";
  } else if constexpr (std::is_same_v<char16_t, T>) {
    return std::to_string(static_cast<uint32_t>(t));
  } else if constexpr (std::is_arithmetic_v<T>) {
    return std::to_string(t);
  } else if constexpr (std::is_same_v<std::string, T>) {
    return t;
  } else if constexpr (std::is_same_v<::ndk::SpAIBinder, T>) {
    std::stringstream ss;
    ss << "binder:" << std::hex << reinterpret_cast<uintptr_t>(t.get());
    return ss.str();
  } else if constexpr (std::is_same_v<::ndk::ScopedFileDescriptor, T>) {
    return "fd:" + std::to_string(t.get());
  } else if constexpr (details::IsSharedPtrToInterface<T>::value) {
    return "<interface>";
  } else if constexpr (details::HasToStringMethod<T>::value) {
    return t.toString();
  } else if constexpr (details::HasToStringFunction<T>::value) {
    return toString(t);
  } else if constexpr (details::IsOptional<T>::value || details::IsPointerLike<T>::value) {
    if (!t) return "(null)";
    return ToString(*t);
  } else if constexpr (details::IsIterable<T>::value) {
    std::stringstream out;
    bool first = true;
    out << "[";
    for (const auto& e : t) {
      if (first) {
        first = false;
      } else {
        out << ", ";
      }
      out << ToString(e);
    }
    out << "]";
    return out.str();
  } else {
    return "{no toString() implemented}";
  }
}

}  // namespace internal
}  // namespace android
