// Runs a fuzz target over the files of its corpus: replay FOLDER...
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include <stdint.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int count, char **folders) {
    int files = 0;
    for (int i = 1; i < count; i++)
        for (const auto &entry : std::filesystem::directory_iterator(folders[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
            files++;
        }
    std::cout << files << " inputs\n";
    return files ? 0 : 1;
}
