#pragma once

#include "platform/PXDamageSource.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"
#include "platform/x11/X11Handler.h"
#include "platform/x11/X11Ids.h"
#include "platform/x11/X11WindowDamage.h"

#include "foundation/PXMutex.h"

#include <memory>
#include <optional>
#include <vector>

/// XDamage. The events come on one connection to the thread "tolvane-damage"; what they stand
/// for is taken over another, so that an answer wakes nobody but the one who waits for it.
///
/// Without a compositor the root's damage is exact. With one the windows' damage tells where and
/// the root's tells when: see `X11WindowDamage`. What a compositor paints besides the windows (its
/// panels, a volume display) cannot be told apart while a window paints, too; so the first repaint
/// a second after the last such one reports all that was repainted since.
/// Compositors may come and go at any time.
class X11DamageSource final : public PXDamageSource, private X11EventThread::Delegate {
public:
    static PXExpected<std::unique_ptr<X11DamageSource>>
    onConnections(std::unique_ptr<X11Connection> events, std::unique_ptr<X11Connection> requests);
    ~X11DamageSource() override;

    PXExpected<void> start(std::function<void()> arrived) override;
    void stop() override;
    PXExpected<void> takeDamage(std::vector<PXPixelRect> &rects) override;

private:
    X11DamageSource(std::unique_ptr<X11Connection> events, std::unique_ptr<X11Connection> requests,
                    std::uint8_t firstDamageEvent, std::uint8_t firstFixesEvent);
    PXExpected<void> _watchCompositor();
    void _setCompositor(bool isThere);
    void _screenWasPainted();
    void _allWasPainted(PXPixelRect root);
    void _arrived();

    void handleEvent(const xcb_generic_event_t &event) override;
    std::uint64_t eventsWereHandled() override;
    void connectionWasLost() override;

    std::unique_ptr<X11Connection> _events;
    std::unique_ptr<X11Connection> _requests;
    const std::uint8_t _damageNotify; ///< The events' numbers.
    const std::uint8_t _selectionNotify;
    unsigned _startedSince = 0; ///< The request before which events do not count.

    /// Only while there is a compositor; the event thread's.
    std::optional<X11WindowDamage> _windows;
    std::uint64_t _lastRepainted = 0; ///< When `_repainted` was added to `_gathered`.

    PXMutex _lock;
    X11Damage _rootDamage PX_GUARDED_BY(_lock); ///< None when stopped.
    X11Region _ofRoot PX_GUARDED_BY(_lock);
    /// What a compositor repainted and the windows' damage seemed to explain.
    X11Region _repainted PX_GUARDED_BY(_lock);
    /// What has been shown and not been taken. Without a compositor it stays in the damage.
    X11Region _gathered PX_GUARDED_BY(_lock);
    bool _isComposited PX_GUARDED_BY(_lock) = false;
    bool _isAllDamaged PX_GUARDED_BY(_lock) = false;
    PXPixelRect _root PX_GUARDED_BY(_lock);
    bool _hasArrived PX_GUARDED_BY(_lock) = false;
    X11Handler _arrivedHandler;
    std::optional<X11EventThread> _thread;
};
