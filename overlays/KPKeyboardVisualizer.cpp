#include "overlays/KPKeyboardVisualizer.h"

#include "foundation/PXNotificationCenter.h"
#include "input/BRApplication.h"

using namespace Qt::StringLiterals;

KPKeyboardVisualizer::KPKeyboardVisualizer()
    : _observation(PXNotificationCenter::defaultCenter().addObserver(
        kBRExternalKeyboardEventNotification, nullptr,
        [this](const QString &, const void *, const QVariantMap &userInfo) {
            externalKeyboardEventNotification(userInfo);
        }))
{
}

KPKeyboardVisualizer::~KPKeyboardVisualizer() = default;

void KPKeyboardVisualizer::externalKeyboardEventNotification(const QVariantMap &userInfo)
{
    externalKeyboardEvent(userInfo.value(u"NSEvent"_s).value<PXKeyEvent>());
}
