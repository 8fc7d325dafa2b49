// Every seed of the fuzz corpus and every input that once failed a fuzzer,
// run again through its reader: none may crash or leak (the sanitizer build
// runs these too).

#include "FuzzTargets.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Reader {
    const char* folder;
    void (*read)(const std::uint8_t*, std::size_t);
};
const Reader kReaders[] = {{"script", fuzzScript}, {"pdc", fuzzPdc}, {"obj", fuzzObj}, {"scene", fuzzSceneBinary}};

int replay(const char* kind) {
    int count = 0;
    for (const Reader& r : kReaders) {
        const fs::path dir = fs::path(MOTILANE_SOURCE_DIR) / "tests/fuzz" / kind / r.folder;
        if (!fs::exists(dir)) continue;
        std::vector<fs::path> files;
        for (const auto& e : fs::directory_iterator(dir))
            if (e.is_regular_file() && e.path().filename() != ".keep") files.push_back(e.path());
        std::sort(files.begin(), files.end());
        for (const fs::path& f : files) {
            std::ifstream in(f, std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            SCOPED_TRACE(f.string());
            r.read(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    return count;
}

TEST(FuzzReplay, SeedsAndInputsThatOnceFailedRunCleanly) {
    // The seeds are there (a corpus that went missing would leave the fuzzers blind), and every input a
    // fuzzer ever failed on stays fixed.
    EXPECT_GE(replay("corpus"), 12);
    replay("regressions");
}

} // namespace
