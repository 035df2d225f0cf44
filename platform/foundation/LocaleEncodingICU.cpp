#include "platform/foundation/LocaleEncoding.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include <iconv.h>
#include <langinfo.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

namespace platform {

namespace {

/// Converts to the locale's charset, character by character.
class Charset final {
public:
    explicit Charset(const char* name) : converter_(iconv_open(name, "UTF-8")) {}
    ~Charset()
    {
        if (isOpen())
            iconv_close(converter_);
    }
    Charset(const Charset&) = delete;
    Charset& operator=(const Charset&) = delete;

    /// The text's bytes; nothing where the charset lacks some of it. A charset that is not known has ASCII alone.
    std::optional<std::string> bytesOf(std::string_view text) const
    {
        const bool isASCII = text.find_first_not_of(kASCII) == text.npos;
        if (isASCII || !isOpen())
            return isASCII ? std::optional(std::string(text)) : std::nullopt;
        // No charset of a locale takes more bytes for a character, shifts included.
        std::string bytes(text.size() * 4 + 8, '\0');
        std::string copy(text);
        char* from = copy.data();
        char* to = bytes.data();
        size_t left = copy.size();
        size_t room = bytes.size();
        iconv(converter_, nullptr, nullptr, nullptr, nullptr);
        // More than none were not converted exactly.
        if (iconv(converter_, &from, &left, &to, &room) != 0 || left > 0 ||
            iconv(converter_, nullptr, nullptr, &to, &room) != 0)
            return std::nullopt;
        bytes.resize(bytes.size() - room);
        return bytes;
    }

private:
    static constexpr std::string_view kASCII{
        "\t\n\r\x1b !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"};

    bool isOpen() const { return converter_ != reinterpret_cast<iconv_t>(-1); }

    const iconv_t converter_;
};

/// How characters of the translations, and their like, are written where they cannot be shown.
constexpr std::array<std::pair<char32_t, std::string_view>, 32> kSubstitutes{{
    {U'\u00A0', " "}, {U'\u202F', " "}, {U'\u2009', " "},  {U'ä', "ae"},      {U'ö', "oe"},      {U'ü', "ue"},
    {U'Ä', "Ae"},     {U'Ö', "Oe"},     {U'Ü', "Ue"},      {U'ß', "ss"},      {U'æ', "ae"},      {U'Æ', "AE"},
    {U'œ', "oe"},     {U'Œ', "OE"},     {U'ø', "o"},       {U'Ø', "O"},       {U'\u2018', "'"},  {U'\u2019', "'"},
    {U'\u201A', "'"}, {U'\u201B', "'"}, {U'\u201C', "\""}, {U'\u201D', "\""}, {U'\u201E', "\""}, {U'«', "\""},
    {U'»', "\""},     {U'\u2010', "-"}, {U'\u2011', "-"},  {U'\u2013', "-"},  {U'\u2014', "-"},  {U'\u2026', "..."},
    {U'×', "x"},      {U'\u2022', "*"},
}};

/// The letter without its accents; nothing where it has none.
std::optional<std::string> withoutAccents(char32_t character)
{
    UErrorCode failure = U_ZERO_ERROR;
    const icu::Normalizer2* const decomposer = icu::Normalizer2::getNFDInstance(failure);
    icu::UnicodeString parts;
    if (U_FAILURE(failure) || !decomposer->getDecomposition(static_cast<UChar32>(character), parts))
        return std::nullopt;
    std::string letter;
    icu::UnicodeString(parts.char32At(0)).toUTF8String(letter);
    return letter;
}

std::string substituteFor(char32_t character, const Charset& charset)
{
    for (const auto& [given, substitute] : kSubstitutes)
        if (given == character)
            return std::string(substitute);
    if (const auto letter = withoutAccents(character); letter && charset.bytesOf(*letter))
        return *letter;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "\\u{%X}", static_cast<unsigned>(character));
    return text.data();
}

bool isUTF8()
{
    return std::string_view(nl_langinfo(CODESET)) == "UTF-8";
}

std::string representable(std::string_view text, const Charset& charset)
{
    const auto whole = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    std::string result;
    for (int32_t i = 0; i < whole.length(); i = whole.moveIndex32(i, 1)) {
        std::string character;
        icu::UnicodeString(whole.char32At(i)).toUTF8String(character);
        result +=
            charset.bytesOf(character) ? character : substituteFor(static_cast<char32_t>(whole.char32At(i)), charset);
    }
    return result;
}

} // namespace

std::string representableInLocale(std::string_view text)
{
    return isUTF8() ? std::string(text) : representable(text, Charset(nl_langinfo(CODESET)));
}

std::string encodedForLocale(std::string_view text)
{
    if (isUTF8())
        return std::string(text);
    const Charset charset(nl_langinfo(CODESET));
    const std::string shown = representable(text, charset);
    return charset.bytesOf(shown).value_or(shown);
}

} // namespace platform
