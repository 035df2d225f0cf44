#include "client/batch/Receipt.h"

#include "client/batch/StateFolder.h"
#include "client/text/JSONValue.h"
#include "client/text/JSONWriter.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace stillora {

namespace {

/// Times in nanoseconds have more digits than JSON's numbers keep.
void add(JSONWriter& json, std::string_view name, const FileStamp& stamp)
{
    json.add(fmt::format("{}Bytes", name), stamp.bytes)
        .add(fmt::format("{}Modified", name), fmt::format("{}", stamp.modified));
}

int64_t wholeOf(const std::string& text)
{
    int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

FileStamp stampOf(const JSONValue& value, std::string_view name)
{
    return {value.wholeNumberOf(fmt::format("{}Bytes", name)), wholeOf(value.textOf(fmt::format("{}Modified", name)))};
}

} // namespace

std::string Receipt::text() const
{
    JSONWriter json;
    json.add("version", 1).add("id", id).add("line", static_cast<int64_t>(line)).add("movie", movie);
    add(json, "movie", movieStamp);
    json.add("checksum", checksum).add("made", made).add("seconds", seconds).add("peakBytes", peakBytes);
    json.add("machine", machine).add("worker", worker).add("settings", settings);
    json.add("inputDigest", inputDigest).add("contentDigest", contentDigest);
    std::vector<JSONWriter> files;
    for (const InputFile& file : inputs) {
        JSONWriter each;
        each.add("path", file.path).add("bytes", file.bytes).add("modified", fmt::format("{}", file.modified));
        if (!file.contents.empty())
            each.add("contents", file.contents);
        files.push_back(std::move(each));
    }
    json.add("inputs", files);
    if (!waitsAt.empty()) {
        json.add("waitsAt", waitsAt).add("replaced", replaced);
        add(json, "replaced", replacedStamp);
    }
    return json.text() + "\n";
}

std::optional<Receipt> Receipt::read(const std::filesystem::path& file)
{
    const auto text = StateFolder::read(file);
    JSONValue::Fault fault;
    const auto value = text ? JSONValue::read(*text, fault) : std::nullopt;
    if (!value || value->numberOf("version") != 1)
        return std::nullopt;
    Receipt receipt;
    receipt.id = value->textOf("id");
    receipt.line = static_cast<size_t>(std::max<int64_t>(0, value->wholeNumberOf("line")));
    receipt.movie = value->textOf("movie");
    receipt.movieStamp = stampOf(*value, "movie");
    receipt.checksum = value->textOf("checksum");
    receipt.made = value->textOf("made");
    receipt.seconds = value->numberOf("seconds");
    receipt.peakBytes = value->wholeNumberOf("peakBytes");
    receipt.machine = value->textOf("machine");
    receipt.worker = value->textOf("worker");
    receipt.settings = value->textOf("settings");
    receipt.inputDigest = value->textOf("inputDigest");
    receipt.contentDigest = value->textOf("contentDigest");
    if (const JSONValue* const inputs = value->member("inputs"); inputs && inputs->list())
        for (const JSONValue& each : *inputs->list())
            receipt.inputs.push_back({each.textOf("path"), each.wholeNumberOf("bytes"),
                                      wholeOf(each.textOf("modified")), each.textOf("contents")});
    receipt.waitsAt = value->textOf("waitsAt");
    receipt.replaced = value->textOf("replaced");
    receipt.replacedStamp = stampOf(*value, "replaced");
    return receipt;
}

} // namespace stillora
