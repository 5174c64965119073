#include "widgets/BROverlayWindow.h"

#include "foundation/PXMainThread.h"

#include <QApplication>
#include <QPaintEvent>
#include <QPainter>
#include <QScreen>
#include <QWindow>

#include <cmath>
#include <vector>

namespace {

constexpr double kKeyboardPatience = 0.2; ///< Seconds.

/// A screen's corner is where it is on the desktop; only its size is scaled.
QRect pixelsOf(const QScreen &screen)
{
    const QRect geometry = screen.geometry();
    return {geometry.topLeft(), (QSizeF(geometry.size()) * screen.devicePixelRatio()).toSize()};
}

QScreen *screenAt(const PXPixelRect &frame)
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens)
        if (pixelsOf(*screen).contains(frame.x, frame.y))
            return screen;
    return QGuiApplication::primaryScreen();
}

} // namespace

BROverlayWindow::BROverlayWindow(PXWindowServer &server, const PXPixelRect &contentRect,
                                 Qt::WindowFlags)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint), _server(server), _frame(contentRect)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_QuitOnClose, false);
    _compositing = _server.addCompositingObserver([this] {
        PXMainThread::post(this, [this] {
            if (_compositingDidChange)
                _compositingDidChange();
        });
    });
}

BROverlayWindow::~BROverlayWindow()
{
    _compositing.end();
    orderOut();
}

void BROverlayWindow::setCanBecomeKeyWindow(bool canBecomeKeyWindow)
{
    _canBecomeKeyWindow = canBecomeKeyWindow;
}

void BROverlayWindow::setSticky(bool)
{
    _isSticky = true;
}

void BROverlayWindow::setIgnoresMouseEvents(bool ignores)
{
    _ignoresMouseEvents = ignores;
    if (_isCreated)
        windowHandle()->setFlag(Qt::WindowTransparentForInput, ignores);
}

void BROverlayWindow::setBackgroundColor(const QColor &color)
{
    if (_backgroundColor == color)
        return;
    _backgroundColor = color;
    update();
}

void BROverlayWindow::setAlphaValue(double alpha)
{
    _alphaValue = alpha;
    setWindowOpacity(alpha);
}

void BROverlayWindow::setCompositingDidChange(std::function<void()> didChange)
{
    _compositingDidChange = std::move(didChange);
}

void BROverlayWindow::setShape(const std::optional<QRegion> &shape)
{
    _shape = shape;
    if (_isCreated)
        _applyShape();
}

void BROverlayWindow::setContentView(QWidget *view)
{
    delete _contentView;
    _contentView = view;
    if (view == nullptr)
        return;
    view->setParent(this);
    view->setGeometry(rect());
    view->show();
}

void BROverlayWindow::setFrame(const PXPixelRect &frame)
{
    _frame = frame;
    if (_isCreated)
        _applyFrame();
}

void BROverlayWindow::setFrame(const PXPixelRect &frame, const std::optional<QRegion> &shape)
{
    _shape = shape;
    setFrame(frame);
}

void BROverlayWindow::_createIfNeeded()
{
    if (_isCreated)
        return;
    Qt::WindowFlags flags = Qt::Window | Qt::FramelessWindowHint;
    // A window manager would put it below a full-screen window that has the focus.
    if (_level == PXWindowLevel::Maximum)
        flags |= Qt::X11BypassWindowManagerHint | Qt::WindowStaysOnTopHint;
    if (_level == PXWindowLevel::Floating)
        flags |= Qt::WindowStaysOnTopHint | Qt::Tool;
    if (!_canBecomeKeyWindow)
        flags |= Qt::WindowDoesNotAcceptFocus;
    if (_ignoresMouseEvents)
        flags |= Qt::WindowTransparentForInput;
    setWindowFlags(flags);
    // The keyboard is asked for where it is wanted; the desktop is not to hand it out.
    setAttribute(Qt::WA_ShowWithoutActivating, !_canBecomeKeyWindow);
    if (QScreen *screen = screenAt(_frame))
        setScreen(screen);
    _isCreated = true;
    (void)winId();
    _applyFrame();
}

void BROverlayWindow::_applyFrame()
{
    QScreen *screen = screenAt(_frame);
    if (screen == nullptr)
        return;
    const double ratio = screen->devicePixelRatio();
    const QPoint corner = screen->geometry().topLeft();
    const QPointF offset = QPointF(_frame.x - corner.x(), _frame.y - corner.y()) / ratio;
    // Rather a pixel too large, which is cut off again, than one too small.
    const QSize size(static_cast<int>(std::ceil(_frame.width / ratio)),
                     static_cast<int>(std::ceil(_frame.height / ratio)));
    setGeometry(QRect(corner + offset.toPoint(), size));
    const bool isReachable = QPointF(offset.toPoint()) == offset;
    if (!isReachable)
        _server.setFrame(winId(),
                         {_frame.x, _frame.y, static_cast<int>(std::lround(size.width() * ratio)),
                          static_cast<int>(std::lround(size.height() * ratio))});
    _applyShape();
}

void BROverlayWindow::_applyShape()
{
    const QRect whole(0, 0, _frame.width, _frame.height);
    const double ratio = devicePixelRatioF();
    const bool isExact = std::ceil(_frame.width / ratio) * ratio == _frame.width
        && std::ceil(_frame.height / ratio) * ratio == _frame.height;
    std::vector<PXPixelRect> parts;
    for (const QRect &part : _shape.value_or(whole) & whole)
        parts.push_back({part.x(), part.y(), part.width(), part.height()});
    if (!_shape && isExact)
        _server.clearShape(winId());
    else
        _server.setShape(winId(), parts);
}

void BROverlayWindow::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    // The toolkit has cleared what is to be painted.
    if (_backgroundColor.alpha() > 0)
        painter.fillRect(event->rect(), _backgroundColor);
}

void BROverlayWindow::resizeEvent(QResizeEvent *)
{
    if (_contentView != nullptr)
        _contentView->setGeometry(rect());
}

void BROverlayWindow::orderFront()
{
    _createIfNeeded();
    if (!isVisible()) {
        // Each time: a window manager forgets what a window was when it is hidden.
        _server.setLevel(winId(), _level);
        if (_isSticky)
            _server.joinAllSpaces(winId());
        show();
        _applyFrame(); // The toolkit put it where it can reach.
    }
    if (_level == PXWindowLevel::Maximum)
        _server.keepOnTop(winId());
}

void BROverlayWindow::makeKeyAndOrderFront()
{
    orderFront();
    if (!_canBecomeKeyWindow)
        return;
    _isKey = true;
    _server.focus(winId());
    _takeKeyboardSoon();
}

bool BROverlayWindow::event(QEvent *event)
{
    if (event->type() == QEvent::WindowDeactivate && _isKey)
        _takeKeyboardSoon();
    return QWidget::event(event);
}

/// Window managers give the keyboard to a window that has just come, and take it from all when one
/// has gone, without asking about windows that they do not manage.
void BROverlayWindow::_takeKeyboardSoon()
{
    _keyTimer.scheduleTimerWithTimeInterval(
        kKeyboardPatience,
        [this](PXTimerTarget &) {
            if (!_isKey || isActiveWindow())
                return;
            // A menu or a dialog of ours has it; it tells when it goes.
            if (QApplication::activePopupWidget() == nullptr
                && QApplication::activeWindow() == nullptr)
                _server.focus(winId());
            _takeKeyboardSoon();
        },
        {}, false);
}

void BROverlayWindow::orderOut()
{
    if (!_isCreated || !isVisible())
        return;
    _isKey = false;
    _keyTimer.invalidate();
    _server.letGo(winId());
    hide();
}
