#include "Support/DynamicLibrary.h"

#include <gtest/gtest.h>

namespace {

using frameworks::DynamicLibrary;

TEST(DynamicLibrary, ThatIsThere_GivesItsFunctions) {
    const DynamicLibrary library("libm.so.6");
    ASSERT_TRUE(library.IsLoaded());
    double (*squareRoot)(double);
    ASSERT_TRUE(library.Find("sqrt", squareRoot));
    EXPECT_EQ(squareRoot(49.0), 7.0);
}

TEST(DynamicLibrary, WithoutAFunctionOfThatName_GivesNull) {
    const DynamicLibrary library("libm.so.6");
    void (*nothing)() = [] {};
    EXPECT_FALSE(library.Find("no function of this name", nothing));
    EXPECT_EQ(nothing, nullptr);
}

TEST(DynamicLibrary, ThatIsNotThere_GivesNothing) {
    const DynamicLibrary library("libof-nobody.so.1");
    EXPECT_FALSE(library.IsLoaded());
    // Not even what the program itself has.
    void (*nothing)() = [] {};
    EXPECT_FALSE(library.Find("malloc", nothing));
    EXPECT_EQ(nothing, nullptr);
}

}  // namespace
