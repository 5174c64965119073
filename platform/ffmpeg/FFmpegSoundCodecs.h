#pragma once

#include "platform/PXSoundFile.h"
#include "platform/ffmpeg/FFmpegHandles.h"

#include "foundation/PXError.h"

#include <cstdint>
#include <vector>

namespace ffmpeg {

/// What `PXMediaPlatform` answers.
const std::vector<PXSoundCodec> &soundCodecs();
PXExpected<PXSoundCodec> installedSoundCodec(std::uint32_t code);

/// The encoder of `encoding` for sound like `source`, set up and open: its type, rate and layout
/// are what it is to be fed with. Of ways that sound alike it takes the cheap ones for a file that
/// is written while the sound is recorded.
PXExpected<CodecContext> openSoundEncoder(const PXSoundFormat &source,
                                          const PXSoundEncoding &encoding, PXSoundFileKind kind);

} // namespace ffmpeg
