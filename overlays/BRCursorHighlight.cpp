#include "overlays/BRCursorHighlight.h"

#include "foundation/BRLog.h"
#include "foundation/PXMainThread.h"

#include <QColor>

#include <utility>

namespace {
constexpr int kCursorWindowSide = 40;
}

PXExpected<std::unique_ptr<BRCursorHighlight>>
BRCursorHighlight::onScreen(PXScreenPlatform &platform, PXWindowServer &windowServer)
{
    auto cursorSource = platform.makeCursorSource();
    if (!cursorSource)
        return PXFail(std::move(cursorSource).error());
    auto displayLink = platform.makeDisplayLink();
    if (!displayLink)
        return PXFail(std::move(displayLink).error());
    std::unique_ptr<BRCursorHighlight> highlight(new BRCursorHighlight(
        platform, windowServer, *std::move(cursorSource), *std::move(displayLink)));
    if (auto following = highlight->_followPointer(); !following)
        return PXFail(std::move(following).error());
    return highlight;
}

BRCursorHighlight::BRCursorHighlight(PXScreenPlatform &platform, PXWindowServer &windowServer,
                                     std::unique_ptr<PXCursorSource> cursorSource,
                                     std::unique_ptr<PXDisplayLink> displayLink)
    : _windowServer(windowServer),
      mOverlayWindow(windowServer, platform.mainDisplay()),
      mCursorWindow(windowServer, {0, 0, kCursorWindowSide, kCursorWindowSide}),
      mOpenGLView(new BROpenGLView(mOverlayWindow, platform.mainDisplay())),
      _cursorSource(std::move(cursorSource)),
      _displayLink(std::move(displayLink))
{
    mCursorWindow.setIgnoresMouseEvents(true);
    mCursorWindow.setCanBecomeKeyWindow(false);
    mCursorWindow.setCanBecomeMainWindow(false);
    mCursorWindow.setSticky(true);
    mCursorWindow.setBackgroundColor(Qt::blue);
    mOverlayWindow.setContentView(mOpenGLView);
    mOpenGLView->setNeedsDisplay();
    mOverlayWindow.orderFront();
}

BRCursorHighlight::~BRCursorHighlight()
{
    shutdown();
}

PXExpected<void> BRCursorHighlight::_followPointer()
{
    return _displayLink->start([this](std::uint64_t) {
        // Armed before it is looked at: what moves in between is told again.
        _cursorSource->callOnceWhenMoved([this] { _displayLink->wake(); });
        displayLinkCallback();
        return PXDisplayLink::kWhenWoken;
    });
}

void BRCursorHighlight::displayLinkCallback()
{
    if (_isDrawingWanted.exchange(true))
        return;
    PXMainThread::post(&_context, [this] {
        _isDrawingWanted = false;
        mOpenGLView->setNeedsDisplay();
        moveCursorWindow();
    });
}

void BRCursorHighlight::moveCursorWindow()
{
    const PXPixelRect pointer = _windowServer.pointerPixel();
    const PXPixelRect place = {pointer.x - kCursorWindowSide / 2, pointer.y - kCursorWindowSide / 2,
                               kCursorWindowSide, kCursorWindowSide};
    mCursorWindow.setFrame(place);
    BRLog(BRLogDebug, "A - {%d, %d}", place.x, place.y);
}

void BRCursorHighlight::shutdown()
{
    _cursorSource->callOnceWhenMoved({});
    _displayLink->stop();
    // The link's last call may have armed it again.
    _cursorSource->callOnceWhenMoved({});
}
