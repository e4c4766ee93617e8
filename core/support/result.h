#pragma once

#include <string>
#include <utility>
#include <variant>

namespace holdenmere {

// Why something could not be done, in words a person reads after the fixed
// prefix of the line that reports it.
struct Failure {
    std::string text;
    friend bool operator==(const Failure&, const Failure&) = default;
};

// A value, or the failure that stood in its way. It must be looked at: a
// reader that could not read is "could not tell", never an empty answer.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
    Result(Failure failure) : state_(std::move(failure)) {}  // NOLINT(google-explicit-constructor)

    bool ok() const { return std::holds_alternative<T>(state_); }
    explicit operator bool() const { return ok(); }

    // Only when ok().
    const T& value() const& { return std::get<T>(state_); }
    T& value() & { return std::get<T>(state_); }
    T&& value() && { return std::get<T>(std::move(state_)); }
    const T& operator*() const& { return value(); }
    const T* operator->() const { return &value(); }

    // Only when not ok().
    const Failure& failure() const { return std::get<Failure>(state_); }

private:
    std::variant<T, Failure> state_;
};

}  // namespace holdenmere
