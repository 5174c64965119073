#pragma once

// The header has a field of that name, and its C++ readers are on their own.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include "foundation/PXHandle.h"

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon.h>

/// xkbcommon counts the owners of its objects without locks: each of these stays on one thread.
using XkbContext = PXHandle<xkb_context, xkb_context_unref>;
using XkbKeymap = PXHandle<xkb_keymap, xkb_keymap_unref>;
using XkbState = PXHandle<xkb_state, xkb_state_unref>;
using XkbComposeTable = PXHandle<xkb_compose_table, xkb_compose_table_unref>;
using XkbComposeState = PXHandle<xkb_compose_state, xkb_compose_state_unref>;
