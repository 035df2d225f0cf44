#include "client/command/options/Suggestion.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace stillora;

TEST(Suggestion, NamesWhatIsNearest)
{
    const std::vector<std::string> names = {"create", "convert", "trim", "seconds", "save"};
    const std::pair<const char*, const char*> rows[] = {
        {"craete", "create"}, {"creat", "create"},   {"creates", "create"}, {"convrt", "convert"},
        {"tirm", "trim"},     {"second", "seconds"}, {"sav", "save"},
    };
    for (const auto& [typed, meant] : rows)
        EXPECT_EQ(withSuggestion("wrong", typed, names), std::string("wrong, did you mean ") + meant + "?") << typed;
    EXPECT_EQ(withSuggestion("wrong", "sevonds", names, "--"), "wrong, did you mean --seconds?");
}

TEST(Suggestion, NamesNothingWhereNothingIsNear)
{
    const std::vector<std::string> names = {"create", "trim"};
    for (const std::string typed : {"", "t", "movie", "xy", "rm", "destroy", "crxxxe"})
        EXPECT_EQ(withSuggestion("wrong", typed, names), "wrong") << typed;
    EXPECT_EQ(withSuggestion("wrong", std::string(100'000, 'c'), names), "wrong");
}
