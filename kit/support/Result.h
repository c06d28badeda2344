// One error type for kit, core and server: what kind, where, and the system's reason. Wording for
// people is made at the edge (report lines, alerts, the terminal), never here.
#pragma once

#include <cassert>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>

namespace kit {

enum class ErrorKind {
    None,
    NotFound,     // the thing is not there
    Denied,       // no rights
    Full,         // no space, quota or file size limit
    ReadOnly,     // medium or file system cannot be written
    Damaged,      // bytes that cannot be what they should be
    Exists,       // in the way
    Unsupported,  // this file system, build or version cannot do it
    Aborted,      // somebody asked to stop
    TooLarge,     // beyond a limit
    Invalid,      // the caller's input
    Io,           // any other failure of the system
};

struct [[nodiscard]] Error {
    ErrorKind kind = ErrorKind::None;
    int code = 0;        // errno, 0 where there is none
    std::string path;    // bytes; what it happened to
    std::string detail;  // a few English words for logs and text 279

    static Error FromErrno(int code, std::string path, std::string detail = {});
    static Error Make(ErrorKind kind, std::string path, std::string detail = {}) {
        return {kind, 0, std::move(path), std::move(detail)};
    }
    // "detail: path: reason" with whatever parts there are.
    std::string Text() const;
};

// Success, or an error.
class [[nodiscard]] Status {
public:
    Status() = default;
    Status(Error error) : fError(std::move(error)) {}  // NOLINT: `return Error{…}` is the point
    bool ok() const { return !fError; }
    explicit operator bool() const { return ok(); }
    const Error& error() const { return *fError; }

private:
    std::optional<Error> fError;
};

// A value, or an error.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : fValue(std::move(value)) {}      // NOLINT: `return value` is the point
    Result(Error error) : fError(std::move(error)) {}  // NOLINT: `return Error{…}` is the point
    bool ok() const { return fValue.has_value(); }
    explicit operator bool() const { return ok(); }
    T& value() { return *fValue; }
    const T& value() const { return *fValue; }
    T& operator*() { return *fValue; }
    const T& operator*() const { return *fValue; }
    T* operator->() { return &*fValue; }
    const T* operator->() const { return &*fValue; }
    const Error& error() const { return fError; }

private:
    std::optional<T> fValue;
    Error fError;
};

}  // namespace kit
