// Writes a deterministic tree of files for the capture benchmarks: a realistic
// mix of many small documents, some medium files and a few large ones, every
// file with distinct contents (so nothing dedupes by accident).
//
//   make_tree DIRECTORY [FILES=10000] [TOTAL_MIB=1024]
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_tree DIRECTORY [FILES] [TOTAL_MIB]\n");
        return 2;
    }
    const std::string root = argv[1];
    const long files = argc > 2 ? std::atol(argv[2]) : 10000;
    const double totalBytes = (argc > 3 ? std::atof(argv[3]) : 1024.0) * 1048576.0;
    std::mt19937_64 random(20251122);

    // Sizes: 80% small (1-32 KiB), 18% medium (64 KiB-1 MiB), 2% large (4-32 MiB), then scaled to the total.
    std::vector<double> sizes(static_cast<std::size_t>(files));
    double sum = 0;
    for (auto& size : sizes) {
        double pick = std::uniform_real_distribution<double>(0, 1)(random);
        if (pick < 0.80) size = std::uniform_real_distribution<double>(1024, 32768)(random);
        else if (pick < 0.98) size = std::uniform_real_distribution<double>(65536, 1048576)(random);
        else size = std::uniform_real_distribution<double>(4 << 20, 32 << 20)(random);
        sum += size;
    }
    const double scale = totalBytes / sum;
    ::mkdir(root.c_str(), 0755);
    std::vector<std::uint64_t> buffer;
    for (long i = 0; i < files; ++i) {
        // 100 folders of 100 files, two levels deep, like a documents folder.
        std::string directory = root + "/project-" + std::to_string(i / 1000) + "/part-" + std::to_string(i / 100 % 10);
        ::mkdir((root + "/project-" + std::to_string(i / 1000)).c_str(), 0755);
        ::mkdir(directory.c_str(), 0755);
        const auto bytes = std::size_t(sizes[std::size_t(i)] * scale);
        buffer.resize(bytes / 8 + 1);
        for (auto& word : buffer) word = random();
        std::string path = directory + "/file-" + std::to_string(i) + (i % 3 == 0 ? ".docx" : i % 3 == 1 ? ".txt" : ".png");
        FILE* out = std::fopen(path.c_str(), "wb");
        if (!out) {
            std::perror(path.c_str());
            return 1;
        }
        std::fwrite(buffer.data(), 1, bytes, out);
        std::fclose(out);
    }
    return 0;
}
