#pragma once

#include "platform/PXMainDisplay.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11EventThread.h"

#include "foundation/PXMutex.h"

#include <memory>
#include <optional>
#include <vector>

/// Asks RandR, and follows its events on the thread "tolvane-display". When the server has gone
/// the last answers stand.
class X11MainDisplay final : public PXMainDisplay, private X11EventThread::Delegate {
public:
    static PXExpected<std::unique_ptr<X11MainDisplay>>
    onConnection(std::unique_ptr<X11Connection> connection);

    [[nodiscard]] PXPixelRect bounds() const override;
    [[nodiscard]] std::optional<PXPixelRect> displayAt(int x, int y) const override;
    [[nodiscard]] double refreshRate() const override;
    /// Whether there is a screen that is refreshed. A virtual display has none, and what its
    /// server reports as vertical blanks is a timer.
    [[nodiscard]] bool hasRefreshes() const;
    PXObservation addChangedObserver(std::function<void()> changed) override
    {
        return _observers.add(std::move(changed));
    }

private:
    struct State {
        PXPixelRect bounds;
        double refreshRate = 0; ///< 0: unknown.
        std::vector<PXPixelRect> displays; ///< All that show something, the main one first.
    };

    explicit X11MainDisplay(std::unique_ptr<X11Connection> connection);
    PXExpected<State> _ask();
    PXExpected<std::optional<State>> _askOutputs();
    /// Whether the main display differs from the one before.
    bool _remember(State state);

    void handleEvent(const xcb_generic_event_t &event) override;
    std::uint64_t eventsWereHandled() override;
    void connectionWasLost() override { }

    std::unique_ptr<X11Connection> _connection;
    bool _hasRandR;
    bool _mustAsk = false; // The event thread's.

    mutable PXMutex _lock;
    State _state PX_GUARDED_BY(_lock);
    PXObservers<> _observers;

    std::optional<X11EventThread> _thread;
};
