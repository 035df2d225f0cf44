#include "client/text/JSONWriter.h"

#include "platform/foundation/NSString.h"

#include <cmath>

#include <fmt/format.h>

namespace stillora {

namespace {

std::string inQuotes(std::string_view text)
{
    std::string result = "\"";
    for (const char c : platform::stringByReplacingInvalidUTF8(text)) {
        if (c == '"' || c == '\\')
            (result += '\\') += c;
        else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            result += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
        else
            result += c;
    }
    return result + "\"";
}

} // namespace

JSONWriter& JSONWriter::addRaw(std::string_view key, std::string_view value)
{
    if (!members_.empty())
        members_ += ", ";
    members_ += inQuotes(key);
    members_ += ": ";
    members_ += value;
    return *this;
}

JSONWriter& JSONWriter::add(std::string_view key, std::string_view value)
{
    return addRaw(key, inQuotes(value));
}

JSONWriter& JSONWriter::add(std::string_view key, bool value)
{
    return addRaw(key, value ? "true" : "false");
}

JSONWriter& JSONWriter::add(std::string_view key, int64_t value)
{
    return addRaw(key, fmt::format("{}", value));
}

JSONWriter& JSONWriter::add(std::string_view key, double value)
{
    // The shortest text that reads back as the same number; always with a point in the C manner.
    return std::isfinite(value) ? addRaw(key, fmt::format("{}", value)) : addNull(key);
}

JSONWriter& JSONWriter::addNull(std::string_view key)
{
    return addRaw(key, "null");
}

JSONWriter& JSONWriter::add(std::string_view key, const JSONWriter& object)
{
    return addRaw(key, object.text());
}

JSONWriter& JSONWriter::add(std::string_view key, const std::vector<JSONWriter>& objects)
{
    std::string list;
    for (const JSONWriter& object : objects)
        list += (list.empty() ? "" : ", ") + object.text();
    return addRaw(key, "[" + list + "]");
}

JSONWriter& JSONWriter::add(std::string_view key, const std::vector<std::string>& strings)
{
    std::string list;
    for (const std::string& string : strings)
        list += (list.empty() ? "" : ", ") + inQuotes(string);
    return addRaw(key, "[" + list + "]");
}

JSONWriter& JSONWriter::addAll(const JSONWriter& object)
{
    if (!members_.empty() && !object.members_.empty())
        members_ += ", ";
    members_ += object.members_;
    return *this;
}

} // namespace stillora
