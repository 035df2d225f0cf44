#include "platform/foundation/LocalizedText.h"

#include "platform/foundation/NSBundle.h"

#include <charconv>
#include <cstring>

namespace platform {

namespace {

/// What the system says of the failures that users meet. Others are told in English.
[[maybe_unused]] constexpr const char* kReasons[] = {
    translatable("Cannot allocate memory"),
    translatable("Connection refused"),
    translatable("Connection reset by peer"),
    translatable("Device or resource busy"),
    translatable("Directory not empty"),
    translatable("Disk quota exceeded"),
    translatable("Exec format error"),
    translatable("File exists"),
    translatable("File name too long"),
    translatable("File too large"),
    translatable("Input/output error"),
    translatable("Invalid argument"),
    translatable("Invalid cross-device link"),
    translatable("Is a directory"),
    translatable("No space left on device"),
    translatable("No such device or address"),
    translatable("No such file or directory"),
    translatable("Not a directory"),
    translatable("Operation not permitted"),
    translatable("Operation not supported"),
    translatable("Permission denied"),
    translatable("Read-only file system"),
    translatable("Resource temporarily unavailable"),
    translatable("Stale file handle"),
    translatable("Text file busy"),
    translatable("Too many levels of symbolic links"),
    translatable("Too many open files"),
};

} // namespace

std::string localized(std::string_view text, std::initializer_list<std::string_view> values)
{
    const std::string translated = NSBundle::mainBundle().localizedStringForKey(text);
    std::string_view rest = translated;
    std::string result;
    for (size_t next = 0; !rest.empty(); ++next) {
        const size_t field = rest.find('{');
        const size_t end = field == rest.npos ? field : rest.find('}', field);
        if (end == rest.npos)
            break;
        size_t index = next;
        std::from_chars(rest.data() + field + 1, rest.data() + end, index);
        result += rest.substr(0, field);
        if (index < values.size())
            result += values.begin()[index];
        rest.remove_prefix(end + 1);
    }
    result += rest;
    return result;
}

std::string reasonOfErrno(int errnoValue)
{
    // Not strerror, which may share a buffer between threads and knows only the languages of the C library.
    const char* reason = strerrordesc_np(errnoValue);
    return reason ? localized(reason) : localized("error {}", {std::to_string(errnoValue)});
}

} // namespace platform
