#pragma once
// The one failure type of the project: a Result<T> holds either a value or a
// sentence written for the person ("That folder does not exist."). Failures are
// built through failure(), so a Result<std::string> can never mistake a sentence
// for a value. Nothing here throws.

#include <cassert>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace vobbo {

// A sentence for the person, on its way out of a failed call.
struct Failure {
  std::string sentence;
};

inline Failure failure(std::string sentence) { return Failure{std::move(sentence)}; }

template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : v_(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit by design
  Result(Failure f) : v_(std::in_place_index<1>, std::move(f)) {}    // NOLINT: implicit by design

  bool ok() const { return v_.index() == 0; }
  explicit operator bool() const { return ok(); }

  // Requires: ok().
  T& value() & {
    assert(ok());
    return std::get<0>(v_);
  }
  const T& value() const& {
    assert(ok());
    return std::get<0>(v_);
  }
  T&& value() && {
    assert(ok());
    return std::get<0>(std::move(v_));
  }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T&& operator*() && { return std::move(*this).value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  // Requires: !ok().
  const std::string& error() const {
    assert(!ok());
    return std::get<1>(v_).sentence;
  }
  // The failure itself, to pass up unchanged: `return r.failure();`.
  Failure failure() const { return std::get<1>(v_); }

 private:
  std::variant<T, Failure> v_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Failure f)
      : failed_(true), sentence_(std::move(f.sentence)) {}  // NOLINT: implicit by design

  bool ok() const { return !failed_; }
  explicit operator bool() const { return ok(); }
  const std::string& error() const {
    assert(failed_);
    return sentence_;
  }
  Failure failure() const { return Failure{sentence_}; }

 private:
  bool failed_ = false;
  std::string sentence_;
};

}  // namespace vobbo
