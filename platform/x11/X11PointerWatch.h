#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"
#include "platform/x11/X11Handler.h"

#include "foundation/PXMutex.h"

#include <functional>
#include <memory>
#include <optional>

/// Waits for the pointer's next movement or change of picture. Asks the server for such events
/// only while somebody waits: a mouse reports up to a thousand movements a second.
class X11PointerWatch final : private X11EventThread::Delegate {
public:
    static PXExpected<std::unique_ptr<X11PointerWatch>>
    onConnection(std::unique_ptr<X11Connection> connection);

    /// See `PXCursorSource::callOnceWhenMoved()`.
    void callOnce(std::function<void()> moved);
    /// Whether the server reports raw motion: all of it but warps.
    [[nodiscard]] bool seesEveryMotion() const { return _hasRawMotion; }

private:
    explicit X11PointerWatch(std::unique_ptr<X11Connection> connection);
    void _select(bool wanted) PX_REQUIRES(_lock);

    void handleEvent(const xcb_generic_event_t &event) override;
    void connectionWasLost() override { _moved.callOnce(); }

    std::unique_ptr<X11Connection> _connection;
    bool _hasRawMotion = false;
    PXMutex _lock;
    bool _isArmed PX_GUARDED_BY(_lock) = false;
    /// The request that armed it; events from before are of an earlier time.
    unsigned _armedSince PX_GUARDED_BY(_lock) = 0;
    X11Handler _moved;
    std::optional<X11EventThread> _thread;
};
