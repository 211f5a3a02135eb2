// The outcome of an operation whose form was ours to choose: success, with a value where
// the operation gives one, or the code of what went wrong (one of the plug-in's result
// codes, or one of the configuration store's negative codes). Results must be looked at.
#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <utility>

namespace qor {
namespace vela {

template <typename T = void>
class [[nodiscard]] Result {
public:
    static Result Success(T value) { return Result(0, std::move(value)); }
    // `code` is never 0: a failure always says what failed.
    static Result Failure(int32_t code) {
        assert(code != 0);
        return Result(code, std::nullopt);
    }

    bool ok() const { return m_code == 0; }
    int32_t code() const { return m_code; }
    // Only of a success.
    const T& value() const {
        assert(ok());
        return *m_value;
    }
    T& value() {
        assert(ok());
        return *m_value;
    }

private:
    Result(int32_t code, std::optional<T> value) : m_code(code), m_value(std::move(value)) {}

    int32_t m_code;
    std::optional<T> m_value;
};

template <>
class [[nodiscard]] Result<void> {
public:
    static Result Success() { return Result(0); }
    static Result Failure(int32_t code) {
        assert(code != 0);
        return Result(code);
    }
    // 0 is success, anything else a failure with that code.
    static Result FromCode(int32_t code) { return Result(code); }

    bool ok() const { return m_code == 0; }
    int32_t code() const { return m_code; }

private:
    explicit Result(int32_t code) : m_code(code) {}

    int32_t m_code;
};

}  // namespace vela
}  // namespace qor
