#include "bench/side-by-side/RecordedPictures.h"

#include "bench/side-by-side/FloorFile.h"
#include "capture/framefile/BRFrameAssembler.h"

#include <lzo/lzo1x.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using File = PXHandle<std::FILE, closeBenchFile>;

class FloorPictures final : public RecordedPictures {
public:
    explicit FloorPictures(File file) : _file(std::move(file))
    {
        FloorHeader header = {};
        if (!_read(&header, sizeof header))
            failBench("the floor's recording has no header");
        _width = header.width;
        _picture.resize(std::size_t{header.width} * header.height);
        _rows.resize(_picture.size());
    }
    bool next() override
    {
        FloorFrame frame = {};
        if (!_read(&frame, sizeof frame))
            return false;
        for (std::uint32_t i = 0; i < frame.rectangleCount; ++i) {
            if (!_readRectangle())
                return false;
        }
        return true;
    }
    [[nodiscard]] std::uint32_t pixel(int x, int y) const override
    {
        return _picture.at(static_cast<std::size_t>(y) * _width + static_cast<std::size_t>(x));
    }

private:
    bool _readRectangle()
    {
        FloorRect rect = {};
        if (!_read(&rect, sizeof rect))
            return false;
        _compressed.resize(rect.compressedBytes);
        lzo_uint bytes = _rows.size() * 4;
        if (!_read(_compressed.data(), _compressed.size())
            || lzo1x_decompress_safe(_compressed.data(), _compressed.size(),
                                     reinterpret_cast<unsigned char *>(_rows.data()), &bytes,
                                     nullptr)
                != LZO_E_OK)
            return false;
        for (std::size_t y = 0; y < rect.height; ++y)
            std::memcpy(&_picture.at((static_cast<std::size_t>(rect.y) + y) * _width
                                     + static_cast<std::size_t>(rect.x)),
                        _rows.data() + y * rect.width, rect.width * 4UL);
        return true;
    }
    bool _read(void *bytes, std::size_t count) const
    {
        return std::fread(bytes, 1, count, _file.get()) == count;
    }

    File _file;
    std::size_t _width = 0;
    std::vector<std::uint32_t> _picture;
    std::vector<std::uint32_t> _rows;
    std::vector<unsigned char> _compressed;
};

class CapturePictures final : public RecordedPictures {
public:
    explicit CapturePictures(std::unique_ptr<BRFrameStreamer> streamer)
        : _streamer(std::move(streamer)), _assembler(*_streamer, BRPixelOrder::BGRA)
    {
    }
    bool next() override
    {
        const auto result = _assembler.readNextFrame();
        if (!result)
            failBench(result.error().description.toStdString());
        return *result == BRFrameAssembler::Result::Frame;
    }
    [[nodiscard]] std::uint32_t pixel(int x, int y) const override
    {
        std::uint32_t value = 0;
        const auto at = static_cast<std::size_t>(y) * static_cast<std::size_t>(_assembler.width())
            + static_cast<std::size_t>(x);
        std::memcpy(&value, _assembler.picture().subspan(at * 4, 4).data(), 4);
        return value;
    }

private:
    std::unique_ptr<BRFrameStreamer> _streamer;
    BRFrameAssembler _assembler;
};

} // namespace

std::unique_ptr<RecordedPictures> RecordedPictures::fromFile(const char *path)
{
    File file(std::fopen(path, "rbe"));
    std::uint32_t magic = 0;
    if (!file || std::fread(&magic, sizeof magic, 1, file.get()) != 1)
        failBench(std::string("cannot read ") + path);
    if (magic == kFloorMagic) {
        std::rewind(file.get());
        return std::make_unique<FloorPictures>(std::move(file));
    }
    auto streamer = BRFrameStreamer::withFilePathForReading(QString::fromLocal8Bit(path), false);
    if (!streamer)
        failBench(streamer.error().description.toStdString());
    return std::make_unique<CapturePictures>(*std::move(streamer));
}
