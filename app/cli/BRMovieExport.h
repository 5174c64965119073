#pragma once

#include "app/cli/BRExitStatus.h"
#include "export/BRCapturedMovie.h"
#include "foundation/PXAlert.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

/// One movie's export as the command line tells of it, from its start to its last message. Main
/// thread.
class BRMovieExport final : private BRCapturedMovieDelegate, private PXAlert {
public:
    struct Job {
        QString what; ///< As the user named it.
        QString outputPath;
        bool isCutShort = false; ///< There are fewer whole frames than the capture counts.
        bool isOneOfSeveral = false;
    };

    BRMovieExport(std::unique_ptr<BRCapturedMovie> movie, Job job);
    ~BRMovieExport();
    BRMovieExport(const BRMovieExport &) = delete;
    BRMovieExport &operator=(const BRMovieExport &) = delete;

    /// Called once at the end of an export that was started; the export must outlive it.
    void setDidEnd(std::function<void()> didEnd) { _didEnd = std::move(didEnd); }
    /// False, with the reason printed, where it could not begin.
    bool start();
    /// The pictures, or else the sound; or all, where it has not begun.
    void cancel();
    /// Ends one whose thread has gone without a word a while ago; to be called now and then.
    void endIfSilent();

    [[nodiscard]] bool isRunning() const { return _isRunning; }
    /// "[####....]  40% 120 of 300 frames, 55.1 frames/s, 0:03 left", or what is done after the
    /// pictures.
    [[nodiscard]] QString progressLine() const;
    [[nodiscard]] int status() const { return _status; }

private:
    [[nodiscard]] QString _progress() const;
    void _endWithoutSound();
    void _tellWhatIsMissing(const QString &movieFilePath) const;
    void _alert(const QString &message);
    void _end(int status);

    void capturedMovieWillBeginAudioCompression(BRCapturedMovie &) override;
    void capturedMovieIsDoneCompressing(BRCapturedMovie &, const QString &path) override;
    void capturedMovieCompressionWasCancelled(BRCapturedMovie &) override;
    void capturedMovieCompressionFailed(BRCapturedMovie &, const PXError &error) override;
    void beep(const QString &message) override;

    const std::unique_ptr<BRCapturedMovie> _movie;
    const Job _job;
    const bool _wasToHaveSound;
    std::function<void()> _didEnd;
    bool _hasBegun = false;
    bool _isRunning = false;
    bool _isSoundOnItsWay = false;
    QObject _mainThread; ///< Context of what the compressor's threads post.
    QStringList _alerts; ///< Those that were told.
    QElapsedTimer _clock;
    QElapsedTimer _silence; ///< Valid since its thread was found to have gone without a word.
    int _status = BRExitDone;
};
