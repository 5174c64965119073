#include "capture/BRDirtyRects.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>

// Merging beside a plain copy of the same rectangles: what a grab pays before it reads a pixel. A
// typing terminal reports a handful of rectangles, a busy desktop some dozens, xeyes hundreds.

namespace {

constexpr PXRect kScreen{0, 0, 1920, 1080};

std::vector<PXRect> damage(int count)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<int> x(0, 1900);
    std::uniform_int_distribution<int> y(0, 1060);
    std::uniform_int_distribution<int> side(1, 60);
    std::vector<PXRect> rects;
    rects.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        rects.push_back({static_cast<float>(x(random)), static_cast<float>(y(random)),
                         static_cast<float>(side(random)), static_cast<float>(side(random))});
    return rects;
}

void merge(benchmark::State &state)
{
    const std::vector<PXRect> rects = damage(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) { // NOLINT(clang-analyzer-deadcode.DeadStores)
        benchmark::DoNotOptimize(BRMergeDirtyRects(rects, kScreen));
    }
    state.SetBytesProcessed(state.iterations()
                            * static_cast<std::int64_t>(rects.size() * sizeof(PXRect)));
}
BENCHMARK(merge)->Arg(4)->Arg(32)->Arg(256);

void copy(benchmark::State &state)
{
    const std::vector<PXRect> rects = damage(static_cast<int>(state.range(0)));
    std::vector<PXRect> copied(rects.size());
    for ([[maybe_unused]] auto _ : state) { // NOLINT(clang-analyzer-deadcode.DeadStores)
        std::memcpy(copied.data(), rects.data(), rects.size() * sizeof(PXRect));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations()
                            * static_cast<std::int64_t>(rects.size() * sizeof(PXRect)));
}
BENCHMARK(copy)->Arg(4)->Arg(32)->Arg(256);

} // namespace

BENCHMARK_MAIN();
