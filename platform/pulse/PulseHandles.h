#pragma once

#include "foundation/PXHandle.h"

#include <pulse/ext-stream-restore.h>
#include <pulse/pulseaudio.h>

using PulseMainLoopHandle = PXHandle<pa_mainloop, pa_mainloop_free>;
using PulseContextHandle = PXHandle<pa_context, pa_context_unref>;
using PulseProperties = PXHandle<pa_proplist, pa_proplist_free>;
using PulseStreamHandle = PXHandle<pa_stream, pa_stream_unref>;

/// A question on its way. Letting go of it before the answer takes it back: nothing is called.
inline void PulseTakeBack(pa_operation *operation)
{
    if (pa_operation_get_state(operation) == PA_OPERATION_RUNNING)
        pa_operation_cancel(operation);
    pa_operation_unref(operation);
}
using PulseOperation = PXHandle<pa_operation, PulseTakeBack>;

/// For the callback that brings the answer: there is nothing to take back any more.
inline void PulseForget(PulseOperation &operation)
{
    if (operation)
        pa_operation_unref(operation.release());
}
