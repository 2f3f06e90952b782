// Runs a target over its corpus, and over mutations of it that are the same every time, where there is no fuzzer.
//
//     replay_TARGET FOLDER|FILE... [--mutations N]
//
// The input that runs is kept in TARGET.input in the working directory, for when it was the last one. Fails without any input.
#include "fuzz/input.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>

namespace {

namespace fs = std::filesystem;
using bytes = std::vector<tessaly::u8>;

std::vector<fs::path> files_in(const fs::path& place)
{
    if (!fs::is_directory(place))
        return {place};
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(place))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

bytes mutated(bytes content, std::minstd_rand& random)
{
    const auto any = [&](std::size_t below) { return static_cast<std::ptrdiff_t>(random() % std::max<std::size_t>(below, 1)); };
    for (auto times = 1 + any(4); times != 0; --times) {
        const auto at = content.begin() + any(content.size());
        switch (content.empty() ? 0 : any(4)) {
        case 0: content.insert(at, static_cast<tessaly::u8>(random())); break;
        case 1: content.erase(at); break;
        case 2: *at = static_cast<tessaly::u8>(random()); break;
        default: *at = static_cast<tessaly::u8>(*at ^ 1 << any(8)); break;
        }
    }
    return content;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<fs::path> files;
    unsigned mutations = 20;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--mutations" && i + 1 < argc)
            mutations = static_cast<unsigned>(std::stoul(argv[++i]));
        else
            std::ranges::copy(files_in(argv[i]), std::back_inserter(files));
    }
    const std::string now = fs::path(argv[0]).filename().string() + ".input";
    unsigned runs = 0;
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const bytes content{std::istreambuf_iterator<char>(in), {}};
        if (!in)
            return std::cerr << file << " cannot be read\n", 1;
        std::minstd_rand random{static_cast<unsigned>(content.size())};
        for (unsigned i = 0; i <= mutations; ++i, ++runs) {
            const bytes played = i == 0 ? content : mutated(content, random);
            std::ofstream(now, std::ios::binary).write(reinterpret_cast<const char*>(played.data()), std::ssize(played));
            LLVMFuzzerTestOneInput(played.data(), played.size());
        }
    }
    fs::remove(now);
    std::cout << files.size() << " files, " << runs << " runs\n";
    return files.empty();
}
