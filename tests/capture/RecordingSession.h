#pragma once

#include "capture/BRScreenRecorder.h"
#include "platform/PXScreenPlatform.h"
#include "tests/support/VirtualDisplay.h"

#include <QImage>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// A frame as it was read back.
struct RecordedFrame {
    double timestamp = 0;
    bool isKeyFrame = false;
    std::vector<PXRect> rects; ///< y up.
    QImage picture;
};

/// A recorder on a real display that writes into a folder of its own.
class RecordingSession final : private BRScreenRecorderDelegate {
public:
    explicit RecordingSession(const VirtualDisplay &display, BRStatusItem *statusItem = nullptr,
                              BRMovieBounds *movieBounds = nullptr);
    ~RecordingSession();

    /// The whole display, LZO, 30 frames a second, with the cursor.
    [[nodiscard]] BRScreenRecordingOptions options() const;

    PXExpected<void> start(const BRScreenRecordingOptions &options);
    /// Stops and returns when the recorder has reported its end.
    void stop();
    /// Runs the main loop until `isTrue`; fails the test after half a minute.
    void waitUntil(const std::function<bool()> &isTrue);
    /// Returns when so many frames are in the file.
    void waitForFrames(std::uint32_t count);

    void destroyRecorder() { _recorder.reset(); }
    [[nodiscard]] BRScreenRecorder &recorder() { return *_recorder; }
    [[nodiscard]] QString filePath() const;
    [[nodiscard]] QVariantMap info() const;
    /// What is in the file now, also while it is being written.
    [[nodiscard]] std::vector<RecordedFrame> frames() const;

    int timesStopped = 0;
    std::optional<PXError> failure;
    std::uint64_t hostTimeOfFirstFrame = 0;

private:
    void screenRecorderDidStopRecording(BRScreenRecorder &) override { ++timesStopped; }
    void screenRecorderFailed(BRScreenRecorder &, const PXError &error) override
    {
        failure = error;
    }
    void screenRecorderCVHostTimeOfFirstFrame(BRScreenRecorder &, std::uint64_t time) override
    {
        hostTimeOfFirstFrame = time;
    }

    QTemporaryDir _folder;
    std::unique_ptr<PXScreenPlatform> _platform;
    std::unique_ptr<BRScreenRecorder> _recorder;
};
