#include "client/batch/manifest/ManifestLine.h"
#include "client/text/JSONValue.h"
#include "client/text/JSONWriter.h"
#include "tests/attack/fuzz/Checked.h"

#include <cmath>
#include <string>
#include <string_view>
#include <vector>

using namespace stillora;

namespace {

constexpr int kDeepest = 64;

void mustBeWhole(const JSONValue& value, int depth)
{
    mustHold(depth < kDeepest, "what is read is not nested deeply");
    mustHold(value.number() == nullptr || std::isfinite(*value.number()), "a number is one");
    if (const std::string* const text = value.text()) {
        mustHold(text->find('\0') == std::string::npos, "a text can be a path");
        JSONValue::Fault fault;
        JSONWriter writer;
        const auto again = JSONValue::read(writer.add("text", *text).text(), fault);
        mustHold(again && again->textOf("text") == *text, "a text that is written is read as it was");
    }
    if (value.list())
        for (const JSONValue& each : *value.list())
            mustBeWhole(each, depth + 1);
    if (value.object())
        for (const auto& [name, each] : *value.object()) {
            mustHold(value.member(name) == &each, "each name stands there once");
            mustBeWhole(each, depth + 1);
        }
}

} // namespace

// A line of a manifest, which is JSON.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    JSONValue::Fault fault;
    const auto value = JSONValue::read(text, fault);
    mustHold(value.has_value() == fault.reason.empty(), "a refusal has a reason");
    mustHold(fault.place <= length, "what is wrong lies in the text");
    if (value)
        mustBeWhole(*value, 0);
    std::vector<ManifestFault> faults;
    const auto movie = readManifestLine(text, "/nowhere", 1, faults);
    mustHold(movie.has_value() == faults.empty(), "a refusal has a reason");
    for (const ManifestFault& each : faults)
        mustHold(!each.reason.empty(), "a reason says something");
    if (!movie)
        return 0;
    mustHold(value && value->object(), "a line is an object");
    mustHold(movie->key.size() == 32, "a movie is found again");
    mustHold(!movie->options.photos.empty(), "a movie has photos");
    for (const auto& photo : movie->options.photos)
        mustHold(photo.is_absolute(), "a photo is found from anywhere");
    return 0;
}
