#pragma once

#include "platform/x11/X11Connection.h"

#include <xcb/xcb.h>

/// The names by which programs, window manager and compositor understand each other.
struct X11Atoms {
    /// Asks for all of them at once; those that a lost server does not tell are none.
    explicit X11Atoms(X11Connection &connection);

    xcb_atom_t activeWindow = XCB_NONE;
    xcb_atom_t supportingCheck = XCB_NONE;
    xcb_atom_t wmDesktop = XCB_NONE;
    xcb_atom_t wmState = XCB_NONE; ///< What a window manager puts on each client.
    xcb_atom_t state = XCB_NONE;
    xcb_atom_t stateAbove = XCB_NONE;
    xcb_atom_t stateSkipPager = XCB_NONE;
    xcb_atom_t stateSkipTaskbar = XCB_NONE;
    xcb_atom_t stateSticky = XCB_NONE;
    xcb_atom_t type = XCB_NONE;
    xcb_atom_t typeDesktop = XCB_NONE;
    xcb_atom_t typeDND = XCB_NONE;
    xcb_atom_t typeNormal = XCB_NONE;
    xcb_atom_t typeUtility = XCB_NONE;
    xcb_atom_t shadow = XCB_NONE; ///< Asked by compositors that look at no window type.
    xcb_atom_t gtkFrameExtents = XCB_NONE;
    xcb_atom_t compositingManager = XCB_NONE; ///< The selection that a screen's compositor owns.
};
