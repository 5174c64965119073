#pragma once

#include "platform/PXWindowServer.h"
#include "platform/x11/X11Atoms.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Ids.h"
#include "platform/x11/X11TopKeeper.h"

#include <array>
#include <optional>
#include <utility>

/// Four windows that have the dashes as their background: the server paints them.
class X11DashedFrame final : public PXDashedFrame {
public:
    /// All outlive it.
    static PXExpected<std::unique_ptr<X11DashedFrame>>
    onConnection(X11Connection &connection, const X11Atoms &atoms, X11TopKeeper &keeper);
    ~X11DashedFrame() override;

    void show(const PXPixelRect &inner, const PXPixelRect &bounds) override;
    void hide() override;

private:
    X11DashedFrame(X11Connection &connection, X11TopKeeper &keeper)
        : _connection(connection), _keeper(keeper)
    {
    }
    PXExpected<void> _makeWindow(X11Window &window, const X11Pixmap &dashes, const X11Atoms &atoms);

    X11Connection &_connection;
    X11TopKeeper &_keeper;
    std::array<X11Window, 4> _windows; ///< Top, bottom, left, right.
    std::optional<std::pair<PXPixelRect, PXPixelRect>> _shown; ///< Inner and bounds.
};
