#pragma once

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <clocale>
#include <cstdlib>
#include <string>
#include <string_view>

/// Numbers of the process have a decimal comma while this lives. The locale is made for the test, as few machines have
/// one installed.
class CommaLocale final {
public:
    CommaLocale() : path_("LOCPATH", folder_.path()), old_(setlocale(LC_NUMERIC, nullptr))
    {
        const std::string definition = folder_.makeFile("definition", "LC_NUMERIC\n"
                                                                      "decimal_point \",\"\n"
                                                                      "thousands_sep \".\"\n"
                                                                      "grouping 3;3\n"
                                                                      "END LC_NUMERIC\n");
        // It warns of the missing categories and ends with 1, but makes the locale.
        const std::string command = "localedef -c -i " + definition + " " + folder_.path("comma") + " >/dev/null 2>&1";
        isSet_ = std::system(command.c_str()) != -1 && setlocale(LC_NUMERIC, "comma") &&
                 std::string_view(localeconv()->decimal_point) == ",";
    }
    ~CommaLocale() { setlocale(LC_NUMERIC, old_.c_str()); }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    /// Whether it could be made.
    explicit operator bool() const { return isSet_; }

private:
    const TemporaryFolder folder_;
    const EnvironmentVariable path_;
    const std::string old_;
    bool isSet_ = false;
};
