#pragma once

#include "platform/PXCodec.h"
#include "platform/PXCompressionSession.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include "foundation/PXError.h"

#include <cstdint>
#include <vector>

namespace ffmpeg {

/// What `PXMediaPlatform` answers.
const std::vector<PXCodec> &codecs();
PXExpected<PXCodec> installedCodec(std::uint32_t code);

/// The encoder for `options`, set up and open; its size is the encoded picture's.
PXExpected<CodecContext> openEncoder(const PXCompressionSessionOptions &options);

} // namespace ffmpeg
