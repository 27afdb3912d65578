#pragma once
// Result<T>: a value or an OLError, with the interface of std::expected
// (which Clang 14's library lacks).
#include <cassert>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "ostrel/ol_error.h"

namespace ostrel {

// Tag that makes a failed Result from an error: `return Failure(err);`.
struct Failure {
  explicit Failure(OLError e) : error(std::move(e)) {}
  OLError error;
};

template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : v_(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit by design
  Result(Failure f) : v_(std::in_place_index<1>, std::move(f.error)) {}  // NOLINT
  Result(OLError e) : v_(std::in_place_index<1>, std::move(e)) {}        // NOLINT

  bool has_value() const { return v_.index() == 0; }
  explicit operator bool() const { return has_value(); }

  T& value() & {
    assert(has_value());
    return std::get<0>(v_);
  }
  const T& value() const& {
    assert(has_value());
    return std::get<0>(v_);
  }
  T&& value() && {
    assert(has_value());
    return std::get<0>(std::move(v_));
  }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  const OLError& error() const {
    assert(!has_value());
    return std::get<1>(v_);
  }

  template <class U>
  T value_or(U&& fallback) const& {
    return has_value() ? std::get<0>(v_) : static_cast<T>(std::forward<U>(fallback));
  }

 private:
  std::variant<T, OLError> v_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Failure f) : error_(std::move(f.error)) {}  // NOLINT
  Result(OLError e) : error_(std::move(e)) {}        // NOLINT

  bool has_value() const { return !error_.has_value(); }
  explicit operator bool() const { return has_value(); }
  void value() const { assert(has_value()); }
  const OLError& error() const {
    assert(!has_value());
    return *error_;
  }

 private:
  std::optional<OLError> error_;
};

}  // namespace ostrel
