// The hot paths of the raw capture file beside a plain copy of the same bytes, in one run:
//   bench/framefile/make-frames FOLDER && TOLVANE_BENCH_FRAMES=FOLDER tolvane_framefile_bench
// Every benchmark walks through 256 MiB of frames, so that no cache holds what it reads.
// "of_copy" is its speed as a part of memcpy's, both in pixel bytes a second of the thread's own
// processor time, which says the same on a machine that is busy with something else.
#include "capture/framefile/BRFrameSmoosher.h"
#include "capture/framefile/BRFrameStreamer.h"
#include "capture/framefile/BRRowCodecs.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <lzo/lzo1x.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr std::size_t kRowBytes = std::size_t{kWidth} * 4;
constexpr std::size_t kFrameBytes = kRowBytes * kHeight;
constexpr std::size_t kFrames = (std::size_t{256} << 20) / kFrameBytes + 1;

using Frame = std::vector<std::byte>;

/// Frames of one kind of content, repeated until they fill the working set.
struct Content {
    std::vector<Frame> frames;
    double copySeconds = 0; ///< What memcpy takes a frame.
};

std::vector<Frame> load(const QDir &folder, const QString &pattern)
{
    std::vector<Frame> frames;
    for (const QString &name : folder.entryList({pattern}, QDir::Files, QDir::Name)) {
        QFile file(folder.filePath(name));
        Frame frame(kFrameBytes);
        if (!file.open(QIODevice::ReadOnly)
            || file.read(reinterpret_cast<char *>(frame.data()), kFrameBytes)
                != qint64{kFrameBytes})
            continue;
        frames.push_back(std::move(frame));
    }
    for (std::size_t i = 0; !frames.empty() && frames.size() < kFrames; ++i)
        frames.push_back(Frame(frames[i]));
    return frames;
}

/// The thread's processor time in seconds.
double now()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Times one frame an iteration, going round through the working set.
void run(benchmark::State &state, Content &content, const std::function<void(std::size_t)> &work)
{
    std::size_t i = 0;
    double seconds = 0;
    for ([[maybe_unused]] auto _ : state) { // NOLINT(clang-analyzer-deadcode.DeadStores)
        const double begin = now();
        work(i++ % content.frames.size());
        const double taken = now() - begin;
        state.SetIterationTime(taken);
        seconds += taken;
    }
    const double perFrame = seconds / static_cast<double>(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
    if (content.copySeconds > 0)
        state.counters["of_copy"] = content.copySeconds / perFrame;
    else
        content.copySeconds = perFrame;
}

std::size_t encodeFrame(const Frame &frame, std::byte *out)
{
    std::byte *next = out;
    for (int y = 0; y < kHeight; ++y) {
        const std::size_t length = RLECompressOpaqueBGRAToRGB(
            frame.data() + static_cast<std::size_t>(y) * kRowBytes, kWidth, next + 4, 0);
        const auto stored = static_cast<std::uint32_t>(length);
        std::memcpy(next, &stored, 4);
        next += 4 + length;
    }
    return static_cast<std::size_t>(next - out);
}

void addPixelBenchmarks(const std::string &name, const std::shared_ptr<Content> &content)
{
    // Targets of their own for each frame: writing counts for the working set as well.
    auto targets = std::make_shared<std::vector<Frame>>(kFrames, Frame(kFrameBytes));
    const auto add = [&](const char *what, std::function<void(std::size_t)> work) {
        benchmark::RegisterBenchmark(
            (name + "/" + what).c_str(),
            [content, work](benchmark::State &state) { run(state, *content, work); })
            ->UseManualTime();
    };
    add("copy", [=](std::size_t i) {
        std::memcpy((*targets)[i].data(), content->frames[i].data(), kFrameBytes);
    });
    add("rle encode", [=](std::size_t i) {
        benchmark::DoNotOptimize(encodeFrame(content->frames[i], (*targets)[i].data()));
    });
    add("pack opaque, turned around", [=](std::size_t i) {
        const std::byte *lowestRow = content->frames[i].data() + kFrameBytes - kRowBytes;
        BRFrameSmoosher::packOpaqueRows(lowestRow, -static_cast<std::ptrdiff_t>(kRowBytes), kWidth,
                                        kHeight, (*targets)[i].data());
    });
    add("flip", [=](std::size_t i) {
        BRFrameSmoosher::flipBuffer(content->frames[i].data(), (*targets)[i].data(), kWidth,
                                    kHeight, kRowBytes);
    });
    add("flip in place", [=](std::size_t i) {
        BRFrameSmoosher::flipBuffer((*targets)[i].data(), (*targets)[i].data(), kWidth, kHeight,
                                    kRowBytes);
    });
    add("byte order", [=](std::size_t i) {
        BRFrameSmoosher::convertBufferBetweenARGBAndBGRA((*targets)[i].data(), kWidth, kHeight,
                                                         kRowBytes);
    });
    add("lay a rectangle", [=](std::size_t i) {
        BRFrameSmoosher::overlayDirtyRect(content->frames[i].data(), (*targets)[i].data(),
                                          kRowBytes, {0, 0, kWidth, kHeight}, kHeight);
    });
}

void addDecodeBenchmark(const std::string &name, const std::shared_ptr<Content> &content)
{
    auto encoded = std::make_shared<std::vector<Frame>>();
    for (const Frame &frame : content->frames) {
        Frame bytes(kFrameBytes + kFrameBytes / 8);
        bytes.resize(encodeFrame(frame, bytes.data()));
        bytes.shrink_to_fit();
        encoded->push_back(std::move(bytes));
    }
    auto targets = std::make_shared<std::vector<Frame>>(kFrames, Frame(kFrameBytes));
    benchmark::RegisterBenchmark((name + "/rle decode").c_str(), [=](benchmark::State &state) {
        run(state, *content, [&](std::size_t i) {
            const std::byte *next = (*encoded)[i].data();
            for (std::size_t y = 0; y < kHeight; ++y) {
                std::uint32_t length = 0;
                std::memcpy(&length, next, 4);
                RLEUncompressRGBToARGB({next + 4, length},
                                       {(*targets)[i].data() + y * kRowBytes, kRowBytes});
                next += 4 + length;
            }
        });
        state.counters["size"]
            = static_cast<double>((*encoded)[0].size()) / static_cast<double>(kFrameBytes);
    })->UseManualTime();
}

/// The library alone on the frames as they lie in memory, the same after the packing pass, then
/// the streamer's whole way of a frame into a file in memory, and back.
void addStreamBenchmarks(const std::string &name, const std::shared_ptr<Content> &content)
{
    const auto addLibrary = [&](const char *what, bool packs) {
        benchmark::RegisterBenchmark((name + what).c_str(), [=](benchmark::State &state) {
            Frame out(kFrameBytes * 2);
            Frame work(LZO1X_1_MEM_COMPRESS);
            Frame packed(kFrameBytes);
            lzo_uint length = 0;
            run(state, *content, [&](std::size_t i) {
                const std::byte *pixels = content->frames[i].data();
                if (packs) {
                    BRFrameSmoosher::packOpaqueRows(pixels + kFrameBytes - kRowBytes,
                                                    -static_cast<std::ptrdiff_t>(kRowBytes), kWidth,
                                                    kHeight, packed.data());
                    pixels = packed.data();
                }
                lzo1x_1_compress(reinterpret_cast<const unsigned char *>(pixels), kFrameBytes,
                                 reinterpret_cast<unsigned char *>(out.data()), &length,
                                 work.data());
            });
            state.counters["size"] = static_cast<double>(length) / static_cast<double>(kFrameBytes);
        })->UseManualTime();
    };
    addLibrary("/lzo library alone", false);
    addLibrary("/lzo library after packing", true);

    for (const auto compression : {BRRawCompression::LZO, BRRawCompression::RLE}) {
        const char *what = compression == BRRawCompression::LZO ? "lzo" : "rle";
        const auto named
            = [&](const char *verb) { return std::string(name).append(verb).append(what); };
        benchmark::RegisterBenchmark(named("/stream ").c_str(), [=](benchmark::State &state) {
            // A folder in memory: the disk is not what is measured.
            QTemporaryDir folder(u"/dev/shm/tolvane-bench-XXXXXX"_s);
            const QString path = folder.filePath(u"frames"_s);
            const PXRect whole{0, 0, kWidth, kHeight};
            std::unique_ptr<BRFrameStreamer> streamer;
            int written = 0;
            run(state, *content, [&](std::size_t i) {
                // Starts again before the memory is full.
                if (written++ % 32 == 0)
                    streamer = BRFrameStreamer::withFilePathForWriting(path, whole.size(),
                                                                       compression, 0)
                                   .value();
                std::byte *pixels = content->frames[i].data();
                const PXPixelView view{pixels + kFrameBytes - kRowBytes,
                                       -static_cast<std::ptrdiff_t>(kRowBytes), kWidth, kHeight};
                if (!streamer->writeFrameWithDirtyRects({&whole, 1}, written)
                    || !streamer->writeDirtyRect(whole, whole, view))
                    std::abort();
            });
        })->UseManualTime();
        benchmark::RegisterBenchmark(named("/read ").c_str(), [=](benchmark::State &state) {
            QTemporaryDir folder(u"/dev/shm/tolvane-bench-XXXXXX"_s);
            const QString path = folder.filePath(u"frames"_s);
            const PXRect whole{0, 0, kWidth, kHeight};
            {
                auto writer
                    = BRFrameStreamer::withFilePathForWriting(path, whole.size(), compression, 0)
                          .value();
                for (std::uint32_t i = 0; i < 8; ++i) {
                    const PXPixelView view{content->frames[i].data(), kRowBytes, kWidth, kHeight};
                    if (!writer->writeFrameWithDirtyRects({&whole, 1}, i)
                        || !writer->writeDirtyRect(whole, whole, view))
                        std::abort();
                }
                if (!writer->setTotalNumberOfFrames(8))
                    std::abort();
            }
            auto reader = BRFrameStreamer::withFilePathForReading(path, false).value();
            Frame canvas(kFrameBytes);
            run(state, *content, [&](std::size_t i) {
                std::uint32_t count = 0;
                double timestamp = 0;
                PXRect rect;
                if (!reader->gotoFrameIndex(static_cast<std::uint32_t>(i % 8))
                    || !reader->readFrame(count, timestamp)
                    || !reader->readDirtyRectOntoCanvas(rect, canvas, BRPixelOrder::BGRA))
                    std::abort();
            });
        })->UseManualTime();
    }
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const QString folder = qEnvironmentVariable("TOLVANE_BENCH_FRAMES");
    for (const char *name : {"text", "motion"}) {
        auto content = std::make_shared<Content>();
        content->frames = load(QDir(folder), QLatin1StringView(name) + u"-*.bgra"_s);
        if (folder.isEmpty() || content->frames.empty()) {
            qCritical("Set TOLVANE_BENCH_FRAMES to a folder made by bench/framefile/make-frames.");
            return 2;
        }
        addPixelBenchmarks(name, content);
        addDecodeBenchmark(name, content);
        addStreamBenchmarks(name, content);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
