#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace stillora {

/// What kind of failure it was. Numbers are never given a second meaning.
enum class ErrorCode {
    /// None of the others; the message says more.
    Failed = 0,
    NothingToShow = 1,
    OutOfRange = 2,
    ServiceNotFound = 3,
    ServiceNotStarted = 4,
    ServiceEnded = 5,
    ServiceStalled = 6,
    ServiceFailed = 7,
    DiskFull = 8,
    NoDocument = 9,
    DocumentDamaged = 10,
    DocumentTooNew = 11,
    DocumentExists = 12,
    /// Another program has changed the document since it was opened.
    DocumentChanged = 13,
    /// The caller has asked to stop.
    Cancelled = 14,
    FileNotFound = 15,
    FileExists = 16,
    /// No permission to read or write the file.
    NoPermission = 17,
    /// The file is of a kind with which this cannot be done, or is damaged.
    Unsupported = 18,
    /// A sound cannot be cut without encoding it anew.
    NeedsEncoding = 19,
};

/// Why something failed.
struct Error {
    ErrorCode code = ErrorCode::Failed;
    /// The file or folder that it is about; empty where it is about none.
    std::filesystem::path file;
    /// One sentence, which names the file. In the user's language, which `setUpLocalization` chooses.
    std::string message;
};

/// What a function has made, or why it could not.
template <typename T>
class [[nodiscard]] Result final {
public:
    Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

    bool hasValue() const noexcept { return content_.index() == 0; }
    explicit operator bool() const noexcept { return hasValue(); }

    /// @name What was made; only where there is a value
    /// @{
    T& operator*() & noexcept { return *std::get_if<0>(&content_); }
    const T& operator*() const& noexcept { return *std::get_if<0>(&content_); }
    T&& operator*() && noexcept { return std::move(*std::get_if<0>(&content_)); }
    T* operator->() noexcept { return std::get_if<0>(&content_); }
    const T* operator->() const noexcept { return std::get_if<0>(&content_); }
    /// @}

    /// Only where there is no value.
    const Error& error() const noexcept { return *std::get_if<1>(&content_); }

private:
    std::variant<T, Error> content_;
};

/// Whether something was done, or why not.
template <>
class [[nodiscard]] Result<void> final {
public:
    Result() = default;
    Result(Error error) : error_(std::move(error)) {}

    explicit operator bool() const noexcept { return !error_; }

    /// Only where it was not done.
    const Error& error() const noexcept { return *error_; }

private:
    std::optional<Error> error_;
};

} // namespace stillora
