#pragma once

#include <QString>
#include <utility>
#include <variant>

namespace qm {

// Why something did not happen, in one sentence a person can read ("the disk is full").
struct Error {
    QString reason;
    friend bool operator==(const Error&, const Error&) = default;
};

// The outcome of anything that can fail: a value, or an error that says why. Errors are
// values the caller must look at, never exceptions; the reason travels up unchanged so the
// message the user finally sees can name it.
template <class T, class E = Error> class [[nodiscard]] Result {
public:
    Result(T value)
        : m_outcome(std::in_place_index<0>, std::move(value)) {}
    Result(E error)
        : m_outcome(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_outcome.index() == 0; }
    explicit operator bool() const { return ok(); }

    // Only when ok().
    T& value() & { return std::get<0>(m_outcome); }
    const T& value() const& { return std::get<0>(m_outcome); }
    T&& value() && { return std::get<0>(std::move(m_outcome)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T&& operator*() && { return std::move(*this).value(); }

    // Only when !ok().
    const E& error() const { return std::get<1>(m_outcome); }

    T valueOr(T fallback) const& { return ok() ? value() : std::move(fallback); }

    friend bool operator==(const Result&, const Result&) = default;

private:
    std::variant<T, E> m_outcome;
};

// A step that yields nothing but may fail.
template <class E> class [[nodiscard]] Result<void, E> {
public:
    Result() = default;
    Result(E error)
        : m_error(std::move(error))
        , m_failed(true) {}

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    const E& error() const { return m_error; }

    friend bool operator==(const Result&, const Result&) = default;

private:
    E m_error{};
    bool m_failed = false;
};

using Status = Result<void>;

inline Error failure(QString reason) {
    return Error{std::move(reason)};
}

} // namespace qm
