#include "platform/pulse/PulseDeviceWatch.h"

#include "foundation/BRLog.h"

#include <utility>

PulseDeviceWatch::PulseDeviceWatch(const QString &serverName,
                                   std::function<void()> devicesDidChange)
    : _devicesDidChange(std::move(devicesDidChange)),
      _thread("tolvane-devices", serverName,
              PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER,
              *this)
{
}

void PulseDeviceWatch::serverDidCome(pa_context &)
{
    if (!std::exchange(_wasThere, true))
        _devicesDidChange();
}

void PulseDeviceWatch::serverDidTell(pa_subscription_event_type_t event)
{
    // Devices change all the time: volume, and whether anybody uses them. Not so the server.
    if ((event & PA_SUBSCRIPTION_EVENT_TYPE_MASK) != PA_SUBSCRIPTION_EVENT_CHANGE
        || (event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SERVER)
        _devicesDidChange();
}

void PulseDeviceWatch::serverDidGo(const PXError &error)
{
    if (!std::exchange(_wasThere, false))
        return;
    BRLog(BRLogInfo, error.description);
    _devicesDidChange();
}
