#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <span>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kMutations = 5000;
constexpr int kMostChangesAtOnce = 4;

/// Values at which lengths and counts break: signs, ends of ranges, one off.
constexpr std::uint8_t kInterestingBytes[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF};

// The remainder and not a distribution: the standard fixes what the generator gives, but not what
// a distribution makes of it, and a failure has to come back on the next machine.
std::size_t below(std::mt19937 &random, std::size_t limit)
{
    return limit == 0 ? 0 : random() % limit;
}

void change(Bytes &bytes, const std::vector<Bytes> &corpus, std::mt19937 &random)
{
    const std::size_t place = below(random, bytes.size());
    const auto here = bytes.begin() + static_cast<std::ptrdiff_t>(place);
    switch (below(random, bytes.empty() ? 1 : 6)) {
    case 0: { // Take a piece of another input.
        const Bytes &other = corpus[below(random, corpus.size())];
        const std::size_t from = below(random, other.size());
        const std::size_t count = below(random, std::min<std::size_t>(other.size() - from, 64));
        const auto first = other.begin() + static_cast<std::ptrdiff_t>(from);
        bytes.insert(here, first, first + static_cast<std::ptrdiff_t>(count));
        break;
    }
    case 1:
        *here = static_cast<std::uint8_t>(*here ^ (1U << below(random, 8)));
        break;
    case 2:
        *here = kInterestingBytes[below(random, std::size(kInterestingBytes))];
        break;
    case 3:
        std::fill_n(here, std::min<std::size_t>(4, bytes.size() - place),
                    kInterestingBytes[below(random, std::size(kInterestingBytes))]);
        break;
    case 4: // Cut a piece out.
        bytes.erase(here,
                    here
                        + static_cast<std::ptrdiff_t>(
                            below(random, std::min<std::size_t>(bytes.size() - place, 64))));
        break;
    default: // Cut the end off.
        bytes.resize(place);
        break;
    }
}

std::vector<Bytes> readCorpus(const char *folder)
{
    std::vector<std::filesystem::path> paths;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file())
            paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end()); // The folder's own order differs between machines.
    std::vector<Bytes> corpus;
    for (const auto &path : paths) {
        std::ifstream file(path, std::ios::binary);
        corpus.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return corpus;
}

void run(const Bytes &bytes)
{
    // A copy of exactly its size on the heap, so that AddressSanitizer sees one byte too far.
    const Bytes exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

} // namespace

/// Runs a fuzz target without libFuzzer: CORPUS, each file as it is and then changed.
int main(int argc, char **argv)
{
    if (argc != 2) {
        (void)std::fputs("usage: FUZZ_PROGRAM CORPUS\n", stderr);
        return 2;
    }
    const std::vector<Bytes> corpus = readCorpus(argv[1]);
    if (corpus.empty()) {
        (void)std::fprintf(stderr, "no inputs in %s\n", argv[1]);
        return 1;
    }
    for (const Bytes &bytes : corpus)
        run(bytes);
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same on every run.
    for (int i = 0; i < kMutations; ++i) {
        Bytes bytes = corpus[below(random, corpus.size())];
        for (std::size_t changes = 1 + below(random, kMostChangesAtOnce); changes > 0; --changes)
            change(bytes, corpus, random);
        run(bytes);
    }
    std::printf("%zu inputs and %d mutations\n", corpus.size(), kMutations);
    return 0;
}
