#include "foundation/PXColor.h"

#include <gtest/gtest.h>

namespace {

const QByteArray kHead = "040B73747265616D747970656481E803840140848484074E53436F6C6F7200"
                         "8484084E534F626A65637400858401";

QByteArray archive(const QByteArray &restInHex)
{
    return QByteArray::fromHex(kHead + restInHex);
}

const PXColor kDeviceRGB = {PXColorSpace::DeviceRGB, {0.25F, 0, 1, 0.5F}};

TEST(PXColor, ArchivesAreTheOldBytes)
{
    EXPECT_EQ(PXColor::calibratedWhite(1, 1).archivedData(), archive("63 03 84 02 6666 01 01 86"));
    EXPECT_EQ(PXColor::calibratedWhite(0, 0.8F).archivedData(),
              archive("63 03 84 02 6666 00 83CDCC4C3F 86"));
    EXPECT_EQ(kDeviceRGB.archivedData(),
              archive("63 02 84 04 66666666 830000803E 00 01 830000003F 86"));
    for (const PXColor &color : {kDeviceRGB, PXColor::calibratedRGB(0.1F, 0.2F, 0.3F, 1),
                                 PXColor::calibratedWhite(0.9F, 1),
                                 PXColor{PXColorSpace::DeviceWhite, {0.5F, 0.25F, 0, 0}}})
        EXPECT_EQ(PXColor::fromArchivedData(color.archivedData()), color);
}

TEST(PXColor, ReadsNumbersInEveryEncoding)
{
    const auto half = PXColor::calibratedWhite(1, 0.5F);
    EXPECT_EQ(PXColor::fromArchivedData(archive("63 03 84 02 6666 810100 830000003F 86")), half);
    EXPECT_EQ(PXColor::fromArchivedData(archive("63 03 84 02 6666 8201000000 830000003F 86")),
              half);
    EXPECT_EQ(PXColor::fromArchivedData(archive("63 03 84 810200 6666 830000803F 830000003F 86")),
              half);
    EXPECT_EQ(PXColor::fromArchivedData(archive("63 03 84 02 6666 05 FF 86")),
              PXColor::calibratedWhite(1, 0));
}

TEST(PXColor, OtherBytesGiveNone)
{
    const struct {
        const char *name;
        QByteArray data;
    } cases[] = {
        {"kindZero", archive("63 00 84 02 6666 01 01 86")},
        {"kindFive", archive("63 05 84 02 6666 01 01 86")},
        {"countOfAnotherKind", archive("63 01 84 02 6666 01 01 86")},
        {"aTagForANumber", archive("63 03 84 02 6666 01 85 86")},
        {"notANumber", archive("63 03 84 02 6666 01 830000C07F 86")},
        {"bytesBehindIt", archive("63 03 84 02 6666 01 01 86 00")},
        {"anotherClass", kDeviceRGB.archivedData().replace("NSColor", "NSImage")},
        {"keyedArchive", "bplist00"},
    };
    for (const auto &c : cases)
        EXPECT_FALSE(PXColor::fromArchivedData(c.data)) << c.name;
    const QByteArray whole = kDeviceRGB.archivedData();
    for (qsizetype size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(PXColor::fromArchivedData(whole.first(size))) << size;
}

} // namespace
