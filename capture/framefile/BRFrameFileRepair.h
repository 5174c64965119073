#pragma once

#include "foundation/PXError.h"

#include <QString>

#include <cstdint>
#include <stop_token>

/// What a repair made of a frame file.
struct BRRepairedFrameFile {
    std::uint32_t frames = 0; ///< That are whole.
    double duration = 0; ///< Seconds; the last frame's time.
    /// Behind the last whole frame, mostly of the one that was being written. They are kept in a
    /// file beside, "….rest".
    std::uint64_t bytesCut = 0;
};

/// Makes an interrupted recording of version 2 an ordinary one, in place: cuts off what is no whole
/// frame, gives the index the records that it lacks, and the header its duration and count. The
/// index is believed but for its last seconds, which are walked over; all frames are where it is
/// wrong or missing. The count comes last: until then the file is an interrupted one, whose repair
/// can begin again. Nothing is changed where there is no whole frame, where the recording was not
/// interrupted, and where `stop` ends it (ECANCELED). Nobody may be writing it. Any thread.
PXExpected<BRRepairedFrameFile> BRRepairFrameFile(const QString &filePath,
                                                  const std::stop_token &stop = {});
