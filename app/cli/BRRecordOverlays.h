#pragma once

#include "app/BRCountdownController.h"
#include "app/BRDesktopHider.h"
#include "app/cli/BRRecordCommand.h"
#include "foundation/PXGeometry.h"
#include "overlays/BRCursorHighlight.h"
#include "overlays/BRMovieBoundsView.h"
#include "overlays/BRScreenEventController.h"

#include <QEventLoop>

#include <functional>
#include <memory>
#include <optional>

/// What `tolvane record` shows on the screen where it is asked to: the choice of the area, the
/// cover over the desktop, the countdown, the frame around the area, clicks, keys and a highlight
/// of the cursor. Outlives what it makes. Main thread.
class BRRecordOverlays final : private BRCountdownDelegate {
public:
    /// None where nothing is to be shown. `arguments` and the platforms outlive it.
    static PXExpected<std::unique_ptr<BRRecordOverlays>>
    forArguments(const BRRecordArguments &arguments, PXScreenPlatform &platform,
                 const BRBackEnds &backEnds);

    /// The user's choice; none when it was cancelled.
    std::optional<PXRect> select();
    /// For the recorder; null where no frame is wanted.
    [[nodiscard]] BRMovieBounds *movieBounds() const { return _movieBounds.get(); }

    /// Covers the desktop and counts down, as far as wanted, and returns when the screen shows what
    /// is to be recorded, or once it is cancelled. Runs an event loop.
    void prepareScreen();
    /// From inside `prepareScreen()`, or before.
    void cancel();

    /// Shows clicks and keys, as far as wanted, once it is told to; null where none are.
    std::unique_ptr<BRScreenEventController>
    makeScreenEventController(BRApplication &application,
                              std::function<PXRect()> currentScreenSelectionRect);
    /// Null where it is not wanted.
    PXExpected<std::unique_ptr<BRCursorHighlight>> makeCursorHighlight();

private:
    BRRecordOverlays(const BRRecordArguments &arguments, PXScreenPlatform &platform,
                     std::unique_ptr<PXWindowServer> windowServer, const BRBackEnds &backEnds);

    void countdownDidEnd() override { _loop.quit(); }
    void _countDown();

    const BRRecordArguments &_arguments;
    const BRBackEnds &_backEnds;
    PXScreenPlatform &_platform;
    const std::unique_ptr<PXWindowServer> _windowServer;
    std::unique_ptr<BRMovieBoundsView> _movieBounds;
    std::unique_ptr<PXSoundPlayer> _soundPlayer; ///< Where it counts down.
    std::optional<BRCountdownController> _countdown;
    std::optional<BRDesktopHider> _desktopHider;
    QEventLoop _loop;
    bool _isCancelled = false;
};
