#pragma once

#include <stillora/Error.h>
#include <stillora/Types.h>

#include <chrono>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace stillora {

/// Writes values as bytes, for a `Decoder` of the same build on the same machine.
///
/// A struct is written by a function `fields(coder, value)` beside it, which names its members in order and serves both
/// directions: `template <typename Coder> void fields(Coder& coder, Size& size) { coder(size.width, size.height); }`.
class Encoder final {
public:
    template <typename... Values>
    void operator()(const Values&... values)
    {
        (put(values), ...);
    }

    Bytes bytes() const
    {
        const auto written = std::as_bytes(std::span(bytes_));
        return {written.begin(), written.end()};
    }

private:
    template <typename Value>
    requires(std::is_arithmetic_v<Value> || std::is_enum_v<Value>) void put(Value value)
    {
        append(&value, sizeof value);
    }

    void put(const std::string& text)
    {
        putCount(text.size());
        append(text.data(), text.size());
    }

    void put(const std::filesystem::path& path) { put(path.native()); }

    void put(const Bytes& bytes)
    {
        putCount(bytes.size());
        append(bytes.data(), bytes.size());
    }

    void put(const std::vector<uint8_t>& bytes)
    {
        putCount(bytes.size());
        append(bytes.data(), bytes.size());
    }

    template <typename Rep, typename Period>
    void put(const std::chrono::duration<Rep, Period>& duration)
    {
        put(duration.count());
    }

    template <typename Clock, typename Duration>
    void put(const std::chrono::time_point<Clock, Duration>& time)
    {
        put(time.time_since_epoch());
    }

    template <typename Value>
    void put(const std::optional<Value>& value)
    {
        put(value.has_value());
        if (value)
            put(*value);
    }

    template <typename Value>
    void put(const std::vector<Value>& values)
    {
        putCount(values.size());
        for (const Value& value : values)
            put(value);
    }

    template <typename Value>
    void put(const Result<Value>& result)
    {
        put(result.hasValue());
        if (result)
            put(*result);
        else
            put(result.error());
    }

    template <typename Struct>
    requires std::is_class_v<Struct>
    void put(const Struct& value)
    {
        // The encoder changes nothing; the decoder needs the same function for what it fills.
        fields(*this, const_cast<Struct&>(value));
    }

    void putCount(size_t count) { put(static_cast<uint64_t>(count)); }

    void append(const void* bytes, size_t count) { bytes_.append(static_cast<const char*>(bytes), count); }

    std::string bytes_;
};

/// Reads what an `Encoder` wrote, and may have been written by anybody: nothing is read beyond the bytes, no count is
/// believed that they could not hold, and no value is made that its type does not have. Numbers with a fraction are
/// finite. An enumeration names its last value by a function `lastOf` beside it; its first one is 0.
class Decoder final {
public:
    explicit Decoder(std::span<const std::byte> bytes) : left_(bytes) {}

    /// After a failure the values that follow stay as they are.
    template <typename... Values>
    void operator()(Values&... values)
    {
        (get(values), ...);
    }

    /// Whether all that was asked for was there, and nothing is left.
    bool isWhole() const { return isGood_ && left_.empty(); }

private:
    template <typename Value>
    requires std::is_arithmetic_v<Value>
    void get(Value& value)
    {
        if (!has(sizeof value))
            return;
        Value read{};
        if constexpr (std::same_as<Value, bool>) {
            read = left_[0] == std::byte{1};
            isGood_ = read || left_[0] == std::byte{0};
        } else {
            std::memcpy(&read, left_.data(), sizeof read);
            if constexpr (std::is_floating_point_v<Value>)
                isGood_ = std::isfinite(read);
        }
        left_ = left_.subspan(sizeof value);
        if (isGood_)
            value = read;
    }

    template <typename Value>
    requires std::is_enum_v<Value>
    void get(Value& value)
    {
        using Number = std::underlying_type_t<Value>;
        auto number = static_cast<Number>(value);
        get(number);
        isGood_ = isGood_ && number >= Number{0} && number <= static_cast<Number>(lastOf(Value{}));
        if (isGood_)
            value = static_cast<Value>(number);
    }

    void get(std::string& text)
    {
        const size_t count = getCount();
        if (!has(count))
            return;
        text.assign(reinterpret_cast<const char*>(left_.data()), count);
        left_ = left_.subspan(count);
    }

    void get(std::filesystem::path& path)
    {
        std::string text;
        get(text);
        if (isGood_)
            path = std::move(text);
    }

    void get(Bytes& bytes)
    {
        const size_t count = getCount();
        if (!has(count))
            return;
        bytes.assign(left_.begin(), left_.begin() + static_cast<std::ptrdiff_t>(count));
        left_ = left_.subspan(count);
    }

    void get(std::vector<uint8_t>& bytes)
    {
        const size_t count = getCount();
        if (!has(count))
            return;
        const auto* const first = reinterpret_cast<const uint8_t*>(left_.data());
        bytes.assign(first, first + count);
        left_ = left_.subspan(count);
    }

    template <typename Rep, typename Period>
    void get(std::chrono::duration<Rep, Period>& duration)
    {
        Rep count{};
        get(count);
        if (isGood_)
            duration = std::chrono::duration<Rep, Period>(count);
    }

    template <typename Clock, typename Duration>
    void get(std::chrono::time_point<Clock, Duration>& time)
    {
        Duration sinceEpoch{};
        get(sinceEpoch);
        if (isGood_)
            time = std::chrono::time_point<Clock, Duration>(sinceEpoch);
    }

    template <typename Value>
    void get(std::optional<Value>& value)
    {
        bool isThere = false;
        get(isThere);
        if (isGood_ && isThere)
            get(value.emplace(Value{}));
    }

    template <typename Value>
    void get(std::vector<Value>& values)
    {
        // Each takes a byte at least, so that no more memory is taken than the bytes are worth.
        const size_t count = getCount();
        if (!has(count))
            return;
        values.clear();
        for (size_t i = 0; i < count && isGood_; ++i)
            get(values.emplace_back());
    }

    template <typename Value>
    void get(Result<Value>& result)
    {
        bool hasValue = false;
        get(hasValue);
        if (!isGood_)
            return;
        if (hasValue) {
            Value value{};
            get(value);
            result = std::move(value);
        } else {
            Error error;
            get(error);
            result = std::move(error);
        }
    }

    template <typename Struct>
    requires std::is_class_v<Struct>
    void get(Struct& value)
    {
        if (isGood_)
            fields(*this, value);
    }

    size_t getCount()
    {
        uint64_t count = 0;
        get(count);
        return isGood_ ? count : 0;
    }

    bool has(uint64_t count)
    {
        isGood_ = isGood_ && count <= left_.size();
        return isGood_;
    }

    std::span<const std::byte> left_;
    bool isGood_ = true;
};

} // namespace stillora
