#include "app/cli/BRInfoCommand.h"

#include "app/cli/BRCapturePath.h"
#include "app/cli/BRExitStatus.h"
#include "app/cli/BRTerminal.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QString nameOfCompression(BRRawCompression compression)
{
    switch (compression) {
    case BRRawCompression::None:
        return u"none"_s;
    case BRRawCompression::LZO:
        return u"lzo"_s;
    case BRRawCompression::RLE:
        return u"rle"_s;
    }
    return u"unknown"_s;
}

} // namespace

int BRRunInfoCommand(const QString &path, bool asJSON)
{
    auto capture = BRCapturePath::withPath(path);
    auto streamer = capture.and_then([](const BRCapturePath &found) { return found.open(); });
    if (!streamer) {
        BRTerminal::printError(streamer.error());
        return BRExitStatusOfError(streamer.error(), BRAccess::Reading);
    }
    BRFrameStreamer &reader = **streamer;
    const std::pair<QString, QJsonValue> facts[] = {
        {u"format"_s, reader.fileFormat()},
        {u"width"_s, static_cast<int>(reader.selectionSize().width)},
        {u"height"_s, static_cast<int>(reader.selectionSize().height)},
        {u"duration"_s, reader.duration()},
        {u"frames"_s, static_cast<qint64>(reader.numberOfFrames())},
        {u"compression"_s, nameOfCompression(reader.compressionType())},
        {u"pixelFormat"_s, static_cast<qint64>(reader.pixelFormat())},
        {u"upsideDown"_s, reader.isUpsideDown()},
        {u"indexRecords"_s, static_cast<qint64>(reader.numberOfIndexRecords())},
    };
    if (asJSON) {
        QJsonObject object;
        for (const auto &[key, value] : facts)
            object.insert(key, value);
        BRTerminal::print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
    } else {
        for (const auto &[key, value] : facts)
            BRTerminal::print(u"%1: %2"_s.arg(key, -12).arg(value.toVariant().toString()));
    }
    if (reader.wasInterrupted())
        BRTerminal::printWarning(
            u"\"%1\" was interrupted: counts and duration are those of its whole frames"_s.arg(
                path));
    else if (BRIsCutShort(reader))
        BRWarnOfCutShort(path, u"its header counts frames that are not there"_s);
    return BRExitDone;
}
