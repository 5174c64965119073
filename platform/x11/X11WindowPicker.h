#pragma once

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Windows.h"

#include "foundation/PXGeometry.h"

#include <xcb/shape.h>
#include <xcb/xcb.h>

#include <optional>

/// Finds the window that somebody points at; see `PXWindowServer::windowFrameAt()`.
class X11WindowPicker final {
public:
    /// All outlive it.
    X11WindowPicker(X11Connection &connection, const X11Windows &windows, const X11Atoms &atoms)
        : _connection(connection),
          _windows(windows),
          _atoms(atoms),
          _hasShapes(connection.hasExtension(xcb_shape_id))
    {
    }

    [[nodiscard]] std::optional<PXPixelRect> frameAt(int x, int y, xcb_window_t own) const;

private:
    struct Candidate {
        xcb_window_t window;
        PXPixelRect frame; ///< With its border.
        int border;
    };

    [[nodiscard]] std::vector<Candidate> _candidatesAt(int x, int y) const;
    [[nodiscard]] bool _isInShape(const Candidate &candidate, xcb_shape_kind_t kind, int x,
                                  int y) const;
    [[nodiscard]] PXPixelRect _withoutShadow(const PXPixelRect &frame, xcb_window_t client) const;

    X11Connection &_connection;
    const X11Windows &_windows;
    const X11Atoms &_atoms;
    const bool _hasShapes;
};
