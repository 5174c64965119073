#include "app/BRSessionOptions.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

class BRSessionOptionsTest : public testing::Test {
protected:
    const QTemporaryDir _folder;
    PXDefaults _defaults{_folder.filePath(u"settings.plist"_s)};
    BRScreenRecordingOptions _options;

    void fillWith(const QVariantMap &settings)
    {
        _defaults.registerDefaults(settings);
        BRSessionOptions::fill(_options, _defaults);
    }
};

TEST_F(BRSessionOptionsTest, WhatSettingsLeaveOpenStaysFromTheRecordingBefore)
{
    fillWith({{u"cameraMode"_s, 0},
              {u"screenSelectionRect"_s, u"{{10, 20}, {300, 200}}"_s},
              {u"optimizeFor"_s, 1},
              {u"lossyLevel"_s, 3}});
    EXPECT_EQ(_options.screenSelectionRect, (PXRect{10, 20, 300, 200}));
    EXPECT_EQ(_options.screenSelectionSize, (PXSize{300, 200}));
    EXPECT_EQ(_options.videoCompression, 2);
    EXPECT_EQ(_options.lossyLevel, 3);

    fillWith({{u"cameraMode"_s, 1},
              {u"cursorCameraWidth"_s, 640.9},
              {u"cursorCameraHeight"_s, 480},
              {u"optimizeFor"_s, 7}});
    EXPECT_EQ(_options.screenSelectionRect, (PXRect{10, 20, 300, 200}));
    EXPECT_EQ(_options.screenSelectionSize, (PXSize{640, 480}));
    EXPECT_EQ(_options.videoCompression, 2);
    EXPECT_EQ(_options.lossyLevel, 3);

    fillWith({{u"cameraMode"_s, 2}, {u"cursorCameraWidth"_s, 1}, {u"optimizeFor"_s, 0}});
    EXPECT_EQ(_options.screenSelectionSize, (PXSize{640, 480}));
    EXPECT_EQ(_options.videoCompression, 1);
    EXPECT_EQ(_options.lossyLevel, 0);
}

TEST_F(BRSessionOptionsTest, FractionsReachTheRecorderButNotTheMovieInfo)
{
    fillWith({{u"cameraMode"_s, 1},
              {u"cursorCameraWidth"_s, 640},
              {u"cursorCameraHeight"_s, 480},
              {u"captureRate"_s, 29.97},
              {u"captureScale"_s, 50},
              {u"showMouseCursor"_s, true}});
    EXPECT_EQ(_options.numberOfFramesPerSecond, 29.97F);
    EXPECT_EQ(_options.scale, 0.5F);
    EXPECT_TRUE(_options.showCursor);
    EXPECT_FALSE(_options.displayMovieBounds);

    const QDateTime date(QDate(2010, 5, 4), QTime(3, 2, 1), Qt::UTC);
    const QVariantMap info
        = BRSessionOptions::movieInfo(u"AB-12"_s, _options, _defaults, false, date);
    ASSERT_TRUE(BRSessionOptions::writeMovieInfo(info, _folder.path()));
    const QVariantMap read = PXPropertyList::read(_folder.filePath(u"Info.plist"_s)).value();
    const QVariantMap expected = {{u"uuid"_s, u"AB-12"_s},       {u"captureRate"_s, qlonglong{29}},
                                  {u"scale"_s, qlonglong{50}},   {u"width"_s, qlonglong{640}},
                                  {u"height"_s, qlonglong{480}}, {u"date"_s, date},
                                  {u"hasVideo"_s, true},         {u"hasAudio"_s, false},
                                  {u"isUpsideDown"_s, true}};
    EXPECT_EQ(read.keys(), expected.keys());
    for (const QString &key : expected.keys()) {
        EXPECT_EQ(read.value(key), expected.value(key)) << key.toStdString();
        EXPECT_EQ(read.value(key).typeId(), expected.value(key).typeId()) << key.toStdString();
    }
    EXPECT_TRUE(contentsOf(_folder.filePath(u"Info.plist"_s)).startsWith("<?xml"));
}

} // namespace
