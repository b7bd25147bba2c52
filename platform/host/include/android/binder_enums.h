// Iteration over the enumerators of an AIDL enum (host build).
//
// The binding specialises ndk::internal::enum_values<E> for every enum, in
// declaration order; enum_range<E> iterates over it:
//   for (auto e : ndk::enum_range<MyEnum>()) { ... }
#pragma once

#include <array>
#include <iterator>
#include <type_traits>

namespace ndk {

namespace internal {
// Specialised for each AIDL enum as a constexpr std::array of its enumerators:
//   template <> constexpr inline std::array<E, 3> enum_values<E> = {...};
template <typename EnumType>
extern std::array<EnumType, 0> enum_values;
}  // namespace internal

template <typename EnumType, typename = std::enable_if_t<std::is_enum<EnumType>::value>>
struct enum_range {
  constexpr auto begin() const { return std::begin(internal::enum_values<EnumType>); }
  constexpr auto end() const { return std::end(internal::enum_values<EnumType>); }
};

}  // namespace ndk
