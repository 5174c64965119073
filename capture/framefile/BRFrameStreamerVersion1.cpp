#include "capture/framefile/BRFrameFormat.h"
#include "capture/framefile/BRFrameStreamer.h"

namespace {

/// The largest side that the first program could record; a number beyond it has its bytes the
/// other way round.
constexpr std::int32_t kLargestV1Side = 8000;

bool isOutside(std::int32_t side)
{
    return side < 0 || side > kLargestV1Side;
}

} // namespace

void BRFrameStreamer::v1_readHeader(std::uint32_t firstWord, bool isUpsideDown)
{
    mIsUpsideDown = isUpsideDown;
    mPixelFormat = 1;
    std::uint64_t start = 0;
    const bool isBigEndian = firstWord == __builtin_bswap32(BRFrameFormat::kV1Preamble);
    if (firstWord == BRFrameFormat::kV1Preamble || isBigEndian) {
        mFileStream.setLittleEndian(!isBigEndian);
        mCompressionType = static_cast<BRRawCompression>(mFileStream.readUInt32());
        mFileFormat = mFileStream.readInt32();
        start = mFileStream.position();
    } else {
        // The first files had no preamble and only ever held LZO.
        mCompressionType = BRRawCompression::LZO;
        mFileFormat = 0;
        mFileStream.setPosition(0);
    }

    std::int32_t width = mFileStream.readInt32();
    std::int32_t height = mFileStream.readInt32();
    if (mFileFormat == 0 && (isOutside(width) || isOutside(height))) {
        mFileStream.setLittleEndian(false);
        mFileStream.setPosition(start);
        width = mFileStream.readInt32();
        height = mFileStream.readInt32();
    }
    _setSelectionSize(width, height);
    mDuration = mFileStream.readDouble();
    mNumberOfFrames = mFileStream.readUInt32();
}
