#pragma once

#include "overlays/KPBezelWindow.h"

#include <functional>
#include <utility>

/// The bezel of the keystrokes, which keeps to its place in the recorded rectangle whatever size it
/// gets. Main thread.
class KPDefaultWindow final : public KPBezelWindow {
public:
    /// Puts the window, proposed there, where it belongs.
    using Place = std::function<void(const PXPixelRect &proposed, bool display)>;

    KPDefaultWindow(PXWindowServer &server, const PXPixelRect &contentRect, Place place);

    /// As the settings are now.
    [[nodiscard]] KPKeyboardPosition fixedPoint() const override;

protected:
    void resizeFrame(const QSize &size, bool display) override;

private:
    const Place _place;
};
