// The unit tests run in a temporary directory of their own, where the trace log lands, and without
// progress lines on the console.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);

    std::string pattern = (std::filesystem::temp_directory_path() / "qaven-unit-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::cerr << "cannot create " << pattern << '\n';
        return EXIT_FAILURE;
    }
    const std::filesystem::path start = std::filesystem::current_path();
    std::filesystem::current_path(pattern);
    setenv("QAVEN_DIAGNOSTICS", "off", 1);

    const int result = RUN_ALL_TESTS();

    std::filesystem::current_path(start);
    std::filesystem::remove_all(pattern);
    return result;
}
