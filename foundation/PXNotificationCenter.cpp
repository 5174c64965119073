#include "foundation/PXNotificationCenter.h"

#include <utility>

PXNotificationCenter &PXNotificationCenter::defaultCenter()
{
    static PXNotificationCenter center;
    return center;
}

PXObservation PXNotificationCenter::addObserver(const QString &name, const void *sender,
                                                Function function)
{
    return _observers.add(
        [name, sender, function = std::move(function)](const QString &posted, const void *from,
                                                       const QVariantMap &userInfo) {
            if (posted == name && (sender == nullptr || sender == from))
                function(posted, from, userInfo);
        });
}

void PXNotificationCenter::postNotificationName(const QString &name, const void *sender,
                                                const QVariantMap &userInfo)
{
    _observers.tell(name, sender, userInfo);
}
