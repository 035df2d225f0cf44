#pragma once

#include <stillora/Error.h>

#include "client/command/options/Arguments.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace stillora {

/// A file that lists names of files: what --files-from and --null tell.
struct NameList {
    enum class NameEnd {
        /// A carriage return before it belongs to it.
        Line,
        /// Names may then hold line ends.
        Null,
    };

    /// "-" is standard input.
    std::string file;
    NameEnd nameEnd = NameEnd::Line;

    bool isStandardInput() const { return file == "-"; }
};

/// Reads --files-from and --null. Returns what is wrong, or nothing.
std::string readNameListOptions(const CommandArguments& arguments, std::optional<NameList>& list);

/// Reads the list to its end; a signal that comes meanwhile ends the program as usual.
/// @return the names in their order, without empty ones; an error, which names the list, if it cannot be read, or holds
///         what can be no name
Result<std::vector<std::string>> namesIn(const NameList& list);

/// For a list without a name.
Error errorOfEmptyList(const NameList& list);

/// Adds the names of a list, if there is one.
/// @return an error as of `namesIn`, or where there are then no names at all
template <typename Name>
Result<void> addListedNames(const std::optional<NameList>& list, std::vector<Name>& names)
{
    if (!list)
        return {};
    auto listed = namesIn(*list);
    if (!listed)
        return listed.error();
    for (std::string& name : *listed)
        names.emplace_back(std::move(name));
    return names.empty() ? Result<void>(errorOfEmptyList(*list)) : Result<void>();
}

} // namespace stillora
