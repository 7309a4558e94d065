// Stands in for libFuzzer where the compiler has none: runs the target once on each file of the folders
// given.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int main(int count, char** arguments) {
    std::size_t inputs = 0;
    for (int i = 1; i < count; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
            // The same input cut short, which is where parsers trip.
            for (std::size_t size = 0; size < text.size(); ++size) {
                const std::string cut(text, 0, size);
                LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(cut.data()), cut.size());
            }
            ++inputs;
        }
    }
    std::printf("%zu seeds\n", inputs);
    return inputs == 0;
}
