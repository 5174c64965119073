#pragma once

#include "platform/pulse/PulseEventThread.h"

#include <functional>

/// Tells when devices come or go, or another becomes the default; also when the whole server does.
class PulseDeviceWatch final : private PulseEventThread::Delegate {
public:
    /// `devicesDidChange` is called on the watch's own thread.
    PulseDeviceWatch(const QString &serverName, std::function<void()> devicesDidChange);

private:
    void serverDidCome(pa_context &context) override;
    void serverDidTell(pa_subscription_event_type_t event) override;
    void serverDidGo(const PXError &error) override;

    const std::function<void()> _devicesDidChange;
    bool _wasThere = true; ///< Until told otherwise: no news when it is there at first.
    PulseEventThread _thread;
};
