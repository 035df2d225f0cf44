#include "platform/foundation/NSBundle.h"

#include "platform/foundation/NSLocale.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

namespace platform {

namespace {

/// Who prefers it to another wants no translation of a text that is written in it.
constexpr std::string_view kLanguageOfTexts = "en";

/// Empty where the file cannot be read.
std::string contentsOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    try {
        return {std::istreambuf_iterator<char>(file), {}};
    } catch (const std::ios_base::failure&) {
        // Thrown whatever the stream was told, where the system cannot read.
        return {};
    }
}

/// Reads the tables of a compiled gettext catalogue. Nothing in it is trusted: a damaged file has no texts.
class CatalogueReader final {
public:
    explicit CatalogueReader(std::string bytes) : bytes_(std::move(bytes)) {}

    template <typename Texts>
    Texts texts()
    {
        static constexpr uint32_t kMagic = 0x950412DE;
        static constexpr uint32_t kMagicOfOtherByteOrder = 0xDE120495;
        const auto magic = numberAt(0);
        if (magic == kMagicOfOtherByteOrder)
            swapped_ = true;
        else if (magic != kMagic)
            return {};
        const auto count = numberAt(8);
        const auto keys = numberAt(12);
        const auto values = numberAt(16);
        if (!count || !keys || !values)
            return {};
        Texts texts;
        for (uint64_t i = 0; i < *count; ++i) {
            const auto key = textAt(*keys + 8 * i);
            const auto value = textAt(*values + 8 * i);
            if (!key || !value)
                return {};
            texts.emplace(*key, *value);
        }
        return texts;
    }

private:
    std::optional<uint32_t> numberAt(uint64_t offset) const
    {
        if (offset + 4 > bytes_.size())
            return std::nullopt;
        uint32_t number = 0;
        for (unsigned i = 0; i < 4; ++i) {
            const auto byte = static_cast<unsigned char>(bytes_[offset + i]);
            number |= uint32_t{byte} << (swapped_ ? 24 - 8 * i : 8 * i);
        }
        return number;
    }

    std::optional<std::string> textAt(uint64_t offset) const
    {
        const auto length = numberAt(offset);
        const auto start = numberAt(offset + 4);
        if (!length || !start || uint64_t{*start} + *length > bytes_.size())
            return std::nullopt;
        return bytes_.substr(*start, *length);
    }

    const std::string bytes_;
    bool swapped_ = false;
};

} // namespace

NSBundle& NSBundle::mainBundle()
{
    // Never destroyed: texts may still be asked for while the process ends.
    static auto& bundle = *new NSBundle;
    return bundle;
}

std::string NSBundle::localizedStringForKey(std::string_view key, std::string_view value, std::string_view table) const
{
    if (!key.empty() && !folder_.empty()) {
        const std::string domain(table.empty() ? std::string_view(domain_) : table);
        for (const std::string& language : languages_) {
            const auto& texts = catalogue(domain, language).texts;
            if (const auto found = texts.find(key); found != texts.end())
                return found->second;
            if (language == kLanguageOfTexts)
                break;
        }
    }
    return std::string(value.empty() ? key : value);
}

std::string NSBundle::localizedStringForCount(uint64_t count, std::string_view one, std::string_view many) const
{
    const std::string key = std::string(one) + '\0' + std::string(many);
    for (const std::string& language : languages_) {
        const auto& [forms, texts] = catalogue(domain_, language);
        const auto found = texts.find(key);
        if (found == texts.end() && language == kLanguageOfTexts)
            break;
        if (found == texts.end())
            continue;
        std::string_view text = found->second;
        for (uint64_t form = forms.formOf(count); form > 0 && text.find('\0') != text.npos; --form)
            text.remove_prefix(text.find('\0') + 1);
        return std::string(text.substr(0, text.find('\0')));
    }
    return std::string(count == 1 ? one : many);
}

void NSBundle::setLocalizations(std::string folder, std::string domain)
{
    const LockGuard guard(lock_);
    folder_ = std::move(folder);
    domain_ = std::move(domain);
    languages_ = preferredLanguages();
    catalogues_.clear();
}

const NSBundle::Catalogue& NSBundle::catalogue(const std::string& domain, const std::string& language) const
{
    const LockGuard guard(lock_);
    const auto [entry, isNew] = catalogues_.try_emplace(language + "/" + domain);
    if (isNew) {
        auto& [forms, texts] = entry->second;
        texts = CatalogueReader(contentsOf(folder_ + "/" + language + "/LC_MESSAGES/" + domain + ".mo"))
                    .texts<decltype(Catalogue::texts)>();
        // The empty key holds the catalogue's header.
        if (const auto header = texts.extract(""))
            forms = PluralForms(header.mapped());
    }
    return entry->second;
}

} // namespace platform
