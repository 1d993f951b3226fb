#include "Platform/ProcessFacts.h"
#include "Platform/StandardFolders.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace veltry {
namespace {

/// Sets a variable, and puts back what was there.
class Variable {
public:
    Variable(std::string name, const char* value) : name_(std::move(name)), before_(ProcessFacts::variable(name_))
    {
        set(value);
    }

    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

    ~Variable() { set(before_ ? before_->c_str() : nullptr); }

    void set(const char* value)
    {
        if (value)
            ::setenv(name_.c_str(), value, 1);
        else
            ::unsetenv(name_.c_str());
    }

private:
    std::string name_;
    std::optional<std::string> before_;
};

TEST(ProcessFacts, tellsAnEmptyVariableFromNone)
{
    Variable variable("VELTRY_TEST_VARIABLE", "");
    EXPECT_EQ(ProcessFacts::variable("VELTRY_TEST_VARIABLE"), "");
    EXPECT_EQ(ProcessFacts::environment().at("VELTRY_TEST_VARIABLE"), "");
    variable.set("a=b");
    EXPECT_EQ(ProcessFacts::environment().at("VELTRY_TEST_VARIABLE"), "a=b");
    variable.set(nullptr);
    EXPECT_EQ(ProcessFacts::variable("VELTRY_TEST_VARIABLE"), std::nullopt);
    EXPECT_FALSE(ProcessFacts::environment().contains("VELTRY_TEST_VARIABLE"));
}

TEST(StandardFolders, passesOverARelativeDataFolder)
{
    const Variable home("HOME", "/home/someone");
    Variable data("XDG_DATA_HOME", "/data");
    EXPECT_EQ(StandardFolders::applicationSupport(), "/data");
    for (const char* none : {"", "data", static_cast<const char*>(nullptr)}) {
        data.set(none);
        EXPECT_EQ(StandardFolders::applicationSupport(), "/home/someone/.local/share");
    }
}

TEST(StandardFolders, findsAHomeWithoutTheVariable)
{
    const Variable home("HOME", nullptr);
    EXPECT_TRUE(StandardFolders::home().is_absolute());
}

} // namespace
} // namespace veltry
