#include "foundation/PXPropertyList.h"
#include "tests/support/FileSizeLimit.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QPoint>
#include <QTemporaryDir>

#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>

using namespace Qt::StringLiterals;
using PXPropertyList::Format;

namespace {

QVariantMap everyType()
{
    return {{u"truth"_s, true},
            {u"whole"_s, qlonglong{-7}},
            {u"big"_s, qlonglong{1} << 40},
            {u"real"_s, 29.97},
            {u"text"_s, u"Grüße"_s},
            {u"same"_s, u"Grüße"_s},
            {u"control"_s, u"\x1c"_s},
            {u"data"_s, QByteArray::fromHex("00FF10")},
            {u"date"_s, QDateTime(QDate(2010, 5, 4), QTime(3, 2, 1), Qt::UTC)},
            {u"list"_s, QVariantList{qlonglong{1}, QVariantList(), QVariantMap()}}};
}

TEST(PXPropertyList, ReadsWhatAnotherProgramWrote)
{
    // Python's plistlib made this of the values above; it stores "Grüße" once for both keys.
    const auto bytes = QByteArray::fromBase64(
        "YnBsaXN0MDDaAQIDBAUGBwgJCgsMDQ4PExQUFRZTYmlnV2NvbnRyb2xUZGF0YVRkYXRlVGxpc3RUcmVhbFRzYW1l"
        "VHRleHRVdHJ1dGhVd2hvbGUTAAABAAAAAABRHEMA/xAzQbGPxakAAACjEBESEAGg0CNAPfhR64UeuGUARwByAPwA"
        "3wBlCRP/////////+QgdISkuMzg9QkdNU1xeYmtvcXJzfIeIAAAAAAAAAQEAAAAAAAAAFwAAAAAAAAAAAAAAAAAA"
        "AJE=");
    EXPECT_EQ(PXPropertyList::fromData(bytes, u"vector"_s).value(), QVariant(everyType()));
}

TEST(PXPropertyList, WhatGoesInComesOut)
{
    QVariantMap values = everyType();
    values.insert(u"least"_s, std::numeric_limits<qlonglong>::min());
    values.insert(u"fraction"_s, -1e-300);
    values.insert(u"before 2001"_s, QDateTime::fromMSecsSinceEpoch(-1'500, Qt::UTC));
    values.insert(u"<&> "_s, u" \n<b>&amp; "_s);
    for (const Format format : {Format::Binary, Format::XML}) {
        if (format == Format::XML) {
            values.remove(u"control"_s); // XML has no way to write it …
            values.remove(u"before 2001"_s); // … and no parts of a second.
        }
        const QByteArray bytes = PXPropertyList::toData(values, format, u"list"_s).value();
        EXPECT_EQ(bytes.startsWith("bplist"), format == Format::Binary);
        const QVariantMap read = PXPropertyList::fromData(bytes, u"list"_s)->toMap();
        EXPECT_EQ(read.keys(), values.keys());
        for (const QString &key : values.keys()) {
            EXPECT_EQ(read.value(key), values.value(key)) << key.toStdString();
            EXPECT_EQ(read.value(key).typeId(), values.value(key).typeId()) << key.toStdString();
        }
    }
}

/// A binary list of these objects (in hex), with one byte for each offset and reference.
QByteArray binaryList(const QList<QByteArray> &objects, const QByteArray &lengthOfTable = {})
{
    QByteArray bytes("bplist00");
    QByteArray table;
    for (const QByteArray &object : objects) {
        table.append(static_cast<char>(bytes.size()));
        bytes.append(QByteArray::fromHex(object));
    }
    const QByteArray tableOffset = QByteArray::number(bytes.size(), 16).rightJustified(16, '0');
    const QByteArray count = lengthOfTable.isEmpty()
        ? QByteArray::number(objects.size(), 16).rightJustified(16, '0')
        : lengthOfTable;
    return bytes + table
        + QByteArray::fromHex("0000000000000101" + count + "0000000000000000" + tableOffset);
}

/// Lists of ten references to the next: a million million values in 200 bytes.
QByteArray tenToTheTwelfth()
{
    QList<QByteArray> objects;
    for (int i = 1; i <= 12; ++i)
        objects.append("AA" + QByteArray::number(i, 16).rightJustified(2, '0').repeated(10));
    return binaryList(objects << "09");
}

QByteArray nestedXML(int levels, const QByteArray &inside = {})
{
    return "<plist>" + QByteArray("<array>").repeated(levels) + inside
        + QByteArray("</array>").repeated(levels) + "</plist>";
}

TEST(PXPropertyList, RefusesWhatWouldHurtTheParser)
{
    const QByteArray deep = QByteArray("<array>").repeated(1'000'000);
    const struct {
        const char *name;
        QByteArray bytes;
        const char *reason;
    } cases[] = {
        {"nothing", "", "empty"},
        {"noList", "captureRate = 30", "no property list"},
        {"headerOnly", "bplist00", "too short"},
        {"containsItself", binaryList({"A100"}), "too deeply"},
        {"eachContainsTheOther", binaryList({"A101", "D10200", "5161"}), "too deeply"},
        {"tenToTheTwelfth", tenToTheTwelfth(), "too many values"},
        {"countOfEverything", binaryList({"09"}, "FFFFFFFFFFFFFFFF"), "table"},
        {"missingReference", binaryList({"A107"}), "does not have"},
        {"containerTooLong", binaryList({"AF1010"}), "a container reaches"},
        {"textTooLong", binaryList({"5F1020"}), "reaches beyond"},
        {"lengthWrapsAround", binaryList({"6F13FFFFFFFFFFFFFFFF"}), "greater than itself"},
        {"lengthMissing", binaryList({"5F13"}), "length lies outside"},
        {"numberAsKey", binaryList({"D10102", "1001", "09"}), "not a string"},
        {"dateBeyondTime", binaryList({"337E37E43C8800759C"}), "date outside"},
        {"sixteenByteNumber", binaryList({"1400000000000000000000000000000001"}), "64 bits"},
        {"keyedArchive", binaryList({"8001"}), "kind"},
        {"keyWithZero", binaryList({"D10102", "53610062", "09"}), "character 0"},
        {"wideTextWithZero", binaryList({"6200610000"}), "character 0"},
        {"entityZero", "<plist><string>&#x00;</string></plist>", "character 0"},
        {"entityThatWrapsToZero", "<plist><string>&#x100000000;</string></plist>", "character 0"},
        {"deepXML", nestedXML(100), "too deeply"},
        {"deepXMLThatNeverCloses", "<plist>" + deep, "too deeply"},
        {"depthHiddenInAComment", "<plist><!-->" + deep + "-->", "comment"},
        {"depthHiddenInAnAttribute", "<plist><array a=\"/>\">", "unknown element"},
        {"closedInTheDocumentType", nestedXML(60, "<!DOCTYPE \"></array>"), "document type"},
        {"entities", "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist/>", "document type"},
        {"ampersands", "<plist><string>" + QByteArray("&amp;").repeated(400'000), "entities"},
        {"numberBeyondSign", "<plist><integer>18446744073709551615</integer></plist>", "whole"},
        {"xmlDateBeyondTime", "<plist><date>4001-01-01T00:00:00Z</date></plist>", "date outside"},
        {"cutShort", "<plist><dict><key>a</key>", "too early"},
        {"closedTooOften", "<plist></plist></plist>", "did not open"},
        {"brokenTag", "<plist><dict", "within a tag"},
    };
    for (const auto &c : cases) {
        const auto value = PXPropertyList::fromData(c.bytes, u"/a/b.plist"_s);
        ASSERT_FALSE(value) << c.name;
        EXPECT_TRUE(value.error().description.contains(QString::fromLatin1(c.reason)))
            << c.name << ": " << value.error().description.toStdString();
        EXPECT_TRUE(value.error().description.contains(u"/a/b.plist"_s)) << c.name;
    }
    // The checks leave room for what is deep, but meant well.
    EXPECT_TRUE(PXPropertyList::fromData(nestedXML(60), u"deep"_s));
}

TEST(PXPropertyList, RefusesToStoreWhatWouldComeBackDifferent)
{
    const QVariantMap control = {{u"key"_s, u"\x1c"_s}};
    EXPECT_FALSE(PXPropertyList::toData(control, Format::XML, u"x"_s));
    QVariant deep;
    for (int level = 0; level < 100; ++level)
        deep = level == 0 ? QVariant(1) : QVariant(QVariantList{deep});
    for (const Format format : {Format::XML, Format::Binary})
        EXPECT_FALSE(PXPropertyList::toData(deep, format, u"x"_s));
    EXPECT_FALSE(PXPropertyList::toData(QByteArray(17 << 20, 'x'), Format::Binary, u"x"_s));
    EXPECT_FALSE(PXPropertyList::normalized(QVariantList{u"a\0b"_s}));
    EXPECT_FALSE(PXPropertyList::normalized(QDateTime(QDate(4001, 1, 1), QTime(), Qt::UTC)));
    EXPECT_THROW((void)PXPropertyList::normalized(QVariant()), std::logic_error);
    EXPECT_THROW((void)PXPropertyList::normalized(QPoint()), std::logic_error);
}

TEST(PXPropertyList, AFailedWriteLeavesTheOldFile)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"settings.plist"_s);
    ASSERT_TRUE(PXPropertyList::write({{u"old"_s, true}}, path, Format::XML));

    // A disk that is full: no file may grow beyond 64 bytes.
    const auto written = [&] {
        const FileSizeLimit limit(64);
        return PXPropertyList::write(everyType(), path, Format::Binary);
    }();
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().domain, kPXPOSIXErrorDomain);
    EXPECT_EQ(written.error().code, EFBIG) << written.error().description.toStdString();
    EXPECT_TRUE(written.error().description.contains(path));
    EXPECT_EQ(PXPropertyList::read(path).value(), (QVariantMap{{u"old"_s, true}}));
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files).size(), 1);
}

TEST(PXPropertyList, TellsAMissingFileFromOneThatDoesNotRead)
{
    const QTemporaryDir folder;
    const QString pipe = folder.filePath(u"pipe"_s);
    ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    const struct {
        const char *name;
        QString path;
        int code;
    } cases[] = {
        {"missing", folder.filePath(u"none"_s), ENOENT},
        {"folder", folder.path(), EISDIR},
        {"endlessDevice", u"/dev/zero"_s, EINVAL}, // Must not be read to its end.
        {"pipeThatNobodyWritesTo", pipe, EINVAL}, // Must not be waited for.
    };
    for (const auto &c : cases) {
        const auto read = PXPropertyList::read(c.path);
        ASSERT_FALSE(read) << c.name;
        EXPECT_EQ(read.error().domain, kPXPOSIXErrorDomain) << c.name;
        EXPECT_EQ(read.error().code, c.code) << c.name;
        EXPECT_TRUE(read.error().description.contains(c.path)) << c.name;
    }
    const auto nowhere = PXPropertyList::write({}, folder.filePath(u"no/file"_s), Format::XML);
    EXPECT_EQ(nowhere.error().code, ENOENT);
}

} // namespace
