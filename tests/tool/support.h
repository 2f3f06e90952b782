// What the tests of the tool share: a folder of its own for each test, threads that return a value, files as strings.
#pragma once

#include "tools/tessaly/commands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <string>

namespace tessaly::tool {

class ToolTest : public testing::Test {
protected:
    ToolTest()
    {
        ::unsetenv("TESSALY_NODE");
        std::string folder_template = testing::TempDir() + "tessaly.XXXXXX";
        folder = ::mkdtemp(folder_template.data());
        std::filesystem::current_path(folder);
    }
    ~ToolTest() override
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(folder);
    }

    // Names of what lies in the folder, hidden files too.
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto& each : std::filesystem::directory_iterator(folder))
            names.push_back(each.path().filename());
        std::ranges::sort(names);
        return names;
    }

    std::filesystem::path folder;
};

template <typename Work>
auto in_thread(Work work)
{
    return std::async(std::launch::async, std::move(work));
}

inline std::string content(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void create(const std::filesystem::path& path, std::string_view text)
{
    std::ofstream(path, std::ios::binary) << text;
}

}  // namespace tessaly::tool
