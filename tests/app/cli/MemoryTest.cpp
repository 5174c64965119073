#include "tests/app/cli/CommandLine.h"
#include "tests/export/LibraryFolder.h"
#include "tests/ffmpeg/MovieProbe.h"
#include "tests/support/Sanitizers.h"

#include <sys/resource.h>

namespace {

/// A codec and a size.
using MemoryCase = std::pair<const char *, const char *>;

/// The real program, exporting with less and less short memory.
class ExportWithLittleMemory : public CommandLineTest,
                               public testing::WithParamInterface<MemoryCase> {
protected:
    [[nodiscard]] Outcome run(const QStringList &arguments, rlim_t memory) const
    {
        QProcess process;
        process.setChildProcessModifier([memory] {
            const rlimit limit{memory, memory};
            setrlimit(RLIMIT_AS, &limit);
        });
        start(process, arguments);
        return outcomeOf(process);
    }

    static constexpr rlim_t kStep = rlim_t{16} << 20;
};

INSTANTIATE_TEST_SUITE_P(Codecs, ExportWithLittleMemory,
                         testing::Values(MemoryCase{"avc1", "2000x1500"},
                                         MemoryCase{"mp4v", "2000x1500"},
                                         MemoryCase{"jpeg", "2000x1500"},
                                         MemoryCase{"raw", "3000x2000"}),
                         [](const auto &row) { return std::string(row.param.first); });

// From where the program can just run to where the export succeeds.
TEST_P(ExportWithLittleMemory, SaysSoInALineAndTheOldFileComesBack)
{
    if (kIsSanitized)
        GTEST_SKIP() << "a sanitizer needs more addresses than any limit leaves";
    constexpr int kFrames = 12;
    const LibraryFolder library(path(u"library"_s));
    library.record(u"A"_s, LibraryFolder::End::Stopped, kFrames);
    const QString capture = library.fileOf(u"A"_s, kBRCaptureVideoDataName);
    const QString output = path(u"out/movie.mov"_s);
    const auto arguments = words("export --no-audio --video-codec")
        << QString::fromLatin1(GetParam().first).leftJustified(4) << u"--size"_s
        << QString::fromLatin1(GetParam().second) << u"-o"_s << output << capture;
    rlim_t memory = kStep;
    while (run({u"info"_s, capture}, memory).status != 0)
        memory += kStep;
    int failuresWhileEncoding = 0;
    for (;; memory += kStep) {
        writeFile(output, "the movie of yesterday");
        const Outcome outcome = run(arguments, memory);
        EXPECT_EQ(QDir(path(u"out"_s)).entryList(QDir::Files | QDir::Hidden),
                  QStringList(u"movie.mov"_s))
            << memory;
        if (outcome.status == 0 || HasFailure())
            break;
        EXPECT_EQ(outcome.status, 1);
        // The encoder's libraries have words of their own.
        EXPECT_EQ(outcome.errors.count(u"tolvane: "_s), 1) << outcome.errors.toStdString();
        EXPECT_EQ(contentsOf(output), "the movie of yesterday") << memory;
        failuresWhileEncoding += outcome.errors.contains(u"Could not make the movie"_s) ? 1 : 0;
    }
    EXPECT_GT(failuresWhileEncoding, 0);
    EXPECT_EQ(MovieProbe::of(output).times.size(), kFrames) << "none is lost on the way";
}

} // namespace
