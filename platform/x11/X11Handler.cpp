#include "platform/x11/X11Handler.h"

#include <utility>

void X11Handler::set(std::function<void()> handler)
{
    PXLock lock(_lock);
    _handler = std::move(handler);
    while (_caller != std::thread::id() && _caller != std::this_thread::get_id())
        _returned.wait(lock);
}

void X11Handler::_call(Afterwards afterwards)
{
    std::function<void()> handler;
    {
        const PXLock lock(_lock);
        if (!_handler)
            return;
        handler = _handler;
        if (afterwards == Afterwards::Forget)
            _handler = nullptr;
        _caller = std::this_thread::get_id();
    }
    handler();
    const PXLock lock(_lock);
    _caller = {};
    _returned.notify_all();
}
