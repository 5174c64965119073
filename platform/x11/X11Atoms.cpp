#include "platform/x11/X11Atoms.h"

#include <array>
#include <string>
#include <utility>

X11Atoms::X11Atoms(X11Connection &connection)
{
    xcb_connection_t *c = connection.get();
    const std::pair<xcb_atom_t &, std::string> names[] = {
        {activeWindow, "_NET_ACTIVE_WINDOW"},
        {supportingCheck, "_NET_SUPPORTING_WM_CHECK"},
        {wmDesktop, "_NET_WM_DESKTOP"},
        {wmState, "WM_STATE"},
        {state, "_NET_WM_STATE"},
        {stateAbove, "_NET_WM_STATE_ABOVE"},
        {stateSkipPager, "_NET_WM_STATE_SKIP_PAGER"},
        {stateSkipTaskbar, "_NET_WM_STATE_SKIP_TASKBAR"},
        {stateSticky, "_NET_WM_STATE_STICKY"},
        {type, "_NET_WM_WINDOW_TYPE"},
        {typeDesktop, "_NET_WM_WINDOW_TYPE_DESKTOP"},
        {typeDND, "_NET_WM_WINDOW_TYPE_DND"},
        {typeNormal, "_NET_WM_WINDOW_TYPE_NORMAL"},
        {typeUtility, "_NET_WM_WINDOW_TYPE_UTILITY"},
        {shadow, "_COMPTON_SHADOW"},
        {gtkFrameExtents, "_GTK_FRAME_EXTENTS"},
        {compositingManager, "_NET_WM_CM_S" + std::to_string(connection.screenNumber())},
    };
    std::array<xcb_intern_atom_cookie_t, std::size(names)> cookies = {};
    for (std::size_t i = 0; i < std::size(names); ++i)
        cookies[i] = xcb_intern_atom(c, 0, static_cast<std::uint16_t>(names[i].second.size()),
                                     names[i].second.c_str());
    for (std::size_t i = 0; i < std::size(names); ++i)
        if (const auto reply
            = connection.reply<xcb_intern_atom_reply>("xcb_intern_atom", cookies[i]))
            names[i].first = (*reply)->atom;
}
