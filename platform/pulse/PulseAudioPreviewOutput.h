#pragma once

#include "platform/PXSoundPlatform.h"
#include "platform/pulse/PulseLoopbacks.h"

/// Holds one of the server's loopbacks. It needs no work of ours and outlives us.
class PulseAudioPreviewOutput final : public PXAudioPreviewOutput {
public:
    /// Takes over one `retain` of these; borrows `loopbacks`.
    PulseAudioPreviewOutput(PulseLoopbacks &loopbacks, const PulseSource &source,
                            const PulseSink &sink)
        : _loopbacks(loopbacks), _source(source), _sink(sink)
    {
    }
    ~PulseAudioPreviewOutput() override
    {
        _loopbacks.release(_source, _sink, _isLeft ? PulseLoopbacks::Left : PulseLoopbacks::Ended);
    }
    PulseAudioPreviewOutput(const PulseAudioPreviewOutput &) = delete;
    PulseAudioPreviewOutput &operator=(const PulseAudioPreviewOutput &) = delete;

    bool isPlaying() override { return _loopbacks.isPlaying(_source, _sink); }
    void leaveToOthers() override { _isLeft = true; }

private:
    PulseLoopbacks &_loopbacks;
    const PulseSource _source;
    const PulseSink _sink;
    bool _isLeft = false;
};
