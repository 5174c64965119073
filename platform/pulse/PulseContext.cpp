#include "platform/pulse/PulseContext.h"

#include "platform/pulse/PulseError.h"

#include <new>

PulseContext::PulseContext(const PulseMainLoop &loop, const QString &serverName)
    : _context(pa_context_new(loop.api(), "Tolvane"))
{
    if (!_context)
        throw std::bad_alloc();
    pa_context_set_state_callback(
        get(),
        [](pa_context *context, void *self) noexcept {
            if (pa_context_get_state(context) == PA_CONTEXT_READY)
                static_cast<PulseContext *>(self)->_wasReady = true;
        },
        this);
    const QByteArray name = serverName.toLocal8Bit();
    // What this answers is the state, too.
    pa_context_connect(get(), name.isEmpty() ? nullptr : name.constData(), PA_CONTEXT_NOAUTOSPAWN,
                       nullptr);
}

PulseContext::~PulseContext()
{
    pa_context_set_state_callback(get(), nullptr, nullptr);
    pa_context_set_subscribe_callback(get(), nullptr, nullptr);
    pa_context_disconnect(get());
}

bool PulseContext::isReady() const
{
    return pa_context_get_state(get()) == PA_CONTEXT_READY;
}

bool PulseContext::isLost() const
{
    return !PA_CONTEXT_IS_GOOD(pa_context_get_state(get()));
}

PXError PulseContext::error() const
{
    return _wasReady ? PulseError::lost() : PulseError::cannotReach(pa_context_errno(get()));
}

void PulseContext::subscribe(int mask, pa_context_subscribe_cb_t callback, void *userData)
{
    pa_context_set_subscribe_callback(get(), callback, userData);
    // Not a PulseOperation: nobody waits for the answer, which must not be taken back.
    if (auto *operation
        = pa_context_subscribe(get(), static_cast<pa_subscription_mask_t>(mask), nullptr, nullptr))
        pa_operation_unref(operation);
}
