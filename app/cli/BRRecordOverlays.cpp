#include "app/cli/BRRecordOverlays.h"

#include "app/cli/BRSelectCommand.h"
#include "audio/BROutputDeviceRestorer.h"
#include "foundation/PXDefaults.h"

#include <QTimer>

#include <chrono>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// After a window of ours has gone, or a cover has come: until the programs below have painted what
/// they show now, and a compositor that.
constexpr std::chrono::milliseconds kTimeToSettle(500);

bool highlightsCursor(const BRRecordArguments &arguments)
{
    return arguments.highlightsCursor
        || PXDefaults::standardUserDefaults().boolValue(u"showCursorHighlight"_s);
}

} // namespace

PXExpected<std::unique_ptr<BRRecordOverlays>>
BRRecordOverlays::forArguments(const BRRecordArguments &arguments, PXScreenPlatform &platform,
                               const BRBackEnds &backEnds)
{
    if (!arguments.selects && !arguments.countsDown && !arguments.hidesDesktop
        && !arguments.showsBounds && !arguments.showsClicks && !arguments.showsKeys
        && !highlightsCursor(arguments))
        return nullptr;
    auto windowServer = platform.makeWindowServer();
    if (!windowServer)
        return PXFail(std::move(windowServer).error());
    std::unique_ptr<BRRecordOverlays> overlays(
        new BRRecordOverlays(arguments, platform, *std::move(windowServer), backEnds));
    if (!arguments.showsBounds)
        return overlays;
    auto frame = overlays->_windowServer->makeDashedFrame();
    if (!frame)
        return PXFail(std::move(frame).error());
    overlays->_movieBounds
        = std::make_unique<BRMovieBoundsView>(*std::move(frame), platform.mainDisplay());
    return overlays;
}

BRRecordOverlays::BRRecordOverlays(const BRRecordArguments &arguments, PXScreenPlatform &platform,
                                   std::unique_ptr<PXWindowServer> windowServer,
                                   const BRBackEnds &backEnds)
    : _arguments(arguments),
      _backEnds(backEnds),
      _platform(platform),
      _windowServer(std::move(windowServer))
{
    if (!arguments.countsDown)
        return;
    _soundPlayer = backEnds.makeSoundPlayer();
    _soundPlayer->prepare();
}

std::optional<PXRect> BRRecordOverlays::select()
{
    return BRSelectScreenPortion(_platform, *_windowServer, qtTrId("BRRecordButtonCaption"));
}

void BRRecordOverlays::prepareScreen()
{
    if (_isCancelled)
        return;
    if (_arguments.hidesDesktop) {
        _desktopHider.emplace(*_windowServer, _platform.mainDisplay());
        _desktopHider->hideDesktop();
    }
    if (_arguments.countsDown) {
        _countDown();
    } else if (_arguments.hidesDesktop || _arguments.selects) {
        QTimer::singleShot(kTimeToSettle, &_loop, &QEventLoop::quit);
        _loop.exec();
    }
}

void BRRecordOverlays::_countDown()
{
    // The virtual output may be the default one by now.
    if (const auto output = BROutputDeviceRestorer(_backEnds.sound).outputInUse())
        _soundPlayer->setOutputDevice(output->uid);
    _countdown.emplace(*_windowServer, _platform.mainDisplay(), *_soundPlayer);
    _countdown->startCountdown(*this);
    _loop.exec();
}

std::unique_ptr<BRScreenEventController>
BRRecordOverlays::makeScreenEventController(BRApplication &application,
                                            std::function<PXRect()> currentScreenSelectionRect)
{
    if (!_arguments.showsClicks && !_arguments.showsKeys)
        return nullptr;
    if (!_arguments.showsKeys)
        for (const QString &key : {u"showKeyboardCommands"_s, u"showKeyboardCharacters"_s,
                                   u"showKeyboardOtherKeys"_s, u"showKeyboardAlways"_s})
            PXDefaults::standardUserDefaults().setArgumentValue(key, false);
    auto controller = std::make_unique<BRScreenEventController>(
        *_windowServer, _platform.mainDisplay(), application,
        std::move(currentScreenSelectionRect));
    controller->setShowMouseClicks(_arguments.showsClicks);
    return controller;
}

PXExpected<std::unique_ptr<BRCursorHighlight>> BRRecordOverlays::makeCursorHighlight()
{
    if (!highlightsCursor(_arguments))
        return nullptr;
    return BRCursorHighlight::onScreen(_platform, *_windowServer);
}

void BRRecordOverlays::cancel()
{
    _isCancelled = true;
    if (_countdown)
        _countdown->cancel();
    _loop.quit();
}
