// A frame file and its index from any bytes: the first two say how long the frame file is, the
// rest is the index. Everything a reader can do with them must end, within memory that the size
// of the input justifies.
#include "capture/framefile/BRFrameAssembler.h"
#include "foundation/BRLog.h"

#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

void fill(const QString &path, const std::uint8_t *bytes, std::size_t length)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        std::abort();
    file.write(reinterpret_cast<const char *>(bytes), static_cast<qint64>(length));
}

void readPlainly(BRFrameStreamer &streamer)
{
    const PXSize size = streamer.selectionSize();
    const double bytes = double{size.width} * size.height * 4;
    if (bytes > 1e8)
        return; // the assembler refuses these; here it is the caller who makes the buffer
    std::vector<std::byte> destination(static_cast<std::size_t>(bytes));
    std::uint32_t count = 0;
    double timestamp = 0;
    while (streamer.readFrame(count, timestamp)) {
        PXRect rect;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (!streamer.readDirtyRect(rect, destination))
                return;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QTemporaryDir folder(u"/dev/shm/tolvane-fuzz-XXXXXX"_s);
    static const bool isQuiet = (BRSetLogLevel(0), true);
    if (!isQuiet || size < 2)
        return 0;
    const std::size_t wanted = data[0] + std::size_t{data[1]} * 256;
    const std::size_t length = std::min(wanted, size - 2);
    const QString path = folder.filePath(u"frames"_s);
    fill(path, data + 2, length);
    fill(path + u".index"_s, data + 2 + length, size - 2 - length);

    for (const bool isUpsideDown : {false, true}) {
        auto streamer = BRFrameStreamer::withFilePathForReading(path, isUpsideDown);
        if (!streamer)
            continue;
        readPlainly(**streamer);
        auto again = BRFrameStreamer::withFilePathForReading(path, isUpsideDown);
        BRFrameAssembler assembler(**again, BRPixelOrder::BGRA);
        while (assembler.readNextFrame() == BRFrameAssembler::Result::Frame)
            continue;
    }
    return 0;
}
