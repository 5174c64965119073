#include "export/BRMovieRescue.h"

#include "export/BRCapturedMovie.h"
#include "tests/export/LibraryFolder.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <functional>

using Outcome = BRRescuedMovie::Outcome;
using testing::Contains;
using testing::Not;

namespace {

const QString kUUID = u"0B8F1A52-0000-4000-8000-000000000001"_s;

class MovieRescue : public testing::Test, protected LibraryFolder {
protected:
    [[nodiscard]] bool isNeeded() const
    {
        return BRMovieRescue::isNeeded(
            folderOf(kUUID), PXPropertyList::read(fileOf(kUUID, kBRMovieInfoName)),
            BRFrameStreamer::headerOfFile(fileOf(kUUID, kBRCaptureVideoDataName)));
    }
    BRRescuedMovie rescue() const
    {
        const auto rescued = BRMovieRescue::rescue(folderOf(kUUID), media);
        EXPECT_TRUE(rescued) << (rescued ? "" : PXErrorLine(rescued.error()).toStdString());
        return rescued.value_or(BRRescuedMovie());
    }
    std::unique_ptr<BRCapturedMovie> movie()
    {
        return BRCapturedMovie::withMovieInfoFilePath(fileOf(kUUID, kBRMovieInfoName), media,
                                                      defaults)
            .value();
    }
};

TEST_F(MovieRescue, MakesAnInterruptedRecordingAnOrdinaryOne)
{
    struct Case {
        const char *name;
        std::function<void()> damage;
        bool keepsName;
        QStringList sideFiles;
    };
    const QString info = fileOf(kUUID, kBRMovieInfoName);
    const Case cases[] = {
        {"killed", [] {}, true, {}},
        {"noInfo", [&] { QFile::remove(info); }, false, {}},
        {"tornInfo",
         [&] { writeFile(info, "<?xml version=\"1.0\"?><plist><dict><key>na"); },
         false,
         {u"Info.plist.damaged"_s}},
        {"infoOfTheWrongType",
         [&] { writeFile(info, "<plist version=\"1.0\"><array/></plist>"); },
         false,
         {u"Info.plist.damaged"_s}},
        {"lockLeftBehind", [&] { writeFile(fileOf(kUUID, u".lock"_s), {}); }, true, {}},
        {"noIndex",
         [&] { QFile::remove(fileOf(kUUID, kBRCaptureVideoDataName + u".index"_s)); },
         true,
         {}},
        {"sideFiles",
         [&] { writeFile(fileOf(kUUID, u"notes.txt"_s), "mine"); },
         true,
         {u"notes.txt"_s}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        QDir(folderOf(kUUID)).removeRecursively();
        record(kUUID, End::Killed);
        writeInfo(kUUID, {{u"name"_s, u"Lesson"_s}});
        c.damage();
        EXPECT_TRUE(isNeeded());
        const BRRescuedMovie rescued = rescue();
        EXPECT_EQ(rescued.outcome, Outcome::Rescued);
        EXPECT_EQ(rescued.frames, std::uint32_t{kFrames});
        EXPECT_EQ(rescued.bytesCut, 16U);
        const auto movie = this->movie();
        EXPECT_EQ(movie->numberOfFrames(), std::uint32_t{kFrames});
        EXPECT_EQ(movie->duration(), (kFrames - 1) / 2.0);
        EXPECT_EQ(movie->capturedVideoSize(), (PXSize{40, 30}));
        EXPECT_TRUE(movie->wasRescued());
        EXPECT_TRUE(movie->isUpsideDown());
        EXPECT_TRUE(movie->date().isValid());
        EXPECT_EQ(movie->name() == u"Lesson", c.keepsName);
        EXPECT_TRUE(movie->rawMovie());
        QStringList files{kBRCaptureVideoDataName, kBRCaptureVideoDataName + u".index"_s,
                          kBRCaptureVideoDataName + u".rest"_s, kBRMovieInfoName};
        files << c.sideFiles;
        EXPECT_THAT(filesOf(kUUID), testing::UnorderedElementsAreArray(files));
        EXPECT_FALSE(isNeeded());
        EXPECT_EQ(rescue().outcome, Outcome::Untouched);
    }
}

TEST_F(MovieRescue, FinishesTheSound)
{
    const struct {
        const char *name;
        bool hasFirst, hasSecond, isMergedAlready;
        int tracks;
    } cases[] = {
        {"none", false, false, false, 0},       {"first", true, false, false, 1},
        {"second", false, true, false, 1},      {"both", true, true, false, 2},
        {"bothAndMerged", true, true, true, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QDir(folderOf(kUUID)).removeRecursively();
        record(kUUID, End::Killed);
        writeInfo(kUUID, {{u"hasAudio"_s, true}});
        if (c.hasFirst)
            recordSound(kUUID, kBRCaptureAudioDataName);
        if (c.hasSecond)
            recordSound(kUUID, kBRSecondCaptureAudioDataName);
        if (c.isMergedAlready) {
            ASSERT_TRUE(media.insertSoundTrack(fileOf(kUUID, kBRSecondCaptureAudioDataName),
                                               fileOf(kUUID, kBRCaptureAudioDataName), {}));
        }
        EXPECT_EQ(rescue().outcome, Outcome::Rescued);
        EXPECT_EQ(movie()->hasAudio(), c.tracks > 0);
        EXPECT_THAT(filesOf(kUUID), Not(Contains(kBRSecondCaptureAudioDataName)));
        if (c.tracks > 0) {
            EXPECT_EQ(media.numberOfSoundTracks(fileOf(kUUID, kBRCaptureAudioDataName)).value_or(0),
                      c.tracks);
        }
    }
}

// As it is when a disk was full at the end of a recording: its picture is whole.
TEST_F(MovieRescue, JoinsTheSoundOfAWholeMovieAndGivesUpWhatNobodyCanRead)
{
    for (const bool isDamaged : {false, true}) {
        QDir(folderOf(kUUID)).removeRecursively();
        record(kUUID, End::Stopped);
        writeInfo(kUUID, {{u"hasAudio"_s, true}});
        recordSound(kUUID, kBRCaptureAudioDataName);
        recordSound(kUUID, kBRSecondCaptureAudioDataName);
        if (isDamaged) {
            writeFile(fileOf(kUUID, kBRSecondCaptureAudioDataName), "no sound at all");
        }
        EXPECT_TRUE(isNeeded());
        EXPECT_EQ(rescue().outcome, Outcome::Rescued);
        EXPECT_FALSE(movie()->wasRescued()) << "it was not interrupted";
        EXPECT_FALSE(isNeeded());
        EXPECT_EQ(filesOf(kUUID).contains(kBRSecondCaptureAudioDataName + u".damaged"_s),
                  isDamaged);
        EXPECT_EQ(media.numberOfSoundTracks(fileOf(kUUID, kBRCaptureAudioDataName)).value_or(0),
                  isDamaged ? 1 : 2);
    }
    // What holds nothing is no sound.
    writeFile(fileOf(kUUID, kBRSecondCaptureAudioDataName));
    EXPECT_FALSE(isNeeded());
}

TEST_F(MovieRescue, WhatCannotBeReadIsNotTakenForDamaged)
{
    record(kUUID, End::Stopped);
    const QByteArray info = QFile::encodeName(fileOf(kUUID, kBRMovieInfoName));
    ASSERT_EQ(mkfifo(info.constData(), 0600), 0);
    EXPECT_FALSE(isNeeded());
    EXPECT_EQ(rescue().outcome, Outcome::Untouched);
    QDir(folderOf(kUUID)).removeRecursively();
    record(kUUID, End::Killed);
    ASSERT_EQ(mkfifo(info.constData(), 0600), 0);
    EXPECT_FALSE(BRMovieRescue::rescue(folderOf(kUUID), media));
    EXPECT_THAT(filesOf(kUUID), Not(Contains(kBRMovieInfoName + u".damaged"_s)));
}

} // namespace
