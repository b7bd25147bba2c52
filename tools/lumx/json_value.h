// A small JSON reader for what lumxd's dump prints: one document in memory,
// read into a tree. Integers keep all 64 bits (counters); other numbers are
// doubles. Refuses anything that is not strict JSON, nesting deeper than 64
// levels, and trailing text other than white space.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace lumx::cli {

class JsonValue {
 public:
  enum class Type { kNull, kBool, kNumber, kString, kArray, kObject };

  // Parses `text`; on failure returns false with the reason and the byte
  // offset in `error`.
  static bool Parse(std::string_view text, JsonValue* out, std::string* error);

  Type type() const { return type_; }
  bool isNull() const { return type_ == Type::kNull; }
  bool isObject() const { return type_ == Type::kObject; }
  bool isArray() const { return type_ == Type::kArray; }
  bool isNumber() const { return type_ == Type::kNumber; }
  bool isString() const { return type_ == Type::kString; }
  bool isBool() const { return type_ == Type::kBool; }

  // Member of an object, or a null value when absent or not an object.
  const JsonValue& operator[](const std::string& key) const;
  bool has(const std::string& key) const;
  const std::map<std::string, JsonValue>& members() const { return object_; }
  const std::vector<JsonValue>& items() const { return array_; }

  bool boolean() const { return type_ == Type::kBool && bool_; }
  // The number as a double (0 when not a number).
  double number() const { return type_ == Type::kNumber ? number_ : 0.0; }
  // A non-negative integer, exact to 64 bits; 0 for anything else.
  uint64_t u64() const { return type_ == Type::kNumber && isUnsigned_ ? unsigned_ : 0; }
  const std::string& str() const { return string_; }

 private:
  friend class JsonReader;
  Type type_ = Type::kNull;
  bool bool_ = false;
  double number_ = 0.0;
  bool isUnsigned_ = false;
  uint64_t unsigned_ = 0;
  std::string string_;
  std::vector<JsonValue> array_;
  std::map<std::string, JsonValue> object_;
};

}  // namespace lumx::cli
